#include "RunnerHarness.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <gtest/gtest.h>

namespace runner_test {

QString showBinary()
{
    // KELMOR_SHOW_BINARY in the environment runs the tests against another
    // build of the runner (an older one, to see a test fail before a fix).
    return qEnvironmentVariable("KELMOR_SHOW_BINARY", QStringLiteral(KELMOR_SHOW_BINARY));
}

QString examplesDir()
{
    return QStringLiteral(KELMOR_EXAMPLES_DIR);
}

QString mediaDir()
{
    static QString made;
    if (!made.isEmpty())
        return made;
    const QString dir = QStringLiteral(KELMOR_RUNNER_MEDIA_DIR);
    QProcess script;
    script.setProcessChannelMode(QProcess::MergedChannels);
    script.start(QStringLiteral("bash"), {examplesDir() + QStringLiteral("/make-demo-media.sh"), dir});
    const bool done = script.waitForFinished(120000);
    if (!done || script.exitCode() != 0) {
        ADD_FAILURE() << "make-demo-media.sh failed: " << script.readAll().toStdString();
        return QString();
    }
    made = dir;
    return made;
}

QString freshWorkDir(const QString& name)
{
    const QString dir = QStringLiteral(KELMOR_RUNNER_WORK_DIR) + QLatin1Char('/') + name;
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    return dir;
}

namespace {

QString valueText(const QJsonValue& value)
{
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 17);
    if (value.isString())
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    if (value.isBool())
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    return QStringLiteral("?");
}

} // namespace

QString describeEvent(const QJsonObject& line)
{
    QStringList parts{line.value(QStringLiteral("event")).toString()};
    for (const QString& key : line.keys()) { // sorted
        if (key != QLatin1String("t") && key != QLatin1String("event"))
            parts << key + QLatin1Char('=') + valueText(line.value(key));
    }
    return parts.join(QLatin1Char(' '));
}

QStringList ShowRun::events(bool withPositions) const
{
    QStringList out;
    for (const QJsonObject& line : lines) {
        if (!line.contains(QStringLiteral("event")))
            continue;
        if (!withPositions && line.value(QStringLiteral("event")) == QLatin1String("sPositionChanged"))
            continue;
        out << describeEvent(line);
    }
    return out;
}

QList<QJsonObject> ShowRun::errors() const
{
    QList<QJsonObject> out;
    for (const QJsonObject& line : lines) {
        if (line.contains(QStringLiteral("error")))
            out << line;
    }
    return out;
}

QList<QJsonObject> ShowRun::oks() const
{
    QList<QJsonObject> out;
    for (const QJsonObject& line : lines) {
        if (line.contains(QStringLiteral("ok")))
            out << line;
    }
    return out;
}

QJsonObject ShowRun::replyTo(int lineNumber) const
{
    for (const QJsonObject& line : lines) {
        if ((line.contains(QStringLiteral("ok")) || line.contains(QStringLiteral("error")))
            && line.value(QStringLiteral("line")).toInt() == lineNumber)
            return line;
    }
    return QJsonObject();
}

QList<QJsonObject> ShowRun::hostLines(const QString& what) const
{
    QList<QJsonObject> out;
    for (const QJsonObject& line : lines) {
        if (line.value(QStringLiteral("host")).toString() == what)
            out << line;
    }
    return out;
}

namespace {

void parseLines(const QByteArray& text, QList<QJsonObject>& lines, QStringList& bad)
{
    for (const QByteArray& raw : text.split('\n')) {
        if (raw.trimmed().isEmpty())
            continue;
        const QJsonDocument doc = QJsonDocument::fromJson(raw);
        if (doc.isObject())
            lines << doc.object();
        else
            bad << QString::fromUtf8(raw);
    }
}

} // namespace

ShowRun runArgs(const QStringList& args, const QString& workingDir, int timeoutMs,
                const QByteArray& stdinBytes)
{
    ShowRun run;
    QProcess process;
    process.setWorkingDirectory(workingDir);
    process.start(showBinary(), args);
    if (!process.waitForStarted(10000)) {
        ADD_FAILURE() << "kelmor-show did not start: " << process.errorString().toStdString();
        return run;
    }
    if (!stdinBytes.isEmpty())
        process.write(stdinBytes);
    process.closeWriteChannel();
    run.finished = process.waitForFinished(timeoutMs);
    if (!run.finished) {
        process.kill();
        process.waitForFinished(5000);
    }
    run.exitCode = run.finished && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    parseLines(process.readAllStandardOutput(), run.lines, run.badLines);
    run.errText = QString::fromUtf8(process.readAllStandardError());
    return run;
}

ShowRun runShow(const QString& dir, const QString& show, const QStringList& extraArgs,
                int timeoutMs)
{
    const QString path = dir + QStringLiteral("/show.jsonl");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        ADD_FAILURE() << "cannot write " << path.toStdString();
        return ShowRun();
    }
    file.write(show.toUtf8());
    file.close();
    QStringList args{QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                     QStringLiteral("--out"), dir, QStringLiteral("--set"),
                     QStringLiteral("media=") + mediaDir()};
    args << extraArgs << path;
    return runArgs(args, dir, timeoutMs);
}

// ---- LiveRunner ----

LiveRunner::~LiveRunner()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool LiveRunner::start(const QStringList& args, const QString& workingDir)
{
    m_process.setWorkingDirectory(workingDir);
    m_process.setReadChannel(QProcess::StandardOutput);
    m_process.start(showBinary(), args);
    return m_process.waitForStarted(10000);
}

void LiveRunner::write(const QByteArray& bytes)
{
    m_process.write(bytes);
    m_process.waitForBytesWritten(5000);
}

bool LiveRunner::readLines(int timeoutMs)
{
    // Output an event loop already read into the process's buffer (a test
    // that waits on other sockets meanwhile) is taken without waiting.
    if (m_process.bytesAvailable() == 0 && !m_process.waitForReadyRead(timeoutMs))
        return false;
    takeStdout();
    return true;
}

void LiveRunner::takeStdout()
{
    m_buffer += m_process.readAllStandardOutput();
    int newline;
    while ((newline = m_buffer.indexOf('\n')) >= 0) {
        const QByteArray raw = m_buffer.left(newline);
        m_buffer.remove(0, newline + 1);
        const QJsonDocument doc = QJsonDocument::fromJson(raw);
        if (doc.isObject())
            m_seen << doc.object();
        else if (!raw.trimmed().isEmpty())
            ADD_FAILURE() << "stdout line is not a JSON object: " << raw.toStdString();
    }
}

QJsonObject LiveRunner::nextLine(const std::function<bool(const QJsonObject&)>& match,
                                 int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        while (m_next < m_seen.size()) {
            const QJsonObject& line = m_seen.at(m_next++);
            if (match(line))
                return line;
        }
        if (deadline.hasExpired() || !readLines(int(qMax<qint64>(1, deadline.remainingTime()))))
            return QJsonObject();
    }
}

int LiveRunner::waitForExit(int timeoutMs)
{
    if (!m_process.waitForFinished(timeoutMs))
        return -1;
    m_buffer += m_process.readAllStandardOutput();
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QString LiveRunner::waitForStderr(const QString& needle, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        m_stderr += QString::fromUtf8(m_process.readAllStandardError());
        if (m_stderr.contains(needle) || deadline.hasExpired()
            || m_process.state() == QProcess::NotRunning)
            return m_stderr;
        // Waiting on stdout reads whatever arrives on stderr as well.
        m_process.waitForReadyRead(50);
        takeStdout();
    }
}

QProcessEnvironment measuredEnvironment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QString asan = env.value(QStringLiteral("ASAN_OPTIONS"));
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               (asan.isEmpty() ? QString() : asan + QLatin1Char(':')) + QStringLiteral("quarantine_size_mb=4"));
    return env;
}

qint64 processMemoryKiB(qint64 pid, const char* field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

std::function<bool(const QJsonObject&)> replyToLine(int line)
{
    return [line](const QJsonObject& o) {
        return (o.contains(QStringLiteral("ok")) || o.contains(QStringLiteral("error")))
            && o.value(QStringLiteral("line")).toInt() == line;
    };
}

quint16 startListening(LiveRunner& runner, const QString& dir, const QStringList& more,
                       QString* address)
{
    QStringList args{QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                     QStringLiteral("--listen"), QStringLiteral("0")};
    if (!runner.start(args + more, dir))
        return 0;
    const QJsonObject listening = runner.nextLine([](const QJsonObject& o) {
        return o.value(QStringLiteral("host")).toString() == QLatin1String("listening");
    });
    if (address)
        *address = listening.value(QStringLiteral("address")).toString();
    return quint16(listening.value(QStringLiteral("port")).toInt());
}

} // namespace runner_test
