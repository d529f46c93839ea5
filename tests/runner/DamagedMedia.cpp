#include "DamagedMedia.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

namespace runner_test {

namespace {

bool ffmpeg(const QStringList& args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("ffmpeg"),
            QStringList{"-hide_banner", "-loglevel", "error", "-nostdin", "-y"} + args);
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        ADD_FAILURE() << "ffmpeg " << args.join(' ').toStdString() << ": "
                      << p.readAll().toStdString();
        return false;
    }
    return true;
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeAll(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// Repeatable noise: the same damage every run.
QByteArray noise(int size, quint32 seed)
{
    QByteArray out(size, '\0');
    quint32 x = seed;
    for (int i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        out[i] = static_cast<char>((x >> 16) & 0xff);
    }
    return out;
}

QByteArray cutAt(const QByteArray& bytes, double fraction)
{
    return bytes.left(qMax(1, static_cast<int>(bytes.size() * fraction)));
}

QByteArray zeroHead(QByteArray bytes, int count)
{
    for (int i = 0; i < qMin(count, bytes.size()); ++i)
        bytes[i] = '\0';
    return bytes;
}

QByteArray noiseHead(QByteArray bytes, int count, quint32 seed)
{
    bytes.replace(0, qMin(count, bytes.size()), noise(qMin(count, bytes.size()), seed));
    return bytes;
}

QByteArray noiseMiddle(QByteArray bytes, quint32 seed)
{
    const int from = bytes.size() / 4;
    const int to = bytes.size() * 3 / 4;
    bytes.replace(from, to - from, noise(to - from, seed));
    return bytes;
}

const QByteArray kText = QByteArray("This is a text file, not media.\n").repeated(40);

bool makeGoodMedia(const QString& dir)
{
    const QString d = dir + QLatin1Char('/');
    const QStringList tone{"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000", "-t", "2"};
    return ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x90:rate=25", "-f", "lavfi", "-i",
                   "sine=frequency=440:sample_rate=48000", "-t", "2", "-c:v", "libx264", "-preset",
                   "ultrafast", "-g", "25", "-pix_fmt", "yuv420p", "-c:a", "aac", d + "clip.mp4"})
        && ffmpeg({"-i", d + "clip.mp4", "-c", "copy", "-movflags", "+faststart", d + "faststart.mp4"})
        && ffmpeg(tone + QStringList{"-c:a", "aac", d + "sound.m4a"})
        && ffmpeg(tone + QStringList{"-c:a", "aac", "-movflags", "+faststart", d + "soundfs.m4a"})
        && ffmpeg(tone + QStringList{"-c:a", "libmp3lame", d + "sound.mp3"})
        && ffmpeg(tone + QStringList{d + "sound.wav"})
        && ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x90:rate=1", "-frames:v", "1", d + "still.png"})
        && ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x90:rate=1", "-frames:v", "1", d + "still.jpg"});
}

} // namespace

QString makeSentinelClip(const QString& dir)
{
    const QString path = dir + QStringLiteral("/sentinel.mp4");
    if (!ffmpeg({"-f", "lavfi", "-i", "testsrc=size=96x54:rate=10", "-t", "40", "-c:v", "libx264",
                 "-preset", "ultrafast", "-g", "10", "-pix_fmt", "yuv420p", path}))
        return QString();
    return path;
}

QList<DamagedFile> makeDamagedMedia(const QString& dir)
{
    const QString good = dir + QStringLiteral("/good");
    const QString bad = dir + QStringLiteral("/damaged");
    QDir().mkpath(good);
    QDir().mkpath(bad);
    if (!makeGoodMedia(good))
        return {};
    auto g = [&](const char* name) { return readAll(good + QLatin1Char('/') + QLatin1String(name)); };
    const QByteArray clip = g("clip.mp4"), fast = g("faststart.mp4"), m4a = g("sound.m4a"),
                     m4aFast = g("soundfs.m4a"), mp3 = g("sound.mp3"), wav = g("sound.wav"),
                     png = g("still.png"), jpg = g("still.jpg");

    QList<DamagedFile> files;
    bool ok = true;
    auto file = [&](const char* name, const char* type, bool mustFail, const QByteArray& bytes) {
        const QString path = bad + QLatin1Char('/') + QLatin1String(name);
        ok = ok && writeAll(path, bytes);
        files.append({path, QLatin1String(type), mustFail});
    };
    auto directory = [&](const char* name, const char* type) {
        const QString path = bad + QLatin1Char('/') + QLatin1String(name);
        ok = ok && QDir().mkpath(path);
        files.append({path, QLatin1String(type), true});
    };
    const bool Fail = true, Either = false;

    // Video layers.
    file("v-cut-1pct.mp4", "video", Fail, cutAt(clip, 0.01));
    file("v-cut-50pct.mp4", "video", Fail, cutAt(clip, 0.5));
    file("v-cut-90pct.mp4", "video", Fail, cutAt(clip, 0.9));
    file("v-index-first-cut-in-index.mp4", "video", Fail, fast.left(300));
    file("v-index-first-cut-50pct.mp4", "video", Either, cutAt(fast, 0.5));
    file("v-index-first-zero-head.mp4", "video", Fail, zeroHead(fast, 64));
    file("v-zero-head-4k.mp4", "video", Either, zeroHead(clip, 4096));
    file("v-noise-middle.mp4", "video", Either, noiseMiddle(clip, 7));
    file("v-noise-head-1k.mp4", "video", Either, noiseHead(clip, 1024, 11));
    file("v-empty.mp4", "video", Fail, QByteArray());
    directory("v-directory.mp4", "video");
    file("v-random.mp4", "video", Fail, noise(65536, 3));
    file("v-text.mp4", "video", Fail, kText);
    file("v-picture-named.mp4", "video", Either, png);
    // Audio layers.
    file("a-empty.m4a", "audio", Fail, QByteArray());
    directory("a-directory.mp3", "audio");
    file("a-random.m4a", "audio", Fail, noise(32768, 5));
    file("a-random.wav", "audio", Fail, noise(32768, 9));
    file("a-text.mp3", "audio", Fail, kText);
    file("a-m4a-cut-50pct.m4a", "audio", Fail, cutAt(m4a, 0.5));
    file("a-m4a-index-first-cut-50pct.m4a", "audio", Either, cutAt(m4aFast, 0.5));
    file("a-wav-cut-50pct.wav", "audio", Either, cutAt(wav, 0.5));
    file("a-wav-zero-head.wav", "audio", Either, zeroHead(wav, 44));
    file("a-mp3-cut-50pct.mp3", "audio", Either, cutAt(mp3, 0.5));
    file("a-mp3-zero-head.mp3", "audio", Either, zeroHead(mp3, 512));
    files.append({bad + QStringLiteral("/a-missing.mp3"), QStringLiteral("audio"), true});
    // Picture layers.
    file("p-empty.png", "picture", Fail, QByteArray());
    directory("p-directory.png", "picture");
    directory("p-directory.jpg", "picture");
    file("p-random.png", "picture", Fail, noise(8192, 13));
    file("p-random.jpg", "picture", Fail, noise(8192, 17));
    file("p-text.png", "picture", Fail, kText);
    file("p-text.jpg", "picture", Fail, kText);
    file("p-png-cut-50pct.png", "picture", Either, cutAt(png, 0.5));
    file("p-png-cut-in-header.png", "picture", Fail, png.left(20));
    file("p-png-zero-signature.png", "picture", Fail, zeroHead(png, 16));
    file("p-jpg-cut-50pct.jpg", "picture", Either, cutAt(jpg, 0.5));
    file("p-jpg-zero-head.jpg", "picture", Either, zeroHead(jpg, 16));
    file("p-jpg-noise-middle.jpg", "picture", Either, noiseMiddle(jpg, 19));
    file("p-video-named.png", "picture", Either, clip);
    if (!ok) {
        ADD_FAILURE() << "could not write the damaged media in " << bad.toStdString();
        return {};
    }
    return files;
}

} // namespace runner_test
