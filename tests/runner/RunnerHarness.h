// Test harness of the show runner: runs kelmor-show as a separate process
// (as a user or a controller would), feeds it a show, and reads back its
// JSON lines. Media are made at test time with examples/make-demo-media.sh
// into the build directory.
//
// Threading: the test's main thread (QProcess and sockets are used with
// their blocking waits).
#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace runner_test {

/// The kelmor-show binary (the KELMOR_SHOW_BINARY environment variable, when
/// set, names another).
QString showBinary();
/// The media directory, made on first use (clip.mp4, quadrants.mp4,
/// still-a.png, still-b.png); empty (and a test failure) when ffmpeg fails.
QString mediaDir();
/// A fresh, empty directory for one test's files.
QString freshWorkDir(const QString& name);
/// The examples/ directory of the source tree.
QString examplesDir();

/// Every stdout line of a finished run, parsed.
struct ShowRun
{
    bool finished = false;   ///< exited by itself within the time limit
    int exitCode = -1;
    QList<QJsonObject> lines; ///< stdout lines, in order
    QStringList badLines;     ///< stdout lines that were not JSON objects
    QString errText;          ///< stderr

    /// The events as "name key=value ..." (keys sorted, "t" left out), in
    /// order; sPositionChanged left out unless asked for.
    QStringList events(bool withPositions = false) const;
    QList<QJsonObject> errors() const;
    QList<QJsonObject> oks() const;
    /// The ok or error line answering show line `line`; empty when none.
    QJsonObject replyTo(int line) const;
    QList<QJsonObject> hostLines(const QString& what) const;
};

/// Describes an event line as events() does.
QString describeEvent(const QJsonObject& line);

/// Writes `show` into `dir`/show.jsonl and runs it with
/// --ao null --no-progress --out dir --set media=<mediaDir> and `extraArgs`.
ShowRun runShow(const QString& dir, const QString& show, const QStringList& extraArgs = {},
                int timeoutMs = 45000);
/// Runs the binary with exactly these arguments.
ShowRun runArgs(const QStringList& args, const QString& workingDir, int timeoutMs = 45000,
                const QByteArray& stdinBytes = QByteArray());

/// A running kelmor-show whose stdout is read line by line.
class LiveRunner
{
public:
    LiveRunner() = default;
    ~LiveRunner();
    LiveRunner(const LiveRunner&) = delete;
    LiveRunner& operator=(const LiveRunner&) = delete;

    bool start(const QStringList& args, const QString& workingDir);
    QProcess& process() { return m_process; }
    /// Writes to the runner's stdin.
    void write(const QByteArray& bytes);
    /// The next stdout line (after those already returned) for which `match`
    /// holds; lines passed over stay in seen(). Empty on timeout.
    QJsonObject nextLine(const std::function<bool(const QJsonObject&)>& match, int timeoutMs = 20000);
    /// Waits for the exit; -1 when it does not come.
    int waitForExit(int timeoutMs = 20000);
    const QList<QJsonObject>& seen() const { return m_seen; }
    /// Waits until the runner's stderr holds `needle`; returns everything
    /// read from stderr so far (also when the needle never comes). Stderr
    /// read here is no longer in process().readAllStandardError().
    QString waitForStderr(const QString& needle, int timeoutMs = 20000);
    /// The runner's process id (0 when not running).
    qint64 pid() const { return m_process.processId(); }

private:
    bool readLines(int timeoutMs);
    void takeStdout(); // appends what stdout has to m_buffer, parses whole lines

    QProcess m_process;
    QString m_stderr; // stderr read by waitForStderr
    QByteArray m_buffer;
    QList<QJsonObject> m_seen;
    int m_next = 0; // index in m_seen of the next line to look at
};

/// The environment for a runner whose memory a test measures. Under
/// AddressSanitizer freed blocks are held back (its quarantine, 256 MB by
/// default) and would count as the runner's own; a small quarantine keeps
/// the resident size close to what the runner holds. No effect otherwise.
QProcessEnvironment measuredEnvironment();

/// A field of /proc/PID/status in KiB ("VmRSS", "VmHWM"); -1 when it
/// cannot be read.
qint64 processMemoryKiB(qint64 pid, const char* field);

/// The reply (ok or error) to line `line`, for LiveRunner::nextLine.
std::function<bool(const QJsonObject&)> replyToLine(int line);

/// Starts `runner` listening on a free port (--listen 0, plus `more`);
/// returns the port (0 when it did not start) and, when asked, the address
/// its "listening" line names.
quint16 startListening(LiveRunner& runner, const QString& dir, const QStringList& more = {},
                       QString* address = nullptr);

} // namespace runner_test
