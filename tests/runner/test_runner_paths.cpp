// Where a show may write and what it may open: snapshots and recordings stay
// inside --out (no absolute paths elsewhere, no "..", no symbolic links, no
// overwriting without "overwrite": true), and with --media-root the layers'
// media must be local files inside a root.
#include "RunnerHarness.h"
#include "ShowText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <gtest/gtest.h>

using namespace runner_test;

namespace {

const QByteArray kPrecious("precious text, not a picture\n");

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString snapshotStep(const QString& path, const QString& more = QString())
{
    return QStringLiteral("{\"op\": \"snapshot\", \"screen\": 1, \"path\": \"%1\"%2}\n").arg(path, more);
}

QString recordStep(const QString& path, const QString& more = QString(), int screen = 1)
{
    return QStringLiteral("{\"op\": \"record\", \"screen\": %3, \"path\": \"%1\", \"ms\": 300%2}\n")
        .arg(path, more)
        .arg(screen);
}

QString errorOf(const ShowRun& run, int line)
{
    return run.replyTo(line).value(QStringLiteral("error")).toString();
}

bool isOk(const ShowRun& run, int line)
{
    return run.replyTo(line).contains(QLatin1String("ok"));
}

} // namespace

TEST(RunnerPaths, SnapshotToAnAbsolutePathOutsideOutIsRefused)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-absolute"));
    const QString elsewhere = freshWorkDir(QStringLiteral("paths-absolute-elsewhere"));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36)
                                         + snapshotStep(elsewhere + QStringLiteral("/shot.png"))
                                         + recordStep(elsewhere + QStringLiteral("/rec.mkv")));
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(errorOf(run, 2).contains(QLatin1String("outside the output directory")))
        << errorOf(run, 2).toStdString();
    EXPECT_TRUE(errorOf(run, 3).contains(QLatin1String("outside the output directory")))
        << errorOf(run, 3).toStdString();
    EXPECT_FALSE(QFileInfo::exists(elsewhere + QStringLiteral("/shot.png")));
    EXPECT_FALSE(QFileInfo::exists(elsewhere + QStringLiteral("/rec.mkv")));
}

TEST(RunnerPaths, AbsolutePathInsideOutIsWritten)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-absolute-inside"));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36) + snapshotStep(dir + QStringLiteral("/in.png")));
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(isOk(run, 2)) << errorOf(run, 2).toStdString();
    EXPECT_EQ(QImage(dir + QStringLiteral("/in.png")).size(), QSize(64, 36));
}

TEST(RunnerPaths, DotDotOutOfOutIsRefused)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-dotdot"));
    const QString escaped = QFileInfo(dir).absolutePath() + QStringLiteral("/paths-dotdot-escaped.png");
    const QString escapedRecording = QFileInfo(dir).absolutePath() + QStringLiteral("/paths-dotdot-escaped.mkv");
    QFile::remove(escaped);
    QFile::remove(escapedRecording);
    const ShowRun run = runShow(dir, openScreen(1, 64, 36)
                                         + snapshotStep(QStringLiteral("../paths-dotdot-escaped.png"))
                                         + snapshotStep(QStringLiteral("sub/../../paths-dotdot-escaped.png"))
                                         + recordStep(QStringLiteral("../paths-dotdot-escaped.mkv")));
    ASSERT_TRUE(run.finished);
    for (int line = 2; line <= 4; ++line)
        EXPECT_TRUE(errorOf(run, line).contains(QLatin1String("outside the output directory")))
            << "line " << line << ": " << errorOf(run, line).toStdString();
    EXPECT_FALSE(QFileInfo::exists(escaped));
    EXPECT_FALSE(QFileInfo::exists(escapedRecording));
}

TEST(RunnerPaths, SymbolicLinksOutOfOutAreNotFollowed)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-symlink"));
    const QString elsewhere = freshWorkDir(QStringLiteral("paths-symlink-elsewhere"));
    ASSERT_TRUE(writeFile(elsewhere + QStringLiteral("/victim.txt"), kPrecious));
    ASSERT_TRUE(QFile::link(elsewhere, dir + QStringLiteral("/away")));
    ASSERT_TRUE(QFile::link(elsewhere + QStringLiteral("/victim.txt"), dir + QStringLiteral("/victim.png")));
    const ShowRun run = runShow(
        dir, openScreen(1, 64, 36) + snapshotStep(QStringLiteral("away/shot.png"))
                 + snapshotStep(QStringLiteral("victim.png"), QStringLiteral(", \"overwrite\": true"))
                 + recordStep(QStringLiteral("away/rec.mkv"))
                 + recordStep(QStringLiteral("victim.png"), QStringLiteral(", \"overwrite\": true")));
    ASSERT_TRUE(run.finished);
    for (int line = 2; line <= 5; ++line)
        EXPECT_TRUE(errorOf(run, line).contains(QLatin1String("symbolic link")))
            << "line " << line << ": " << errorOf(run, line).toStdString();
    EXPECT_FALSE(QFileInfo::exists(elsewhere + QStringLiteral("/shot.png")));
    EXPECT_FALSE(QFileInfo::exists(elsewhere + QStringLiteral("/rec.mkv")));
    EXPECT_EQ(readFile(elsewhere + QStringLiteral("/victim.txt")), kPrecious);
}

TEST(RunnerPaths, AnExistingFileIsOverwrittenOnlyWhenTheStepSaysSo)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-overwrite"));
    const QString shot = dir + QStringLiteral("/shot.png");
    const QString recording = dir + QStringLiteral("/rec.mkv");
    ASSERT_TRUE(writeFile(shot, kPrecious));
    ASSERT_TRUE(writeFile(recording, kPrecious));

    const ShowRun refused = runShow(dir, openScreen(1, 64, 36) + snapshotStep(QStringLiteral("shot.png"))
                                             + recordStep(QStringLiteral("rec.mkv"))
                                             + snapshotStep(QStringLiteral("shot.png"),
                                                            QStringLiteral(", \"overwrite\": false")));
    ASSERT_TRUE(refused.finished);
    for (int line = 2; line <= 4; ++line)
        EXPECT_TRUE(errorOf(refused, line).contains(QLatin1String("\"overwrite\": true")))
            << "line " << line << ": " << errorOf(refused, line).toStdString();
    EXPECT_EQ(readFile(shot), kPrecious);
    EXPECT_EQ(readFile(recording), kPrecious);

    const ShowRun allowed = runShow(
        dir, openScreen(1, 64, 36) + snapshotStep(QStringLiteral("shot.png"), QStringLiteral(", \"overwrite\": true"))
                 + recordStep(QStringLiteral("rec.mkv"), QStringLiteral(", \"overwrite\": true")));
    ASSERT_TRUE(allowed.finished);
    EXPECT_TRUE(isOk(allowed, 2)) << errorOf(allowed, 2).toStdString();
    EXPECT_TRUE(isOk(allowed, 3)) << errorOf(allowed, 3).toStdString();
    EXPECT_EQ(allowed.exitCode, 0);
    EXPECT_EQ(QImage(shot).size(), QSize(64, 36));
    // A Matroska file starts with the EBML magic number.
    EXPECT_TRUE(readFile(recording).startsWith(QByteArray("\x1a\x45\xdf\xa3")));
}

TEST(RunnerPaths, NewFoldersInsideOutAreMade)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-folders"));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36) + snapshotStep(QStringLiteral("act1/scene2/shot.png"))
                                         + recordStep(QStringLiteral("act1/takes/rec.mkv")));
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(isOk(run, 2)) << errorOf(run, 2).toStdString();
    EXPECT_TRUE(isOk(run, 3)) << errorOf(run, 3).toStdString();
    EXPECT_EQ(QImage(dir + QStringLiteral("/act1/scene2/shot.png")).size(), QSize(64, 36));
    EXPECT_TRUE(QFileInfo(dir + QStringLiteral("/act1/takes/rec.mkv")).size() > 0);
    EXPECT_EQ(run.replyTo(2).value(QStringLiteral("path")).toString(),
              dir + QStringLiteral("/act1/scene2/shot.png"));
}

TEST(RunnerPaths, RecordingsWrittenThroughTheCheckedFileAreComplete)
{
    // mp4 is finished by seeking back to its header: the checked file must
    // take that as well as a plain stream.
    const QString dir = freshWorkDir(QStringLiteral("paths-mp4"));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36) + openScreen(2, 64, 36)
                                         + recordStep(QStringLiteral("takes/rec.mp4"))
                                         + recordStep(QStringLiteral("rec.mkv"), QString(), 2));
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(isOk(run, 3)) << errorOf(run, 3).toStdString();
    EXPECT_TRUE(isOk(run, 4)) << errorOf(run, 4).toStdString();
    for (const QString& name : {QStringLiteral("takes/rec.mp4"), QStringLiteral("rec.mkv")}) {
        QProcess probe;
        probe.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"),
                                                QStringLiteral("-show_entries"), QStringLiteral("format=duration"),
                                                QStringLiteral("-of"), QStringLiteral("csv=p=0"),
                                                dir + QLatin1Char('/') + name});
        ASSERT_TRUE(probe.waitForFinished(30000));
        EXPECT_EQ(probe.exitCode(), 0) << name.toStdString() << ": " << probe.readAllStandardError().toStdString();
        EXPECT_GT(probe.readAllStandardOutput().trimmed().toDouble(), 0.1) << name.toStdString();
    }
}

TEST(RunnerPaths, FoldersAndOddNamesAreRefused)
{
    const QString dir = freshWorkDir(QStringLiteral("paths-odd"));
    ASSERT_TRUE(QDir(dir).mkpath(QStringLiteral("folder")));
    ASSERT_TRUE(writeFile(dir + QStringLiteral("/plain"), kPrecious));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36)
                                         + snapshotStep(QStringLiteral("folder"), QStringLiteral(", \"overwrite\": true"))
                                         + snapshotStep(QStringLiteral("plain/shot.png"))
                                         + snapshotStep(QStringLiteral("."))
                                         + snapshotStep(QStringLiteral("folder/.."), QStringLiteral(", \"overwrite\": true")));
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(errorOf(run, 2).contains(QLatin1String("is a folder"))) << errorOf(run, 2).toStdString();
    EXPECT_TRUE(errorOf(run, 3).contains(QLatin1String("not a folder"))) << errorOf(run, 3).toStdString();
    EXPECT_TRUE(errorOf(run, 4).contains(QLatin1String("output directory itself"))) << errorOf(run, 4).toStdString();
    EXPECT_TRUE(errorOf(run, 5).contains(QLatin1String("output directory itself"))) << errorOf(run, 5).toStdString();
    EXPECT_EQ(readFile(dir + QStringLiteral("/plain")), kPrecious);
}

// ---- media roots ----

namespace {

QString layerWith(int layer, const QString& path, const QString& type = QStringLiteral("video"))
{
    return QStringLiteral("{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": %1, "
                          "\"path\": \"%2\", \"groupID\": 1, \"type\": \"%3\", \"timeLenMsec\": 4000, "
                          "\"isSetPr\": false}]}\n")
        .arg(layer)
        .arg(path, type);
}

QString sceneQuery(int layer)
{
    return step(QStringLiteral("getScenePlayer"), QStringLiteral("1, %1").arg(layer));
}

/// A media root holding a copy of the clip, a link to the clip outside it,
/// and a folder beside it holding another copy.
struct MediaLayout
{
    QString root, outside;
};

MediaLayout makeMediaLayout(const QString& name)
{
    MediaLayout layout;
    layout.root = freshWorkDir(name + QStringLiteral("-root"));
    layout.outside = freshWorkDir(name + QStringLiteral("-outside"));
    const QString clip = mediaDir() + QStringLiteral("/clip.mp4");
    EXPECT_TRUE(QFile::copy(clip, layout.root + QStringLiteral("/clip.mp4")));
    EXPECT_TRUE(QFile::copy(clip, layout.outside + QStringLiteral("/clip.mp4")));
    EXPECT_TRUE(QFile::link(layout.outside + QStringLiteral("/clip.mp4"), layout.root + QStringLiteral("/link.mp4")));
    return layout;
}

} // namespace

TEST(RunnerMediaRoots, LayersOpenOnlyLocalFilesInsideTheRoots)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("media-roots"));
    const MediaLayout m = makeMediaLayout(QStringLiteral("media-roots"));
    const QString show = layerWith(1, m.root + QStringLiteral("/clip.mp4"))                       // 1 ok
        + layerWith(2, m.outside + QStringLiteral("/clip.mp4"))                                    // 2 outside
        + layerWith(3, m.root + QStringLiteral("/../media-roots-outside/clip.mp4"))                // 3 ..
        + layerWith(4, m.root + QStringLiteral("/link.mp4"))                                       // 4 link out
        + layerWith(5, QStringLiteral("av://lavfi:testsrc"))                                       // 5 not a file
        + layerWith(6, m.root + QStringLiteral("/missing.mp4"))                                    // 6 missing
        + layerWith(7, QStringLiteral("CamA"), QStringLiteral("ndi"))                              // 7 stream
        + sceneQuery(1) + sceneQuery(2) + sceneQuery(3) + sceneQuery(4) + sceneQuery(5)             // 8..12
        + sceneQuery(6) + sceneQuery(7);                                                           // 13, 14
    const ShowRun run = runShow(dir, show, {QStringLiteral("--media-root"), m.root});
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(isOk(run, 1)) << errorOf(run, 1).toStdString();
    EXPECT_TRUE(errorOf(run, 2).contains(QLatin1String("outside every media root"))) << errorOf(run, 2).toStdString();
    EXPECT_TRUE(errorOf(run, 3).contains(QLatin1String("outside every media root"))) << errorOf(run, 3).toStdString();
    EXPECT_TRUE(errorOf(run, 4).contains(QLatin1String("outside every media root"))) << errorOf(run, 4).toStdString();
    EXPECT_TRUE(errorOf(run, 5).contains(QLatin1String("not a local file"))) << errorOf(run, 5).toStdString();
    EXPECT_TRUE(errorOf(run, 6).contains(QLatin1String("no such file"))) << errorOf(run, 6).toStdString();
    EXPECT_FALSE(errorOf(run, 7).isEmpty());
    // Refused steps did not run: only layer 1 exists.
    EXPECT_TRUE(run.replyTo(8).value(QStringLiteral("result")).isObject());
    for (int line = 9; line <= 14; ++line)
        EXPECT_TRUE(run.replyTo(line).value(QStringLiteral("result")).isNull())
            << "line " << line << " answered " << run.replyTo(line).value(QStringLiteral("result")).toVariant().toString().toStdString();
}

TEST(RunnerMediaRoots, ContentChangesAndPagesAreCheckedToo)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("media-roots-change"));
    const MediaLayout m = makeMediaLayout(QStringLiteral("media-roots-change"));
    const QString other = freshWorkDir(QStringLiteral("media-roots-change-second"));
    ASSERT_TRUE(QFile::copy(mediaDir() + QStringLiteral("/still-a.png"), other + QStringLiteral("/still-a.png")));
    const QString change = QStringLiteral("{\"op\": \"changeLayerContent\", \"args\": [1, 1, {\"type\": \"picture\", "
                                          "\"videoPath\": \"%1\", \"timeLenMsec\": 2000}]}\n");
    const QString page = QStringLiteral("{\"op\": \"pptPageUpDown\", \"args\": [1, 1, {\"videoPath\": \"%1\"}]}\n");
    const QString show = layerWith(1, m.root + QStringLiteral("/clip.mp4"))      // 1 ok
        + change.arg(m.outside + QStringLiteral("/clip.mp4"))                     // 2 refused
        + change.arg(m.root + QStringLiteral("/link.mp4"))                        // 3 refused
        + page.arg(m.outside + QStringLiteral("/clip.mp4"))                       // 4 refused
        + change.arg(other + QStringLiteral("/still-a.png"))                      // 5 second root: ok
        + page.arg(m.root + QStringLiteral("/clip.mp4"));                         // 6 ok
    const ShowRun run = runShow(dir, show, {QStringLiteral("--media-root"), m.root,
                                            QStringLiteral("--media-root=") + other});
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(isOk(run, 1)) << errorOf(run, 1).toStdString();
    for (int line = 2; line <= 4; ++line)
        EXPECT_TRUE(errorOf(run, line).contains(QLatin1String("outside every media root")))
            << "line " << line << ": " << errorOf(run, line).toStdString();
    EXPECT_TRUE(isOk(run, 5)) << errorOf(run, 5).toStdString();
    EXPECT_TRUE(isOk(run, 6)) << errorOf(run, 6).toStdString();
}

TEST(RunnerMediaRoots, WithoutRootsAnyPathIsOpenedAsBefore)
{
    ASSERT_FALSE(mediaDir().isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("media-roots-none"));
    const MediaLayout m = makeMediaLayout(QStringLiteral("media-roots-none"));
    const ShowRun run = runShow(dir, layerWith(1, m.outside + QStringLiteral("/clip.mp4")) + layerWith(2, m.root + QStringLiteral("/link.mp4")));
    ASSERT_TRUE(run.finished);
    EXPECT_TRUE(isOk(run, 1)) << errorOf(run, 1).toStdString();
    EXPECT_TRUE(isOk(run, 2)) << errorOf(run, 2).toStdString();
}

TEST(RunnerMediaRoots, AMissingRootIsAUsageError)
{
    const QString dir = freshWorkDir(QStringLiteral("media-roots-missing"));
    const ShowRun run = runShow(dir, openScreen(1, 64, 36),
                                {QStringLiteral("--media-root"), dir + QStringLiteral("/does-not-exist")});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errText.contains(QLatin1String("--media-root"))) << run.errText.toStdString();
}
