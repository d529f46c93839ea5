// A private PipeWire daemon for the tests: a session D-Bus, pipewire and
// wireplumber started in a temporary XDG_RUNTIME_DIR, which this process
// then uses (the environment is set before anything connects). The daemon
// can be killed and started again to test reconnection. Everything is
// stopped by stop() or the destructor.
//
// Threading: the test's thread.
#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class PrivatePipeWire
{
public:
    PrivatePipeWire();
    ~PrivatePipeWire();

    /// Starts the bus, the daemon and the session manager, and waits until
    /// the session manager is ready; false with the reason in error().
    bool start();
    void stop();

    /// Kills the daemon and the session manager (as a crash would).
    void killDaemon();
    /// Starts them again after killDaemon().
    bool startDaemon();

    QString runtimeDir() const { return m_dir ? m_dir->path() : QString(); }
    QString error() const { return m_error; }

    /// Runs a PipeWire command-line tool against the private daemon and
    /// returns its standard output.
    static QByteArray tool(const QString& program, const QStringList& args, int msec = 5000);

private:
    /// Starts wireplumber and waits until it is ready.
    bool startSessionManager();
    bool waitForSessionManager();
    static void end(std::unique_ptr<QProcess>& process);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QProcess> m_bus;
    std::unique_ptr<QProcess> m_daemon;
    std::unique_ptr<QProcess> m_sessionManager;
    QString m_error;
};
