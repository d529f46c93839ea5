// The host steps about output screens: openScreen, closeScreen, snapshot and
// record, on top of ScreenService.
//
// A recording runs for its "ms" while the show goes on; its end prints a
// host line {"t", "host": "recordFinished", "screen", "path"}. Closing the
// screen, or the end of the run, ends it early (the line says "cut": true).
//
// Threading: GUI thread. Paths of snapshots and recordings that are relative
// are taken from the output directory (--out).
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

#include <QMap>
#include <QObject>
#include <QSet>

class EventHub;
class QTimer;

class ScreenSteps : public QObject
{
    Q_OBJECT
public:
    ScreenSteps(const QString& outDir, bool defaultOffscreen, EventHub& hub,
                QObject* parent = nullptr);

    StepOutcome openScreen(const Step& step);
    StepOutcome closeScreen(const Step& step);
    StepOutcome snapshot(const Step& step);
    StepOutcome record(const Step& step);

    int activeRecordings() const { return m_recordings.size(); }
    /// Screens being recorded, ascending.
    QList<int> recordingScreens() const { return m_recordings.keys(); }
    /// Whether screens open offscreen by default or any open screen is offscreen.
    bool offscreen() const;
    /// Ends every recording (shutdown).
    void stopAllRecordings();

signals:
    /// The last running recording has ended.
    void recordingsFinished();

private:
    QString resolvePath(const QString& path) const;
    void finishRecording(int screenId, bool cut);

    struct Recording
    {
        QString path;
        QTimer* timer = nullptr; // child of this object
    };

    // All fields: GUI thread.
    const QString m_outDir;
    const bool m_defaultOffscreen;
    EventHub& m_hub;
    QMap<int, Recording> m_recordings; // screen id -> running recording
    QSet<int> m_offscreenIds;          // open screens made offscreen
};
