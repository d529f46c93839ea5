#include "LineAssembler.h"

#include <cstring>

void LineAssembler::feed(const char* data, qint64 size)
{
    if (m_finished)
        return;
    const char* end = data + size;
    while (data < end) {
        const char* newline = static_cast<const char*>(std::memchr(data, '\n', end - data));
        const char* stop = newline ? newline : end;
        if (!m_discarding) {
            const qint64 room = m_maxLineBytes - m_partial.size();
            if (stop - data > room) {
                // Over the cap: forget what we have and skip to the line end.
                m_partial.clear();
                m_partial.squeeze();
                m_discarding = true;
            } else {
                m_partial.append(data, static_cast<int>(stop - data));
            }
        }
        if (!newline)
            return;
        endLine();
        data = newline + 1;
    }
}

void LineAssembler::finish()
{
    if (m_finished)
        return;
    if (!m_partial.isEmpty() || m_discarding)
        endLine();
    m_finished = true;
}

void LineAssembler::endLine()
{
    RawLine line;
    line.number = ++m_lineNumber;
    line.tooLong = m_discarding;
    if (!m_discarding) {
        if (m_partial.endsWith('\r'))
            m_partial.chop(1);
        line.text = m_partial;
    }
    m_partial.clear();
    m_discarding = false;
    m_queuedBytes += line.text.capacity();
    m_lines.push_back(std::move(line));
}

RawLine LineAssembler::takeLine()
{
    RawLine line = std::move(m_lines.front());
    m_lines.pop_front();
    m_queuedBytes -= line.text.capacity();
    return line;
}
