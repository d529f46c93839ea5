// Shared by the timecode tests of the runner: LTC files made with the
// project's LTC maker (libltc's encoder), the clip the layers chase, shows
// that chase it, and the chase error read back from a run's lines.
//
// The chase error of a position event is the layer's position minus the
// timecode at the event's "t" minus "at". The timecode at any "t" comes from
// the runner's own timecode lines: each gives "tcMs" at its "t", and between
// lines the timecode runs at normal speed.
#pragma once

#include "RunnerHarness.h"
#include "ShowText.h"

#include "LtcFileMaker.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace timecode_test {

/// Writes the segments (LtcFileMaker.h) as a WAV file in `dir`; its path.
inline QString makeLtc(const QString& dir, const QString& name, const std::vector<std::string>& segments)
{
    ltcfile::Plan plan;
    for (const std::string& text : segments) {
        ltcfile::Segment s;
        std::string error;
        if (!ltcfile::parseSegment(text, s, error)) {
            ADD_FAILURE() << text << ": " << error;
            return QString();
        }
        plan.segments.push_back(s);
    }
    const QString path = dir + QLatin1Char('/') + name;
    std::string error;
    if (!ltcfile::writeWav(plan, path.toStdString(), error)) {
        ADD_FAILURE() << error;
        return QString();
    }
    return path;
}

/// A 40 s clip (320x180, 25 fps, a key frame every second, no sound) made
/// once with ffmpeg next to the runner's media; empty (and a failure) when
/// ffmpeg fails.
inline QString chaseClip()
{
    const QString dir = QStringLiteral(KELMOR_RUNNER_MEDIA_DIR);
    const QString target = dir + QStringLiteral("/chase-40s.mp4");
    if (QFileInfo::exists(target))
        return target;
    QDir().mkpath(dir);
    const QString tmp = target + QStringLiteral(".%1.part.mp4").arg(QCoreApplication::applicationPid());
    QProcess p;
    p.start(QStringLiteral("ffmpeg"),
            {"-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25", "-t", "40",
             "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-g", "25", tmp});
    if (!p.waitForFinished(120000) || p.exitCode() != 0) {
        ADD_FAILURE() << "ffmpeg failed: " << p.readAllStandardError().toStdString();
        return QString();
    }
    QFile::remove(target);
    QFile::rename(tmp, target);
    return target;
}

/// A small screen with the clip (or `path` of `type`) on layer (1, layer).
inline QString chasedLayer(int layer, const QString& path, const QString& type = QStringLiteral("video"),
                           int lengthMs = 40000)
{
    using namespace runner_test;
    return createLayer(1, layer, path, type, lengthMs)
        + addRenderer(1, layer, 1, 0, 0, 160, 90, 320, 180);
}

inline QString chaseStep(int layer, const QString& at)
{
    return QStringLiteral("{\"op\": \"chase\", \"layer\": %1, \"at\": \"%2\"}\n")
        .arg(runner_test::layerRef(1, layer), at);
}

/// "HH:MM:SS:FF" at `fps` nominal frames per second (non-drop) in ms.
inline double labelMs(const QString& label, double frameMs)
{
    const QStringList p = QString(label).replace(QLatin1Char(';'), QLatin1Char(':')).split(QLatin1Char(':'));
    return ((p[0].toInt() * 60 + p[1].toInt()) * 60 + p[2].toInt()) * 1000.0 + p[3].toInt() * frameMs;
}

struct TcLine
{
    double t = 0;
    double tcMs = 0;
    bool running = false;
    QString change;
    QString tc;
    double fps = 0;
};

inline std::vector<TcLine> timecodeLines(const QList<QJsonObject>& lines)
{
    std::vector<TcLine> out;
    for (const QJsonObject& o : lines) {
        if (o.value(QStringLiteral("host")).toString() != QLatin1String("timecode"))
            continue;
        out.push_back({o.value(QStringLiteral("t")).toDouble(), o.value(QStringLiteral("tcMs")).toDouble(),
                       o.value(QStringLiteral("running")).toBool(), o.value(QStringLiteral("change")).toString(),
                       o.value(QStringLiteral("tc")).toString(), o.value(QStringLiteral("fps")).toDouble()});
    }
    return out;
}

inline QStringList changes(const std::vector<TcLine>& tc)
{
    QStringList out;
    for (const TcLine& l : tc) {
        if (!l.change.isEmpty())
            out << l.change;
    }
    return out;
}

/// One position event of a chased layer, with the timecode at its "t".
struct ChaseSample
{
    double t = 0;        ///< the event's "t"
    double mediaMs = 0;  ///< the timecode then, minus "at"
    double position = 0;
    double error() const { return position - mediaMs; }
};

/// The layer's position events while the timecode runs, each with the
/// timecode minus `atMs` at its "t".
inline std::vector<ChaseSample> chaseSamples(const QList<QJsonObject>& lines, int layer, double atMs)
{
    std::vector<ChaseSample> out;
    const TcLine* ref = nullptr;
    std::vector<TcLine> tc = timecodeLines(lines);
    size_t next = 0;
    for (const QJsonObject& o : lines) {
        const double t = o.value(QStringLiteral("t")).toDouble();
        while (next < tc.size() && tc[next].t <= t)
            ref = &tc[next++];
        if (o.value(QStringLiteral("event")).toString() != QLatin1String("sPositionChanged")
            || o.value(QStringLiteral("layerId")).toInt() != layer || !ref || !ref->running)
            continue;
        out.push_back({t, ref->tcMs + (t - ref->t) - atMs, o.value(QStringLiteral("position")).toDouble()});
    }
    return out;
}

/// The fraction of samples in [fromMs, toMs) of media time whose error is
/// within `limitMs`; `count` gets how many there were.
inline double withinShare(const std::vector<ChaseSample>& samples, double fromMs, double toMs, double limitMs,
                          int& count)
{
    count = 0;
    int within = 0;
    for (const ChaseSample& s : samples) {
        if (s.mediaMs < fromMs || s.mediaMs >= toMs)
            continue;
        ++count;
        if (std::fabs(s.error()) <= limitMs)
            ++within;
    }
    return count ? static_cast<double>(within) / count : 0.0;
}

inline std::string describe(const std::vector<ChaseSample>& samples)
{
    std::string out;
    for (const ChaseSample& s : samples)
        out += "(" + std::to_string(static_cast<int>(s.mediaMs)) + ": " + std::to_string(static_cast<int>(s.error())) + ") ";
    return out;
}

} // namespace timecode_test
