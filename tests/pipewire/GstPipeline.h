// A GStreamer pipeline run by gst-launch-1.0 as a child process: producers
// (videotestsrc ! pipewiresink) and consumers (pipewiresrc ! ... ! filesink)
// of the tests. The pipeline is ended (SIGINT, then killed) by stop() or the
// destructor; suspend()/resume() freeze and thaw it (a stalled source).
//
// Threading: the test's thread.
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

class GstPipeline
{
public:
    explicit GstPipeline(const QString& description);
    ~GstPipeline();

    bool start();
    void stop();
    void suspend();
    void resume();
    bool isRunning() const;
    /// Waits for the pipeline to end by itself (true) within msec.
    bool waitForEnd(int msec);
    QByteArray output() const;

    /// A producer node `name` sending videotestsrc's `pattern` as `format`
    /// at width x height and `rate` frames a second.
    static QString producer(const QString& name, const QString& pattern, const QString& format,
                            int width, int height, int rate = 30);

private:
    QString m_description;
    std::unique_ptr<QProcess> m_process;
};

/// The first frame of videotestsrc's `pattern` at width x height as an image
/// (what a producer of that pattern sends), made by gst-launch-1.0.
QImage referencePicture(const QString& pattern, int width, int height);
