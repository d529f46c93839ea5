// Fades of players on the libmpv engine as the output screens show them: the
// picture's level follows the player's fade opacity, rises (or falls)
// monotonically, and ends at full level (or black) when the fade reports its
// end.
#include "ScreenFixture.h"
#include "ScreenMedia.h"

#include <QSignalSpy>

namespace {

/// One grab during a fade: the level of a quadrant and the player's opacity
/// read right after it (no event runs in between, so the tick drew with it).
struct Sample
{
    int level;
    double opacity;
};

} // namespace

class ScreenFadeTest : public ScreenTest
{
protected:
    static constexpr int kFadeWait = 30000;

    /// Red level at the centre of the red quadrant of screen 1.
    static int redLevel(const QImage& image) { return qRed(image.pixel(80, 45)); }

    /// Grabs screen 1 until `done`, sampling the level and opacity each time.
    std::vector<Sample> sampleUntil(QtAV::AVPlayer* player, const QSignalSpy& done)
    {
        std::vector<Sample> samples;
        waitUntil(
            [&] {
                const QImage out = grab(1);
                samples.push_back({redLevel(out), player->pictureOpacity()});
                return done.count() > 0;
            },
            kFadeWait);
        return samples;
    }

    /// A player of the quadrant picture on screen 1, shown at full level.
    QtAV::AVPlayer* shownPicture(int* fullLevel)
    {
        const QString picture = ScreenMedia::quadrantPicture();
        if (picture.isEmpty())
            return nullptr;
        ScreenWidget* screen = openScreen(1);
        QtAV::AVPlayer* player = newPlayer();
        player->setMediaType(QStringLiteral("picture"));
        player->setFile(picture);
        show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
        QImage out;
        if (!waitUntil([&] {
                out = grab(1);
                return redLevel(out) > 200;
            }))
            return nullptr;
        *fullLevel = redLevel(out);
        return player;
    }

    /// Every sample's level agrees with its opacity (±0.08 of full).
    static void expectLevelsFollowOpacity(const std::vector<Sample>& samples, int fullLevel)
    {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const double seen = double(samples[i].level) / fullLevel;
            EXPECT_NEAR(seen, samples[i].opacity, 0.08)
                << "sample " << i << ": level " << samples[i].level << " of " << fullLevel;
        }
    }
};

TEST_F(ScreenFadeTest, PictureFadesInMonotonicallyAndItsOpacityMatchesThePixels)
{
    int full = 0;
    QtAV::AVPlayer* player = shownPicture(&full);
    ASSERT_NE(player, nullptr) << "the quadrant picture did not show";
    QSignalSpy finished(player, &QtAV::AVPlayer::fadeInFinished);

    player->setFadeIn(4000);
    const std::vector<Sample> samples = sampleUntil(player, finished);
    ASSERT_EQ(finished.count(), 1) << "the fade in did not finish";
    ASSERT_GE(samples.size(), 3u);

    // Starts from black, rises without a step back, passes the middle.
    EXPECT_LE(samples.front().level, full / 4);
    bool middle = false;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        EXPECT_GE(samples[i].level, samples[i - 1].level) << "falls at sample " << i;
        middle = middle || (samples[i].level >= full / 4 && samples[i].level <= 3 * full / 4);
    }
    EXPECT_TRUE(middle) << "no grab between 25% and 75% of the full level";
    expectLevelsFollowOpacity(samples, full);

    // At the end: full level, opacity 1.
    const QImage out = grab(1);
    EXPECT_DOUBLE_EQ(player->pictureOpacity(), 1.0);
    EXPECT_LE(qAbs(redLevel(out) - full), 1);
    EXPECT_TRUE(quadrantsIn(out, QRect(0, 0, 320, 180)));
}

TEST_F(ScreenFadeTest, PictureFadesOutToBlack)
{
    int full = 0;
    QtAV::AVPlayer* player = shownPicture(&full);
    ASSERT_NE(player, nullptr) << "the quadrant picture did not show";
    QSignalSpy finished(player, &QtAV::AVPlayer::fadeOutFinished);

    player->setFadeOut(1500);
    const std::vector<Sample> samples = sampleUntil(player, finished);
    ASSERT_EQ(finished.count(), 1) << "the fade out did not finish";
    for (std::size_t i = 1; i < samples.size(); ++i)
        EXPECT_LE(samples[i].level, samples[i - 1].level) << "rises at sample " << i;
    expectLevelsFollowOpacity(samples, full);

    const QImage out = grab(1);
    EXPECT_DOUBLE_EQ(player->pictureOpacity(), 0.0);
    for (const QPoint p : {QPoint(80, 45), QPoint(240, 45), QPoint(80, 135), QPoint(240, 135)})
        EXPECT_EQ(out.pixel(p), qRgb(0, 0, 0)) << "(" << p.x() << ", " << p.y() << ") is "
                                               << describe(out.pixel(p));
}

TEST_F(ScreenFadeTest, PlayingClipFadesOutToBlack)
{
    const QString clip = ScreenMedia::quadrantClip();
    ASSERT_FALSE(clip.isEmpty()) << "ffmpeg could not make the clip";
    ScreenWidget* screen = openScreen(1);
    QtAV::AVPlayer* player = newPlayer();
    player->setMediaType(QStringLiteral("video"));
    QSignalSpy loaded(player, &QtAV::AVPlayer::loaded);
    player->setFile(clip);
    show(player, screen, QRect(0, 0, 320, 180), QSizeF(320, 180));
    ASSERT_TRUE(waitUntil([&] { return loaded.count() > 0; }));
    player->setRepeat(-1); // keeps new frames coming for the whole fade
    player->pause(false);
    int full = 0;
    ASSERT_TRUE(waitUntil([&] {
        full = redLevel(grab(1));
        return full > 200;
    }));
    QSignalSpy finished(player, &QtAV::AVPlayer::fadeOutFinished);

    player->setFadeOut(1000);
    const std::vector<Sample> samples = sampleUntil(player, finished);
    ASSERT_EQ(finished.count(), 1) << "the fade out did not finish";
    expectLevelsFollowOpacity(samples, full);
    const QImage out = grab(1);
    EXPECT_DOUBLE_EQ(player->pictureOpacity(), 0.0);
    EXPECT_EQ(out.pixel(80, 45), qRgb(0, 0, 0)) << describe(out.pixel(80, 45));
    EXPECT_EQ(out.pixel(240, 135), qRgb(0, 0, 0)) << describe(out.pixel(240, 135));
}
