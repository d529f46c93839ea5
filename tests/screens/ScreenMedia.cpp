#include "ScreenMedia.h"

#include <QDir>
#include <QFileInfo>
#include <QLockFile>
#include <QProcess>
#include <QStringList>

namespace ScreenMedia {

namespace {

QString dir()
{
    const QString path = QStringLiteral(KELMOR_SCREEN_MEDIA_DIR);
    QDir().mkpath(path);
    return path;
}

// Makes `name` with ffmpeg unless it exists; another test process making it
// at the same time is waited for through a lock file.
QString make(const QString& name, const QStringList& args)
{
    const QString path = dir() + QLatin1Char('/') + name;
    QLockFile lock(path + QStringLiteral(".lock"));
    lock.lock();
    if (QFileInfo(path).size() > 0)
        return path;
    const QString partial = path + QStringLiteral(".part") + QFileInfo(path).suffix().prepend('.');
    QProcess ffmpeg;
    QStringList all{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-y")};
    all << args << partial;
    ffmpeg.start(QStringLiteral("ffmpeg"), all);
    if (!ffmpeg.waitForFinished(120000) || ffmpeg.exitCode() != 0)
        return QString();
    QFile::remove(path);
    QFile::rename(partial, path);
    return path;
}

const char* kQuadrants =
    "color=c=red:s=160x90:r=25[a];color=c=lime:s=160x90:r=25[b];"
    "color=c=blue:s=160x90:r=25[c];color=c=white:s=160x90:r=25[d];"
    "[a][b]hstack[top];[c][d]hstack[bottom];[top][bottom]vstack";

} // namespace

QString quadrantClip()
{
    return make(QStringLiteral("quadrants.mp4"),
                {QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QString::fromLatin1(kQuadrants)
                     + QStringLiteral(",format=rgb24,scale=out_color_matrix=bt709:out_range=tv,format=yuv420p,"
                                      "setparams=colorspace=bt709:color_primaries=bt709:"
                                      "color_trc=bt709:range=tv"),
                 QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QStringLiteral("sine=frequency=440:sample_rate=48000"), QStringLiteral("-t"),
                 QStringLiteral("2"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
                 QStringLiteral("-preset"), QStringLiteral("veryfast"), QStringLiteral("-qp"),
                 QStringLiteral("0"), QStringLiteral("-colorspace"), QStringLiteral("bt709"),
                 QStringLiteral("-color_primaries"), QStringLiteral("bt709"),
                 QStringLiteral("-color_trc"), QStringLiteral("bt709"),
                 QStringLiteral("-color_range"), QStringLiteral("tv"), QStringLiteral("-c:a"),
                 QStringLiteral("aac"), QStringLiteral("-shortest")});
}

QString movingClip()
{
    return make(QStringLiteral("moving-20s.mp4"),
                {QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QStringLiteral("testsrc2=size=320x180:rate=25:duration=20"), QStringLiteral("-f"),
                 QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QStringLiteral("sine=frequency=440:sample_rate=48000:duration=20"),
                 QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
                 QStringLiteral("ultrafast"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"),
                 QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-shortest")});
}

QString redThenGreenClip()
{
    return make(QStringLiteral("red-then-green.mp4"),
                {QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QStringLiteral("color=c=red:s=320x180:r=25:d=2.5"), QStringLiteral("-f"),
                 QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QStringLiteral("color=c=lime:s=320x180:r=25:d=1.5"), QStringLiteral("-filter_complex"),
                 QStringLiteral("[0:v][1:v]concat=n=2:v=1:a=0,format=yuv420p"),
                 QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
                 QStringLiteral("ultrafast"), QStringLiteral("-g"), QStringLiteral("250")});
}

QString quadrantPicture()
{
    return make(QStringLiteral("quadrants.png"),
                {QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                 QString::fromLatin1(kQuadrants), QStringLiteral("-frames:v"), QStringLiteral("1")});
}

} // namespace ScreenMedia
