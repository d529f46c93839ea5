#include "TcpStepSource.h"

#include "AccessToken.h"
#include "Console.h"
#include "JsonLine.h"
#include "StepRunner.h"
#include "TcpConnection.h"

#include <QTimer>

namespace {

constexpr qint64 kChunk = 64 * 1024;
/// Lines screened (refused before authentication) per call of hasLine(); the
/// rest wait for the next turn, so a flood of them cannot hold the loop.
constexpr int kScreenedPerCall = 64;

} // namespace

TcpStepSource::TcpStepSource(TcpConnection* connection, QString name, StepRunner& runner,
                             const AccessToken* token, QObject* parent)
    : StepSource(std::move(name), false, parent), m_connection(connection), m_runner(runner), m_token(token)
{
    if (!m_connection) {
        console::note(QStringLiteral("TcpStepSource %1: no connection").arg(this->name()));
        m_lines.finish();
        return;
    }
    connect(m_connection, &TcpConnection::readable, this, &TcpStepSource::readAvailable);
    if (tokenRequired()) {
        m_authDeadline = new QTimer(this);
        m_authDeadline->setSingleShot(true);
        connect(m_authDeadline, &QTimer::timeout, this, [this] {
            console::note(QStringLiteral("%1: no token within %2 ms; disconnected").arg(this->name()).arg(kAuthDeadlineMs));
            disconnectWith(console::refusalLine(QStringLiteral("not authenticated within %1 ms; disconnected").arg(kAuthDeadlineMs)));
        });
        m_authDeadline->start(kAuthDeadlineMs);
    }
}

TcpStepSource::~TcpStepSource()
{
    // Every line was answered (or the run ends): what is pending still goes
    // out, then the connection closes.
    if (m_connection)
        m_connection->closeWhenSent();
}

bool TcpStepSource::tokenRequired() const
{
    return m_token && m_token->isSet();
}

bool TcpStepSource::receivesEvents() const
{
    return !tokenRequired() || m_authenticated;
}

qint64 TcpStepSource::heldInputBytes() const
{
    return m_lines.queuedBytes() + m_lines.partialBytes();
}

void TcpStepSource::readAvailable()
{
    if (!m_connection || m_lines.finished())
        return;
    qint64 taken = 0;
    char buffer[kChunk];
    while (hasRoom(m_lines) && taken < kReadPerWake) {
        qint64 got = 0;
        const TcpConnection::Read result = m_connection->read(buffer, sizeof buffer, got);
        if (result == TcpConnection::Read::Data) {
            m_lines.feed(buffer, got);
            taken += got;
            continue;
        }
        if (result == TcpConnection::Read::End)
            m_lines.finish(); // what came before the end still runs
        break;
    }
    updateReading();
    if (taken > 0)
        emit inputRead();
    emit linesAvailable();
}

void TcpStepSource::updateReading()
{
    if (m_connection)
        m_connection->setReading(hasRoom(m_lines));
}

bool TcpStepSource::hasLine()
{
    for (int screened = 0;; ++screened) {
        if (!m_lines.hasLine())
            readAvailable();
        if (!m_lines.hasLine())
            return false;
        if (m_gateOpen)
            return true;
        if (screened == kScreenedPerCall) {
            emit linesAvailable(); // the rest on the next turn
            return false;
        }
        screenFirstStep();
    }
}

void TcpStepSource::screenFirstStep()
{
    Step step;
    QString problem;
    const ParseOutcome outcome = parseStep(m_lines.peekLine(), {}, step, problem);
    if (outcome == ParseOutcome::Skip) {
        m_lines.takeLine();
        return;
    }
    const bool isAuth = outcome == ParseOutcome::Parsed && step.op == QLatin1String("auth");
    if (!tokenRequired()) {
        m_gateOpen = true;
        if (isAuth) {
            m_lines.takeLine();
            JsonLine extra;
            extra.add(QStringLiteral("required"), false);
            m_runner.replyOk(*this, step, extra);
        }
        return; // any other first step runs as usual
    }

    m_lines.takeLine();
    updateReading();
    if (!isAuth) {
        m_runner.replyError(*this, step.line, step.op,
                            QStringLiteral("not authenticated: the first step must be {\"op\": \"auth\", \"token\": TOKEN}"));
        return;
    }
    const QJsonValue token = step.body.value(QLatin1String("token"));
    if (token.isString() && m_token->matches(token.toString())) {
        m_authenticated = true;
        m_gateOpen = true;
        m_authDeadline->stop();
        m_runner.replyOk(*this, step);
        return;
    }
    console::note(QStringLiteral("%1: wrong token; disconnected").arg(name()));
    m_runner.replyError(*this, step.line, step.op, QStringLiteral("wrong token; disconnected"));
    disconnectWith(QByteArray());
}

RawLine TcpStepSource::takeLine()
{
    RawLine line = m_lines.takeLine();
    updateReading();
    return line;
}

bool TcpStepSource::atEnd() const
{
    return m_lines.finished() && !m_lines.hasLine();
}

void TcpStepSource::write(const QByteArray& line)
{
    if (!m_connection)
        return;
    if (m_connection->pendingOutput() > kMaxPendingOutput) {
        console::note(QStringLiteral("%1: client reads too slowly (%2 bytes pending); disconnected")
                          .arg(name())
                          .arg(m_connection->pendingOutput()));
        TcpConnection* connection = m_connection;
        m_connection = nullptr;
        connection->abort(); // what is pending is dropped: the client is not reading
        m_lines.finish();
        m_lines.clearQueued();
        emit linesAvailable();
        return;
    }
    m_connection->write(line);
}

void TcpStepSource::reply(const QByteArray& line)
{
    write(line);
}

void TcpStepSource::send(const QByteArray& line)
{
    if (receivesEvents())
        write(line);
}

void TcpStepSource::refuseInput(const QString& problem)
{
    console::note(QStringLiteral("%1: %2").arg(name(), problem));
    disconnectWith(console::refusalLine(problem));
}

void TcpStepSource::disconnectWith(const QByteArray& line)
{
    m_lines.finish(); // first: a partial line must not become a queued one
    m_lines.clearQueued();
    if (m_authDeadline)
        m_authDeadline->stop();
    if (m_connection) {
        m_connection->write(line);
        m_connection->closeWhenSent();
        m_connection = nullptr;
    }
    emit linesAvailable();
}

void TcpStepSource::close()
{
    m_lines.finish(); // first: a partial line must not become a queued one
    m_lines.clearQueued();
    if (m_authDeadline)
        m_authDeadline->stop();
    if (m_connection) {
        m_connection->closeWhenSent();
        m_connection = nullptr;
    }
}
