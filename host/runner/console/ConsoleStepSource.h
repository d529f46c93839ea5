// ConsoleStepSource: one console page as a source of show steps.
//
// Each WebSocket text message holds one or more step lines; they are cut
// into numbered lines (LineAssembler, 1 MiB per line) and run like the
// lines of a TCP connection, answered on the same page in order. A page
// sends the lines of one button ("play all") in one message, so they are
// queued together and run in the same turn of the event loop.
//
// The page was let in by the console's HTTP checks (Host, Origin, token),
// so no "auth" step is asked for; an "auth" line is answered like any other
// host step it is not ("unknown op").
//
// Input is taken from the client only while this source's own queue has
// room (StepSource::hasRoom); the client holds the rest and civetweb then
// stops reading (ConsoleClient).
//
// Threading: GUI thread. Ownership: the runner owns the source; the client
// is shared with civetweb's connection and the console.
#pragma once

#include "StepSource.h"

#include <memory>

class ConsoleClient;

class ConsoleStepSource : public StepSource
{
    Q_OBJECT
public:
    /// Messages taken from the client per call, so that a fast page cannot
    /// hold the event loop.
    static constexpr int kMessagesPerCall = 16;

    ConsoleStepSource(std::shared_ptr<ConsoleClient> client, QString name, QObject* parent = nullptr);
    ~ConsoleStepSource() override;

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

    /// New input (or the end of the connection) is waiting at the client.
    void inputWaiting();
    const std::shared_ptr<ConsoleClient>& client() const { return m_client; }

private:
    void pull();

    // All fields: GUI thread.
    std::shared_ptr<ConsoleClient> m_client;
    LineAssembler m_lines{kMaxLineBytes};
};
