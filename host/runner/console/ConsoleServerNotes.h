// Notes on stderr from civetweb's threads, shared by the console server's
// files (ConsoleServer*.cpp); not for use elsewhere.
//
// Threading: any thread (stdio locks the stream).
#pragma once

#include <QString>

#include <atomic>
#include <cstdio>

namespace console_server {

/// Refusals are noted on stderr, the first few and then one in a thousand,
/// so that a flood of bad requests cannot flood the log.
inline bool shouldNote()
{
    static std::atomic<long> refusals{0};
    const long n = ++refusals;
    return n <= 20 || n % 1000 == 0;
}

inline void noteFromAnyThread(const QString& text)
{
    // stdio locks the stream: safe from civetweb's threads.
    std::fprintf(stderr, "kelmor-show: console: %s\n", text.toLocal8Bit().constData());
    std::fflush(stderr);
}

} // namespace console_server
