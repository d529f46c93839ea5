// The host steps about output screens: openScreen, closeScreen, snapshot and
// record, on top of ScreenService.
//
// A recording runs for its "ms" while the show goes on; its end prints a
// host line {"t", "host": "recordFinished", "screen", "path"}. Closing the
// screen, or the end of the run, ends it early (the line says "cut": true).
//
// The first screen opened says on stderr which thread draws output frames
// (the render thread unless the runner was given --no-render-thread).
//
// Snapshots and recordings are written only inside the output directory
// (--out), through OutputPaths: relative paths are taken from it, new folders
// below it are made, symbolic links are not followed, and an existing file is
// replaced only with "overwrite": true in the step.
//
// Threading: GUI thread.
#pragma once

#include "OutputPaths.h"
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
    void finishRecording(int screenId, bool cut);
    /// Says once, after the first screen, which thread draws output frames.
    void noteWhereFramesAreDrawn();

    struct Recording
    {
        QString path;
        QTimer* timer = nullptr; // child of this object
    };

    // All fields: GUI thread.
    const OutputPaths m_paths;
    const bool m_defaultOffscreen;
    EventHub& m_hub;
    QMap<int, Recording> m_recordings; // screen id -> running recording
    QSet<int> m_offscreenIds;          // open screens made offscreen
    bool m_noted = false;              // noteWhereFramesAreDrawn said it
};
