// Sources that cannot be played are reported with mediaError(path, reason)
// from the event loop, and never with loaded() or playReadySucess(): missing
// files, directories, empty files, text and random bytes, whatever their
// extension and media type ("picture" layers included: libmpv opens any file
// named like an image, so what decides is whether a picture decodes).
#include "EngineFixture.h"

#include <QDir>
#include <QFile>

using QtAV::AVPlayer;

namespace {

QString badDir()
{
    const QString dir = QStringLiteral(KELMOR_ENGINE_MEDIA_DIR) + QStringLiteral("/bad-%1")
                            .arg(QCoreApplication::applicationPid());
    QDir().mkpath(dir);
    return dir;
}

QString writeFile(const QString& name, const QByteArray& bytes)
{
    const QString path = badDir() + QLatin1Char('/') + name;
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
        return QString();
    return path;
}

QByteArray randomBytes(int size)
{
    QByteArray out(size, '\0');
    quint32 x = 77;
    for (int i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        out[i] = static_cast<char>(x >> 16);
    }
    return out;
}

struct BadSource
{
    const char* name;
    const char* mediaType;
};

QString makeBadSource(const QString& which)
{
    const QByteArray text = QByteArray("Not a picture, just text.\n").repeated(20);
    if (which == "text-png")
        return writeFile(QStringLiteral("text.png"), text);
    if (which == "text-jpg")
        return writeFile(QStringLiteral("text.jpg"), text);
    if (which == "random-png")
        return writeFile(QStringLiteral("random.png"), randomBytes(4096));
    if (which == "random-mp4")
        return writeFile(QStringLiteral("random.mp4"), randomBytes(65536));
    if (which == "empty-png")
        return writeFile(QStringLiteral("empty.png"), QByteArray());
    if (which == "empty-mp4")
        return writeFile(QStringLiteral("empty.mp4"), QByteArray());
    if (which == "directory-png" || which == "directory-mp4") {
        const QString path = badDir() + QLatin1Char('/') + which + (which.endsWith("png") ? ".png" : ".mp4");
        QDir().mkpath(path);
        return path;
    }
    if (which == "missing-png")
        return badDir() + QStringLiteral("/missing.png");
    return QString();
}

class EngineMediaErrorTest : public EngineTest, public ::testing::WithParamInterface<BadSource>
{
};

TEST_P(EngineMediaErrorTest, IsReportedOncePerAttemptAndNeverLoads)
{
    const QString source = makeBadSource(QString::fromLatin1(GetParam().name));
    ASSERT_FALSE(source.isEmpty());
    AVPlayer* player = newPlayer();
    player->setMediaType(QString::fromLatin1(GetParam().mediaType));
    QSignalSpy errors(player, &AVPlayer::mediaError);
    QSignalSpy loaded(player, &AVPlayer::loaded);
    QSignalSpy ready(player, &AVPlayer::playReadySucess);

    player->setFile(source);
    EXPECT_EQ(errors.count(), 0) << "reported inside setFile()";
    ASSERT_TRUE(waitFor(errors, 1, 2000)) << "no mediaError within 2 s";
    EXPECT_EQ(errors.at(0).at(0).toString(), source);
    EXPECT_FALSE(errors.at(0).at(1).toString().isEmpty());

    // A play-ready is a new attempt: reported again, and never ready.
    player->playReady(source, 0, false);
    ASSERT_TRUE(waitFor(errors, 2, 2000));
    QTest::qWait(300);
    EXPECT_EQ(errors.count(), 2);
    EXPECT_EQ(loaded.count(), 0);
    EXPECT_EQ(ready.count(), 0);

    // The layer stays usable.
    player->playReady(GetParam().mediaType == QLatin1String("picture") ? EngineMedia::picture()
                                                                       : EngineMedia::clip(),
                      0, true);
    ASSERT_TRUE(waitFor(ready));
    EXPECT_EQ(loaded.count(), 1);
    EXPECT_EQ(errors.count(), 2);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, EngineMediaErrorTest,
    ::testing::Values(BadSource{"text-png", "picture"}, BadSource{"text-jpg", "picture"},
                      BadSource{"random-png", "picture"}, BadSource{"empty-png", "picture"},
                      BadSource{"directory-png", "picture"}, BadSource{"missing-png", "picture"},
                      BadSource{"random-mp4", "video"}, BadSource{"empty-mp4", "video"},
                      BadSource{"directory-mp4", "video"}),
    [](const ::testing::TestParamInfo<BadSource>& info) {
        return QString::fromLatin1(info.param.name).replace('-', '_').toStdString();
    });

TEST_F(EngineTest, GoodPictureAndClipLoadWithoutMediaError)
{
    for (const QString& file : {EngineMedia::picture(), EngineMedia::clip()}) {
        AVPlayer* player = newPlayer();
        player->setMediaType(file.endsWith(QLatin1String(".png")) ? QStringLiteral("picture")
                                                                   : QStringLiteral("video"));
        QSignalSpy errors(player, &AVPlayer::mediaError);
        QSignalSpy loaded(player, &AVPlayer::loaded);
        QSignalSpy ready(player, &AVPlayer::playReadySucess);
        player->playReady(file, 0, true);
        ASSERT_TRUE(waitFor(ready)) << file.toStdString();
        EXPECT_EQ(loaded.count(), 1);
        EXPECT_GT(player->statistics().video.width, 0);
        QTest::qWait(200);
        EXPECT_EQ(errors.count(), 0) << file.toStdString();
    }
}

TEST_F(EngineTest, UnreachableStreamIsReportedOnce)
{
    AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("networkVideo"));
    QSignalSpy errors(player, &AVPlayer::mediaError);
    player->setFile(EngineMedia::unreachableUrl());
    player->pause(false); // playing: the stream is retried
    ASSERT_TRUE(waitFor(errors, 1, 5000));
    EXPECT_EQ(errors.at(0).at(0).toString(), EngineMedia::unreachableUrl());
    QTest::qWait(1500); // a retry or two
    EXPECT_EQ(errors.count(), 1);
    player->pause(true);
}

} // namespace
