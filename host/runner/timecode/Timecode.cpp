#include "timecode/Timecode.h"

#include <QRegularExpression>

namespace timecode {

namespace {

// Drop-frame bookkeeping at 30 nominal frames per second: two labels are
// left out in nine minutes of every ten.
constexpr qint64 kDropFramesPerMinute = 30 * 60 - 2;        // 1798
constexpr qint64 kDropFramesPer10Minutes = 30 * 600 - 18;   // 17982

} // namespace

int nominalFps(Rate rate)
{
    switch (rate) {
    case Rate::Fps24: return 24;
    case Rate::Fps25: return 25;
    case Rate::Fps2997Drop:
    case Rate::Fps30: return 30;
    }
    return 25;
}

bool isDropFrame(Rate rate)
{
    return rate == Rate::Fps2997Drop;
}

double realFps(Rate rate)
{
    return rate == Rate::Fps2997Drop ? 30000.0 / 1001.0 : static_cast<double>(nominalFps(rate));
}

double frameNs(Rate rate)
{
    return 1e9 / realFps(rate);
}

double printedFps(Rate rate)
{
    return rate == Rate::Fps2997Drop ? 29.97 : static_cast<double>(nominalFps(rate));
}

qint64 framesPerDay(Rate rate)
{
    if (isDropFrame(rate))
        return kDropFramesPer10Minutes * 6 * 24;
    return static_cast<qint64>(nominalFps(rate)) * 86400;
}

bool isValid(const Label& l, Rate rate)
{
    if (l.hours < 0 || l.hours > 23 || l.minutes < 0 || l.minutes > 59 || l.seconds < 0
        || l.seconds > 59 || l.frames < 0 || l.frames >= nominalFps(rate))
        return false;
    // Drop-frame: frames 0 and 1 of second 0 exist only in every tenth minute.
    if (isDropFrame(rate) && l.seconds == 0 && l.frames < 2 && l.minutes % 10 != 0)
        return false;
    return true;
}

qint64 toCount(const Label& l, Rate rate)
{
    if (!isValid(l, rate))
        return -1;
    const qint64 fps = nominalFps(rate);
    const qint64 totalMinutes = 60 * l.hours + l.minutes;
    qint64 count = ((totalMinutes * 60) + l.seconds) * fps + l.frames;
    if (isDropFrame(rate))
        count -= 2 * (totalMinutes - totalMinutes / 10);
    return count;
}

Label fromCount(qint64 count, Rate rate)
{
    const qint64 perDay = framesPerDay(rate);
    count %= perDay;
    if (count < 0)
        count += perDay;
    const qint64 fps = nominalFps(rate);
    if (isDropFrame(rate)) {
        // Put the left-out labels back, then read the label as non-drop.
        const qint64 tens = count / kDropFramesPer10Minutes;
        const qint64 rest = count % kDropFramesPer10Minutes;
        count += 18 * tens;
        if (rest > 1)
            count += 2 * ((rest - 2) / kDropFramesPerMinute);
    }
    Label l;
    l.frames = static_cast<int>(count % fps);
    l.seconds = static_cast<int>((count / fps) % 60);
    l.minutes = static_cast<int>((count / (fps * 60)) % 60);
    l.hours = static_cast<int>((count / (fps * 3600)) % 24);
    return l;
}

qint64 nextCount(qint64 count, Rate rate)
{
    return (count + 1) % framesPerDay(rate);
}

double countToNs(qint64 count, Rate rate)
{
    return static_cast<double>(count) * frameNs(rate);
}

QString format(const Label& l, Rate rate)
{
    return QStringLiteral("%1:%2:%3%4%5")
        .arg(l.hours, 2, 10, QLatin1Char('0'))
        .arg(l.minutes, 2, 10, QLatin1Char('0'))
        .arg(l.seconds, 2, 10, QLatin1Char('0'))
        .arg(isDropFrame(rate) ? QLatin1Char(';') : QLatin1Char(':'))
        .arg(l.frames, 2, 10, QLatin1Char('0'));
}

bool parse(const QString& text, Label& label, QString& problem)
{
    static const QRegularExpression kLabel(
        QStringLiteral("^([0-9]{2}):([0-9]{2}):([0-9]{2})[:;.]([0-9]{2})$"));
    const QRegularExpressionMatch m = kLabel.match(text);
    if (!m.hasMatch()) {
        problem = QStringLiteral("expected a timecode HH:MM:SS:FF, got \"%1\"").arg(text.left(40));
        return false;
    }
    Label l;
    l.hours = m.captured(1).toInt();
    l.minutes = m.captured(2).toInt();
    l.seconds = m.captured(3).toInt();
    l.frames = m.captured(4).toInt();
    if (l.hours > 23 || l.minutes > 59 || l.seconds > 59 || l.frames > 29) {
        problem = QStringLiteral("timecode %1 out of range (hours < 24, minutes and seconds < 60, frames < 30)")
                      .arg(text);
        return false;
    }
    label = l;
    return true;
}

} // namespace timecode
