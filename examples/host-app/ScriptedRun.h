// ScriptedRun: what the command line asks the example host to do by itself:
// load a file at start, play it once it is ready, and, for tests and
// scripts, save the output screen after some time of playing and quit.
//
// A scripted snapshot run always ends: with 0 once the snapshot is saved,
// or non-zero with a message on standard error when the media cannot be
// played, is not ready in time, or the snapshot cannot be saved.
//
// Threading: GUI thread. Ownership: refers to the controller, which
// outlives it.
#pragma once

#include "HostOptions.h"

#include <QObject>
#include <QTimer>

class LayerController;

/// Runs the command line's start-up actions on the layer. GUI thread.
class ScriptedRun : public QObject
{
    Q_OBJECT
public:
    /// Exit codes of a scripted run.
    enum ExitCode { Success = 0, Failure = 2 };

    ScriptedRun(LayerController& layer, const HostOptions& options, QObject* parent = nullptr);

    /// Loads the file given with --file, if any. A load that fails at once
    /// ends the run (finished(Failure)) when a snapshot was asked for.
    void start();

signals:
    /// The scripted run is over; the host should quit with `exitCode`.
    void finished(int exitCode);

private:
    void onReady();
    void onMediaFailed(const QString& path, const QString& reason);
    void takeSnapshot();
    void fail(const QString& message);
    bool scripted() const { return !m_options.snapshot.isEmpty(); }

    // All fields: GUI thread.
    LayerController& m_layer;
    const HostOptions m_options;
    QTimer m_snapshotDue;     // --after-ms after play
    QTimer m_watchdog;        // ends a scripted run that never gets there
    bool m_started = false;   // play() was called for --play
    bool m_over = false;      // finished() was emitted
};
