// StepSource: where show steps come from — the show file, standard input or
// one live-control connection. Each source is a queue of its own: a "wait"
// or "waitFor" suspends only its source, and the runner answers each step on
// the source it came from.
//
// Input is pulled: the runner asks hasLine() when it can run a step, and a
// source reads more input only while its queue is short (fewer than
// kHighWater lines and fewer than kMaxQueuedBytes bytes), so a flood of input
// waits in the pipe or socket instead of in memory: a source holds at most
// about 4 MiB of whole lines plus the line being read (at most 1 MiB).
//
// Threading: GUI thread. Ownership: the runner owns its sources (parent).
#pragma once

#include "LineAssembler.h"

#include <QFile>
#include <QObject>
#include <QString>

class QSocketNotifier;

class StepSource : public QObject
{
    Q_OBJECT
public:
    /// `primary`: the show itself (file or stdin); its end ends the run and
    /// --strict applies to its errors.
    StepSource(QString name, bool primary, QObject* parent = nullptr);

    const QString& name() const { return m_name; }
    bool isPrimary() const { return m_primary; }

    /// Whether a line is ready (may read more input first).
    virtual bool hasLine() = 0;
    virtual RawLine takeLine() = 0;
    /// The input has ended and every line was taken.
    virtual bool atEnd() const = 0;
    /// Writes an ok/error line to this source's reader.
    virtual void reply(const QByteArray& line) = 0;
    /// Stops reading: the lines not yet taken are dropped (shutdown).
    virtual void close() = 0;

    // Runner bookkeeping (GUI thread).
    bool suspended = false; ///< a wait or waitFor holds this source
    qint64 eventCursor = 0; ///< waitFor looks at events from this seq on
    int stepsRun = 0;       ///< steps taken (comments and blank lines not counted)
    int totalSteps = -1;    ///< known for a show file; -1 otherwise
    /// Not empty: replies carry "source": replyTag (several sources answer
    /// on stdout).
    QString replyTag;

    static constexpr int kMaxLineBytes = 1 << 20;           ///< 1 MiB: longer lines are errors
    static constexpr int kHighWater = 256;                  ///< read no more input beyond this many lines
    static constexpr qint64 kMaxQueuedBytes = 4 * (1 << 20); ///< ... or beyond this many bytes of lines

signals:
    /// New input arrived: the runner should look again.
    void linesAvailable();

protected:
    /// Whether a source with this queue may read more input.
    static bool hasRoom(const LineAssembler& lines)
    {
        return !lines.finished() && lines.queuedLines() < kHighWater && lines.queuedBytes() < kMaxQueuedBytes;
    }

private:
    const QString m_name;
    const bool m_primary;
};

/// The show file, read in chunks as the show advances.
class FileStepSource : public StepSource
{
    Q_OBJECT
public:
    FileStepSource(const QString& path, QObject* parent = nullptr);
    /// false (and `error`) when the file cannot be opened.
    bool open(QString& error);

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

private:
    QFile m_file;
    LineAssembler m_lines{kMaxLineBytes};
};

/// Standard input, read when the GUI thread's event loop sees it readable.
class StdinStepSource : public StepSource
{
    Q_OBJECT
public:
    /// `tagReplies`: add "source": "stdin" to replies (a show file answers on
    /// stdout too).
    StdinStepSource(bool tagReplies, QObject* parent = nullptr);

    bool hasLine() override;
    RawLine takeLine() override;
    bool atEnd() const override;
    void reply(const QByteArray& line) override;
    void close() override;

private:
    void readAvailable();

    LineAssembler m_lines{kMaxLineBytes};
    QSocketNotifier* m_notifier = nullptr; // child; disabled while the queue is full (hasRoom)
};
