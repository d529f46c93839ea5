#include "EngineMedia.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QDebug>
#include <functional>
#include <mutex>

namespace EngineMedia {

namespace {

QString dir()
{
    return QStringLiteral(KELMOR_ENGINE_MEDIA_DIR);
}

QString path(const char* name)
{
    return dir() + QLatin1Char('/') + QLatin1String(name);
}

// Writes `name` with `make(tmp)` unless it is there; the file appears under
// its name only when complete, so parallel test processes never see half of it.
bool makeOnce(const char* name, const std::function<bool(const QString&)>& make)
{
    const QString target = path(name);
    if (QFileInfo::exists(target))
        return true;
    const QString tmp = target + QStringLiteral(".%1.part").arg(QCoreApplication::applicationPid());
    QFile::remove(tmp);
    if (!make(tmp)) {
        QFile::remove(tmp);
        return false;
    }
    QFile::remove(target);
    return QFile::rename(tmp, target) || QFileInfo::exists(target);
}

bool ffmpeg(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), QStringList{"-v", "error", "-y"} + args);
    if (!p.waitForFinished(60000) || p.exitCode() != 0) {
        qDebug() << "ffmpeg failed:" << args << p.readAllStandardError();
        return false;
    }
    return true;
}

bool writeBytes(const QString& to, const QByteArray& bytes)
{
    QFile f(to);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QByteArray readAll(const QString& from)
{
    QFile f(from);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool makeAll()
{
    QDir().mkpath(dir());
    bool ok = makeOnce("clip.mp4", [](const QString& to) {
        return ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x90:rate=25",
                       "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000",
                       "-t", "2", "-ac", "2", "-c:v", "libx264", "-pix_fmt", "yuv420p",
                       "-g", "25", "-c:a", "aac", "-f", "mp4", to});
    });
    ok = ok && makeOnce("picture.png", [](const QString& to) {
        return ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x90:rate=1", "-frames:v", "1",
                       "-f", "image2", "-c:v", "png", to});
    });
    const QByteArray clipBytes = readAll(clip());
    ok = ok && !clipBytes.isEmpty();
    ok = ok && makeOnce("truncated.mp4", [&](const QString& to) {
        return writeBytes(to, clipBytes.left(clipBytes.size() / 3));
    });
    ok = ok && makeOnce("corrupted.mp4", [&](const QString& to) {
        QByteArray bytes = clipBytes;
        for (int i = bytes.size() / 4; i < bytes.size() * 3 / 4; ++i)
            bytes[i] = static_cast<char>((i * 7919) & 0xff);
        return writeBytes(to, bytes);
    });
    ok = ok && makeOnce("text.mp4", [](const QString& to) {
        return writeBytes(to, QByteArray("This is a text file, not a video.\n").repeated(40));
    });
    ok = ok && makeOnce("unreadable.mp4", [&](const QString& to) {
        return writeBytes(to, clipBytes) && QFile::setPermissions(to, QFileDevice::Permissions());
    });
    return ok;
}

} // namespace

bool ready()
{
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] { ok = makeAll(); });
    return ok;
}

QString clip() { return path("clip.mp4"); }
QString picture() { return path("picture.png"); }
QString truncatedClip() { return path("truncated.mp4"); }
QString corruptedClip() { return path("corrupted.mp4"); }
QString textAsMp4() { return path("text.mp4"); }
QString unreadableClip() { return path("unreadable.mp4"); }
QString missingFile() { return path("no-such-file.mp4"); }
QString unreachableUrl() { return QStringLiteral("http://127.0.0.1:9/none.mp4"); }

} // namespace EngineMedia
