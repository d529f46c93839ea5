#include "osc/OscStepSource.h"

OscStepSource::OscStepSource(const OscPeer& peer, OscSocket* socket, QObject* parent)
    : StepSource(QStringLiteral("osc %1").arg(peer.text()), false, parent), m_peer(peer), m_socket(socket)
{
}

bool OscStepSource::hasRoomFor(int count, qint64 bytes) const
{
    return !m_closed && int(m_lines.size()) + count <= kMaxLines && m_bytes + bytes <= kMaxBytes;
}

void OscStepSource::push(const QByteArray& text)
{
    if (m_closed)
        return;
    RawLine line;
    line.number = ++m_lineNumber;
    line.text = text;
    m_bytes += text.size();
    m_lines.push_back(line);
    emit linesAvailable();
}

bool OscStepSource::hasLine()
{
    return !m_lines.empty();
}

RawLine OscStepSource::takeLine()
{
    if (m_lines.empty())
        return RawLine();
    RawLine line = m_lines.front();
    m_lines.pop_front();
    m_bytes -= line.text.size();
    return line;
}

bool OscStepSource::atEnd() const
{
    return m_closed && m_lines.empty();
}

void OscStepSource::reply(const QByteArray& line)
{
    if (m_socket)
        m_socket->sendLine(m_peer, QByteArrayLiteral("/kelmor/reply"), line);
}

void OscStepSource::close()
{
    m_closed = true;
    m_lines.clear();
    m_bytes = 0;
    emit linesAvailable(); // the runner retires the source
}
