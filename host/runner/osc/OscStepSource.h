// OscStepSource: the steps of one OSC sender (address and port) as a step
// source of its own, so one controller's "wait" holds only its own steps.
// Its steps are numbered from 1 in arrival order; each step's reply goes
// back to the sender as /kelmor/reply <json line>.
//
// UDP cannot be told to wait, so a full queue (kMaxLines lines or
// kMaxBytes bytes) refuses what comes next instead of holding it; the OSC
// room answers the refusal. A closed source (the sender was dropped, or the
// run ends) takes nothing more and ends once its last step has answered.
//
// Threading: GUI thread. Ownership: the runner owns the source; the OSC
// room keeps a QPointer to it.
#pragma once

#include "StepSource.h"
#include "osc/OscSocket.h"

#include <QPointer>
#include <deque>

class OscStepSource : public StepSource
{
    Q_OBJECT
public:
    static constexpr int kMaxLines = kHighWater;
    static constexpr qint64 kMaxBytes = kMaxQueuedBytes;

    OscStepSource(const OscPeer& peer, OscSocket* socket, QObject* parent = nullptr);

    const OscPeer& peer() const { return m_peer; }
    /// Whether `count` more steps of `bytes` bytes in all fit in the queue.
    bool hasRoomFor(int count, qint64 bytes) const;
    /// Queues one step's text (the caller checked hasRoomFor).
    void push(const QByteArray& text);
    qint64 queuedBytes() const { return m_bytes; }
    int queuedLines() const { return int(m_lines.size()); }

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

    quint64 lastUsed = 0; ///< the OSC room's use counter when the sender last sent (GUI thread)

private:
    // All fields: GUI thread.
    const OscPeer m_peer;
    QPointer<OscSocket> m_socket; // null once the room is gone
    std::deque<RawLine> m_lines;
    qint64 m_bytes = 0;           // text bytes of m_lines
    int m_lineNumber = 0;         // number of the last line queued
    bool m_closed = false;
};
