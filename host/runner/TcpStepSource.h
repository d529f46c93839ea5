// TcpStepSource: one live-control connection as a step source.
//
// Input: read from the connection only while the source's queue has room
// (StepSource::hasRoom), at most kReadPerWake bytes per wake-up so that an
// endless line cannot hold the event loop. When the client shuts down its
// sending side, the lines already received still run, and their replies and
// the events meanwhile are delivered before the connection closes (when the
// runner retires the source).
//
// Access: when a token is in force (AccessToken), the first step must be
// {"op": "auth", "token": TOKEN}. Until then every other step is answered
// with an error and not run, and no event lines are sent; a wrong token is
// answered with an error and the connection is closed; a connection that has
// not authenticated within kAuthDeadlineMs is closed. Without a token an
// "auth" first step is answered ok ("required": false) and the rest runs as
// usual.
//
// Threading: GUI thread. Ownership: the runner owns the source; the control
// server owns the connection, which outlives the source while it delivers
// its last output.
#pragma once

#include "StepSource.h"

#include <QPointer>

class AccessToken;
class QTimer;
class StepRunner;
class TcpConnection;

class TcpStepSource : public StepSource
{
    Q_OBJECT
public:
    static constexpr qint64 kReadPerWake = 1 << 20;
    static constexpr int kAuthDeadlineMs = 10000;
    /// A client that does not read is disconnected past this much pending output.
    static constexpr qint64 kMaxPendingOutput = 16 * (1 << 20);

    /// `token`: null or unset when none is in force; it must outlive the source.
    TcpStepSource(TcpConnection* connection, QString name, StepRunner& runner, const AccessToken* token,
                  QObject* parent = nullptr);
    ~TcpStepSource() override;

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

    /// Event and host lines: sent only to a client that may have them.
    void send(const QByteArray& line);
    bool receivesEvents() const;
    /// Input held in memory: whole lines waiting plus the line being read.
    qint64 heldInputBytes() const;
    /// Drops this client's input, tells it `problem` and disconnects it.
    void refuseInput(const QString& problem);

signals:
    /// More input was read (the server keeps the total of all connections).
    void inputRead();

private:
    void readAvailable();
    void updateReading();
    bool tokenRequired() const;
    void screenFirstStep();
    /// Drops the input, sends `line` (when not empty) and closes.
    void disconnectWith(const QByteArray& line);
    void write(const QByteArray& line);

    // All fields: GUI thread.
    QPointer<TcpConnection> m_connection; // null once handed back for closing
    StepRunner& m_runner;
    const AccessToken* m_token;           // see the constructor
    LineAssembler m_lines{kMaxLineBytes};
    bool m_gateOpen = false;              // the first step was screened (and auth passed)
    bool m_authenticated = false;         // the right token was presented
    QTimer* m_authDeadline = nullptr;     // child; runs until authenticated
};
