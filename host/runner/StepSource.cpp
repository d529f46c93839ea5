#include "StepSource.h"

#include "Console.h"

#include <QSocketNotifier>
#include <cerrno>
#include <unistd.h>

namespace {

constexpr qint64 kChunk = 64 * 1024;

/// Counts the lines that are steps (not blank, not '#' comments), for the
/// progress line's "step 14/40". Lines over the cap count as steps (they are
/// answered with an error).
int countSteps(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    LineAssembler lines(1 << 20);
    int steps = 0;
    auto drain = [&] {
        while (lines.hasLine()) {
            const RawLine line = lines.takeLine();
            const QByteArray text = line.text.trimmed();
            if (line.tooLong || (!text.isEmpty() && !text.startsWith('#')))
                ++steps;
        }
    };
    while (!file.atEnd()) {
        lines.feed(file.read(kChunk));
        drain();
    }
    lines.finish();
    drain();
    return steps;
}

} // namespace

StepSource::StepSource(QString name, bool primary, QObject* parent)
    : QObject(parent), m_name(std::move(name)), m_primary(primary)
{
}

// ---- Show file ----

FileStepSource::FileStepSource(const QString& path, QObject* parent)
    : StepSource(path, true, parent), m_file(path)
{
}

bool FileStepSource::open(QString& error)
{
    if (!m_file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot open the show file %1: %2").arg(name(), m_file.errorString());
        return false;
    }
    totalSteps = countSteps(name());
    return true;
}

bool FileStepSource::hasLine()
{
    while (!m_lines.hasLine() && !m_lines.finished()) {
        const QByteArray chunk = m_file.read(kChunk);
        if (chunk.isEmpty()) {
            m_lines.finish();
            m_file.close();
        } else {
            m_lines.feed(chunk);
        }
    }
    return m_lines.hasLine();
}

RawLine FileStepSource::takeLine()
{
    return m_lines.takeLine();
}

bool FileStepSource::atEnd() const
{
    return m_lines.finished() && !m_lines.hasLine();
}

void FileStepSource::reply(const QByteArray& line)
{
    console::writeLine(line);
}

void FileStepSource::close()
{
    m_lines.clearQueued();
    m_lines.finish();
    m_file.close();
}

// ---- Standard input ----

StdinStepSource::StdinStepSource(bool tagReplies, QObject* parent)
    : StepSource(QStringLiteral("stdin"), true, parent)
{
    if (tagReplies)
        replyTag = QStringLiteral("stdin");
    m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { readAvailable(); });
}

void StdinStepSource::readAvailable()
{
    if (m_lines.finished())
        return;
    char buffer[kChunk];
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (got > 0) {
        m_lines.feed(buffer, got);
    } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
        // End of input (or an unreadable stdin, which ends it too).
        m_lines.finish();
        m_notifier->setEnabled(false);
    }
    // A full queue: let the pipe hold the rest until the show catches up.
    if (!hasRoom(m_lines))
        m_notifier->setEnabled(false);
    emit linesAvailable();
}

bool StdinStepSource::hasLine()
{
    if (!m_notifier->isEnabled() && hasRoom(m_lines))
        m_notifier->setEnabled(true);
    return m_lines.hasLine();
}

RawLine StdinStepSource::takeLine()
{
    return m_lines.takeLine();
}

bool StdinStepSource::atEnd() const
{
    return m_lines.finished() && !m_lines.hasLine();
}

void StdinStepSource::reply(const QByteArray& line)
{
    console::writeLine(line);
}

void StdinStepSource::close()
{
    m_lines.clearQueued();
    m_lines.finish();
    m_notifier->setEnabled(false);
}
