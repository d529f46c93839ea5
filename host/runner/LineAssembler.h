// LineAssembler: cuts a byte stream (a show file, standard input, a TCP
// connection) into numbered lines, with a cap on the length of one line.
//
// A line longer than the cap is not kept: its bytes are dropped as they
// arrive and it comes out as a RawLine with tooLong set, so the runner can
// answer it with an error and go on with the next line. Memory per stream is
// thus bounded by the cap plus the queue of finished lines, which the owner
// bounds by reading no more input while queuedBytes() (or queuedLines()) is
// high.
//
// Threading: a value type, used by one thread (the GUI thread).
#pragma once

#include <QByteArray>
#include <deque>

struct RawLine
{
    int number = 0;       ///< 1-based line number within its stream
    QByteArray text;      ///< without the line end ("\n" or "\r\n")
    bool tooLong = false; ///< the line passed the cap; text is empty
};

class LineAssembler
{
public:
    explicit LineAssembler(int maxLineBytes) : m_maxLineBytes(maxLineBytes) {}

    /// Adds bytes from the stream; complete lines are queued.
    void feed(const char* data, qint64 size);
    void feed(const QByteArray& bytes) { feed(bytes.constData(), bytes.size()); }
    /// The stream ended: a last line without a line end is queued too.
    void finish();

    bool hasLine() const { return !m_lines.empty(); }
    RawLine takeLine();
    /// The line takeLine() would return (hasLine() must be true).
    const RawLine& peekLine() const { return m_lines.front(); }
    int queuedLines() const { return static_cast<int>(m_lines.size()); }
    /// Memory held by the queued lines (their buffers' capacity).
    qint64 queuedBytes() const { return m_queuedBytes; }
    /// Memory held by the line being assembled.
    qint64 partialBytes() const { return m_partial.capacity(); }
    /// Drops the lines that were not taken yet.
    void clearQueued()
    {
        m_lines.clear();
        m_queuedBytes = 0;
    }
    bool finished() const { return m_finished; }

private:
    void endLine();

    const int m_maxLineBytes;
    QByteArray m_partial;      // the line being assembled
    bool m_discarding = false; // the current line passed the cap
    int m_lineNumber = 0;      // number of the last line queued
    bool m_finished = false;
    std::deque<RawLine> m_lines;
    qint64 m_queuedBytes = 0;  // sum of the queued lines' capacity
};
