#include "console/ConsoleStepSource.h"

#include "Console.h"
#include "console/ConsoleClient.h"

ConsoleStepSource::ConsoleStepSource(std::shared_ptr<ConsoleClient> client, QString name, QObject* parent)
    : StepSource(std::move(name), false, parent), m_client(std::move(client))
{
    if (!m_client) {
        console::note(QStringLiteral("ConsoleStepSource %1: no client").arg(this->name()));
        m_lines.finish();
    }
}

ConsoleStepSource::~ConsoleStepSource()
{
    // Retired by the runner once its input ended and every line ran: a page
    // still connected gets no more steps run, so it is closed.
    if (m_client && !m_client->inputEnded())
        m_client->close(QByteArray(), QStringLiteral("the runner is ending"));
}

void ConsoleStepSource::pull()
{
    if (!m_client || m_lines.finished())
        return;
    m_client->rearmWake();
    QByteArray message;
    for (int taken = 0; taken < kMessagesPerCall && hasRoom(m_lines); ++taken) {
        if (!m_client->takeInbound(message))
            break;
        m_lines.feed(message);
        // A message ends its last line.
        if (!message.endsWith('\n'))
            m_lines.feed("\n", 1);
    }
    if (m_client->inputEnded())
        m_lines.finish();
}

void ConsoleStepSource::inputWaiting()
{
    emit linesAvailable();
}

bool ConsoleStepSource::hasLine()
{
    if (!m_lines.hasLine())
        pull();
    return m_lines.hasLine();
}

RawLine ConsoleStepSource::takeLine()
{
    return m_lines.takeLine();
}

bool ConsoleStepSource::atEnd() const
{
    return m_lines.finished() && !m_lines.hasLine();
}

void ConsoleStepSource::reply(const QByteArray& line)
{
    if (m_client)
        m_client->sendReply(line);
}

void ConsoleStepSource::close()
{
    m_lines.finish(); // first: a partial line must not become a queued one
    m_lines.clearQueued();
    if (m_client)
        m_client->close(QByteArray(), QStringLiteral("the runner is ending"), true);
}
