#include "Console.h"

#include "JsonLine.h"

#include <QElapsedTimer>
#include <cstdio>

namespace console {
namespace {

QElapsedTimer& clock()
{
    static QElapsedTimer timer; // started by startClock(), GUI thread
    return timer;
}

} // namespace

void startClock()
{
    clock().start();
}

qint64 msSinceStart()
{
    return clock().isValid() ? clock().elapsed() : 0;
}

void writeLine(const QByteArray& line)
{
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fflush(stdout);
}

void note(const QString& text)
{
    std::fprintf(stderr, "kelmor-show: %s\n", text.toLocal8Bit().constData());
    std::fflush(stderr);
}

QByteArray refusalLine(const QString& problem)
{
    JsonLine line;
    line.add(QStringLiteral("t"), static_cast<double>(msSinceStart()));
    line.add(QStringLiteral("error"), problem);
    return line.toLine();
}

} // namespace console
