#include "GstPipeline.h"

#include <QDeadlineTimer>
#include <QDebug>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <csignal>

GstPipeline::GstPipeline(const QString& description)
    : m_description(description)
{
}

GstPipeline::~GstPipeline()
{
    stop();
}

bool GstPipeline::start()
{
    // A ThreadSanitizer test process on a loaded machine has once failed to
    // start a pipeline (CI, 2 cores, two test processes): the start is given
    // time, says why it failed, and is tried once more, since starting a
    // child is not what the tests are about.
    for (int attempt = 1; attempt <= 2; ++attempt) {
        m_process = std::make_unique<QProcess>();
        m_process->setProcessChannelMode(QProcess::MergedChannels);
        // setpriv --pdeathsig: the pipeline ends with this process, even
        // when a test crashes.
        QStringList args{QStringLiteral("--pdeathsig"), QStringLiteral("KILL"),
                         QStringLiteral("gst-launch-1.0"), QStringLiteral("-q")};
        args += QProcess::splitCommand(m_description);
        m_process->start(QStringLiteral("setpriv"), args);
        if (m_process->waitForStarted(20000))
            return true;
        qWarning().noquote() << "GstPipeline: start" << attempt << "failed:"
                             << m_process->errorString() << "(state" << m_process->state() << ")";
        stop();
    }
    return false;
}

void GstPipeline::stop()
{
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        ::kill(pid_t(m_process->processId()), SIGCONT);
        ::kill(pid_t(m_process->processId()), SIGINT);
        if (!m_process->waitForFinished(3000)) {
            m_process->kill();
            m_process->waitForFinished(3000);
        }
    }
    m_process.reset();
}

void GstPipeline::suspend()
{
    if (isRunning())
        ::kill(pid_t(m_process->processId()), SIGSTOP);
}

void GstPipeline::resume()
{
    if (isRunning())
        ::kill(pid_t(m_process->processId()), SIGCONT);
}

bool GstPipeline::isRunning() const
{
    return m_process && m_process->state() != QProcess::NotRunning;
}

bool GstPipeline::waitForEnd(int msec)
{
    return m_process && m_process->waitForFinished(msec);
}

QByteArray GstPipeline::output() const
{
    return m_process ? m_process->readAll() : QByteArray();
}

QString GstPipeline::producer(const QString& name, const QString& pattern, const QString& format,
                              int width, int height, int rate)
{
    return QStringLiteral("videotestsrc is-live=true pattern=%1 ! video/x-raw,format=%2,width=%3,"
                          "height=%4,framerate=%5/1 ! pipewiresink mode=provide "
                          "stream-properties=props,node.name=%6")
        .arg(pattern, format).arg(width).arg(height).arg(rate).arg(name);
}

QImage referencePicture(const QString& pattern, int width, int height)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("frame.raw"));
    QProcess p;
    p.start(QStringLiteral("gst-launch-1.0"),
            {QStringLiteral("-q"), QStringLiteral("videotestsrc"), QStringLiteral("num-buffers=1"),
             QStringLiteral("pattern=") + pattern, QStringLiteral("!"),
             QStringLiteral("video/x-raw,format=BGRx,width=%1,height=%2").arg(width).arg(height),
             QStringLiteral("!"), QStringLiteral("filesink"), QStringLiteral("location=") + file});
    if (!p.waitForFinished(15000) || p.exitCode() != 0)
        return QImage();
    QFile raw(file);
    if (!raw.open(QIODevice::ReadOnly))
        return QImage();
    const QByteArray bytes = raw.readAll();
    if (bytes.size() != width * height * 4)
        return QImage();
    QImage image(reinterpret_cast<const uchar*>(bytes.constData()), width, height, width * 4,
                 QImage::Format_RGB32); // BGRx in memory is Qt's RGB32 on little-endian
    return image.copy();
}
