// The runner's clock and its two output streams.
//
// stdout carries JSON lines only (events, step replies, host lines), each
// flushed at once so that a controller reading a pipe sees it immediately.
// stderr carries the module's debug lines (Qt's default handler) and the
// runner's own notes, prefixed "kelmor-show: ".
//
// Threading: GUI thread (stdio's own locking makes a stray call from another
// thread safe, but nothing does that).
#pragma once

#include <QByteArray>
#include <QString>

namespace console {

/// Starts the clock; call once, first thing in main.
void startClock();
/// Milliseconds since startClock().
qint64 msSinceStart();
/// Writes one JSON line (ending in '\n') to stdout and flushes.
void writeLine(const QByteArray& line);
/// "kelmor-show: <text>" on stderr.
void note(const QString& text);
/// {"t", "error": problem} as one line: a refusal that answers no step (a
/// connection turned away or closed), for the client it concerns.
QByteArray refusalLine(const QString& problem);

} // namespace console
