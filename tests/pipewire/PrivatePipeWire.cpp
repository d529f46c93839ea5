#include "PrivatePipeWire.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <sys/types.h>

PrivatePipeWire::PrivatePipeWire() = default;

PrivatePipeWire::~PrivatePipeWire()
{
    stop();
}

bool PrivatePipeWire::start()
{
    m_dir = std::make_unique<QTemporaryDir>(QStringLiteral("/tmp/kelmor-pw-XXXXXX"));
    if (!m_dir->isValid()) {
        m_error = QStringLiteral("cannot make a runtime folder");
        return false;
    }
    QFile::setPermissions(m_dir->path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", m_dir->path().toUtf8());
    qunsetenv("PIPEWIRE_REMOTE");
    qunsetenv("PIPEWIRE_RUNTIME_DIR");

    // Every child is started through setpriv --pdeathsig, so that it ends
    // with this process even when a test crashes.
    m_bus = std::make_unique<QProcess>();
    m_bus->setStandardErrorFile(QProcess::nullDevice());
    m_bus->start(QStringLiteral("setpriv"),
                 {QStringLiteral("--pdeathsig"), QStringLiteral("TERM"), QStringLiteral("dbus-daemon"),
                  QStringLiteral("--session"), QStringLiteral("--nofork"),
                  QStringLiteral("--print-address=1")});
    QByteArray address;
    QDeadlineTimer deadline(10000);
    while (!address.endsWith('\n') && !deadline.hasExpired() && m_bus->state() != QProcess::NotRunning) {
        m_bus->waitForReadyRead(100);
        address += m_bus->readAllStandardOutput();
    }
    if (!address.endsWith('\n')) {
        m_error = QStringLiteral("dbus-daemon printed no address");
        return false;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", address.trimmed());
    return startDaemon();
}

bool PrivatePipeWire::startDaemon()
{
    m_daemon = std::make_unique<QProcess>();
    m_daemon->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_daemon->setStandardOutputFile(QProcess::nullDevice());
    m_daemon->start(QStringLiteral("setpriv"),
                    {QStringLiteral("--pdeathsig"), QStringLiteral("TERM"), QStringLiteral("pipewire")});
    // Generous: a daemon restarted by a test under ThreadSanitizer is forked
    // from a process with many threads on a loaded machine (GstPipeline.cpp).
    if (!m_daemon->waitForStarted(20000)) {
        m_error = QStringLiteral("pipewire did not start: ") + m_daemon->errorString();
        return false;
    }
    const QString socket = m_dir->path() + QStringLiteral("/pipewire-0");
    QDeadlineTimer deadline(10000);
    while (!QFile::exists(socket) && !deadline.hasExpired())
        QThread::msleep(20);
    if (!QFile::exists(socket)) {
        m_error = QStringLiteral("pipewire made no socket");
        return false;
    }
    // Starting the session manager is not what the tests check: on a loaded
    // machine it now and then does not become ready in time, so it is
    // started once more (the reason printed) before that counts as failure.
    if (startSessionManager())
        return true;
    std::fprintf(stderr, "PrivatePipeWire: %s; the session manager is started once more\n",
                 qPrintable(m_error));
    end(m_sessionManager);
    return startSessionManager();
}

bool PrivatePipeWire::startSessionManager()
{
    m_sessionManager = std::make_unique<QProcess>();
    m_sessionManager->setStandardOutputFile(QProcess::nullDevice());
    m_sessionManager->setStandardErrorFile(QProcess::nullDevice());
    m_sessionManager->start(QStringLiteral("setpriv"),
                            {QStringLiteral("--pdeathsig"), QStringLiteral("TERM"), QStringLiteral("wireplumber")});
    if (!m_sessionManager->waitForStarted(20000)) {
        m_error = QStringLiteral("wireplumber did not start: ") + m_sessionManager->errorString();
        return false;
    }
    return waitForSessionManager();
}

bool PrivatePipeWire::waitForSessionManager()
{
    // Ready once wireplumber is a client of the daemon and has made its
    // metadata (what it uses to place streams).
    QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        const QByteArray objects = tool(QStringLiteral("pw-cli"), {QStringLiteral("ls"), QStringLiteral("Metadata")});
        if (objects.contains("metadata.name = \"default\""))
            return true;
        if (m_sessionManager->state() == QProcess::NotRunning) {
            m_error = QStringLiteral("wireplumber exited");
            return false;
        }
        QThread::msleep(50);
    }
    m_error = QStringLiteral("wireplumber did not become ready (pw-cli ls Metadata: \"%1\")")
                  .arg(QString::fromUtf8(tool(QStringLiteral("pw-cli"),
                                              {QStringLiteral("ls"), QStringLiteral("Metadata")}))
                           .simplified()
                           .left(300));
    return false;
}

QByteArray PrivatePipeWire::tool(const QString& program, const QStringList& args, int msec)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(msec)) {
        p.kill();
        p.waitForFinished(1000);
        return QByteArray();
    }
    return p.readAllStandardOutput();
}

void PrivatePipeWire::end(std::unique_ptr<QProcess>& process)
{
    if (!process)
        return;
    if (process->state() != QProcess::NotRunning) {
        process->terminate();
        if (!process->waitForFinished(3000)) {
            process->kill();
            process->waitForFinished(3000);
        }
    }
    process.reset();
}

void PrivatePipeWire::killDaemon()
{
    if (m_sessionManager)
        m_sessionManager->kill();
    if (m_daemon)
        m_daemon->kill();
    end(m_sessionManager);
    end(m_daemon);
}

void PrivatePipeWire::stop()
{
    end(m_sessionManager);
    end(m_daemon);
    end(m_bus);
}
