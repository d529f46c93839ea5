// Shutdown: the orderly end of a run. Steps stop, recordings are finished,
// every live layer's render objects are removed (delLayerAllRenderer) and
// every layer is ended through the registry (clearAllPlayer); the runner
// waits until the players have been released and deleted (that ends on
// their own thread a little later), destroys render objects that deleted
// layers left on screens, closes the screens and leaves the event loop with
// the exit code.
//
// Threading: GUI thread.
#pragma once

#include <QObject>

class ControlServer;
class HostSteps;
class Progress;
class ScreenSteps;
class StepRunner;
class QTimer;

class Shutdown : public QObject
{
    Q_OBJECT
public:
    Shutdown(StepRunner& runner, HostSteps& host, ScreenSteps& screens, ControlServer& server,
             Progress& progress, QObject* parent = nullptr);

    /// Starts the end; the first call's code is the exit code.
    void begin(int code);

private:
    void poll();
    void finish();

    // All fields: GUI thread.
    StepRunner& m_runner;
    HostSteps& m_host;
    ScreenSteps& m_screens;
    ControlServer& m_server;
    Progress& m_progress;
    QTimer* m_poll = nullptr; // child
    int m_code = 0;
    int m_polls = 0;
    bool m_started = false;
};
