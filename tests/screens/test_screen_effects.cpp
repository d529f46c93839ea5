// Layer effects (EffectsService::setEffectsObj) and monitor effects
// (setMonitorEffects) as the composited pixels show them, with the values
// computed from the formulas in gl/EffectSettings.h.
#include "ScreenFixture.h"
#include "gl/EffectSettings.h"

#include <cmath>

namespace {

constexpr int kLayer = 1; // the layer id ScreenTest::show gives its render objects
constexpr int kBank = 1;

/// A channel value 0..1 as the 8-bit level the screen stores.
int level(double value)
{
    return qRound(255.0 * std::min(std::max(value, 0.0), 1.0));
}

/// Whether every channel of `pixel` is within `tolerance` of `expected`.
::testing::AssertionResult levelIs(QRgb pixel, int expected, int tolerance = 1)
{
    for (int channel : {qRed(pixel), qGreen(pixel), qBlue(pixel)}) {
        if (qAbs(channel - expected) > tolerance)
            return ::testing::AssertionFailure()
                << "pixel " << describe(pixel) << ", expected every channel " << expected
                << " +-" << tolerance;
    }
    return ::testing::AssertionSuccess();
}

Record layerRecord(std::initializer_list<std::pair<QString, QVariant>> values)
{
    Record record;
    record.insert(QStringLiteral("bankId"), kBank);
    for (const auto& v : values)
        record.insert(v.first, v.second);
    return record;
}

} // namespace

class ScreenEffectsTest : public ScreenTest
{
protected:
    /// A full screen (320 x 180) of one solid colour.
    QtAV::NoxOpenGLRender* solidScreen(int screenId, QColor colour)
    {
        return show(pushedPlayer(solid(colour)), openScreen(screenId), QRect(0, 0, 320, 180));
    }

    static EffectsService& effects() { return EffectsService::getInstance(); }
};

// --- layer effects -------------------------------------------------------

TEST_F(ScreenEffectsTest, HalfOpacityOverBlackGivesHalfTheLevel)
{
    solidScreen(1, Qt::white);
    ASSERT_TRUE(levelIs(grab(1).pixel(160, 90), 255, 0));
    effects().setEffectsObj(kLayer, layerRecord({{"opacity", 0.5}}));
    const QImage out = grab(1);
    EXPECT_TRUE(levelIs(out.pixel(160, 90), level(0.5)));
    EXPECT_TRUE(levelIs(out.pixel(2, 2), level(0.5)));
    EXPECT_TRUE(levelIs(out.pixel(317, 177), level(0.5)));
}

TEST_F(ScreenEffectsTest, BrightnessIsAddedToEachChannel)
{
    solidScreen(1, QColor(128, 128, 128));
    effects().setEffectsObj(kLayer, layerRecord({{"brightness", 0.2}}));
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), level(128 / 255.0 + 0.2)));
    effects().setEffectsObj(kLayer, layerRecord({{"brightness", QStringLiteral("-0.3")}}));
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), level(128 / 255.0 - 0.3)));
}

TEST_F(ScreenEffectsTest, ContrastScalesAroundMidGrey)
{
    // Two greys side by side: below and above mid grey move apart.
    QImage picture(64, 64, QImage::Format_RGBA8888);
    picture.fill(QColor(102, 102, 102));
    QPainter(&picture).fillRect(32, 0, 32, 64, QColor(191, 191, 191));
    show(pushedPlayer(picture), openScreen(1), QRect(0, 0, 320, 180));
    effects().setEffectsObj(kLayer, layerRecord({{"contrast", 1.5}}));
    const QImage out = grab(1);
    EXPECT_TRUE(levelIs(out.pixel(80, 90), level((102 / 255.0 - 0.5) * 1.5 + 0.5)));
    EXPECT_TRUE(levelIs(out.pixel(240, 90), level((191 / 255.0 - 0.5) * 1.5 + 0.5)));
}

TEST_F(ScreenEffectsTest, SaturationZeroTurnsColoursGrey)
{
    QImage picture(64, 64, QImage::Format_RGBA8888);
    picture.fill(QColor(200, 100, 50));
    QPainter(&picture).fillRect(32, 0, 32, 64, Qt::red);
    show(pushedPlayer(picture), openScreen(1), QRect(0, 0, 320, 180));
    effects().setEffectsObj(kLayer, layerRecord({{"saturation", 0}}));
    const QImage out = grab(1);
    for (const QPoint p : {QPoint(80, 90), QPoint(240, 90)}) {
        const QRgb px = out.pixel(p);
        SCOPED_TRACE(describe(px));
        EXPECT_LE(qAbs(qRed(px) - qGreen(px)), 1);
        EXPECT_LE(qAbs(qGreen(px) - qBlue(px)), 1);
    }
    // The grey is a weighted mean of the channels, so it lies between them.
    const QRgb orange = out.pixel(80, 90);
    EXPECT_GT(qGreen(orange), 50);
    EXPECT_LT(qGreen(orange), 200);
    const QRgb red = out.pixel(240, 90);
    EXPECT_GT(qGreen(red), 0);
    EXPECT_LT(qGreen(red), 255);
    // Back to 1: the colours return unchanged.
    effects().setEffectsObj(kLayer, layerRecord({{"saturation", 1}}));
    EXPECT_PIXEL(grab(1), 80, 90, QColor(200, 100, 50));
}

TEST_F(ScreenEffectsTest, GammaRaisesEachChannelToOneOverGamma)
{
    QImage picture(64, 64, QImage::Format_RGBA8888);
    picture.fill(QColor(64, 64, 64));
    QPainter(&picture).fillRect(32, 0, 32, 64, QColor(16, 16, 16));
    show(pushedPlayer(picture), openScreen(1), QRect(0, 0, 320, 180));
    effects().setEffectsObj(kLayer, layerRecord({{"gamma", 2.0}}));
    const QImage out = grab(1);
    EXPECT_TRUE(levelIs(out.pixel(80, 90), level(std::pow(64 / 255.0, 1 / 2.0))));
    EXPECT_TRUE(levelIs(out.pixel(240, 90), level(std::pow(16 / 255.0, 1 / 2.0))));
}

TEST_F(ScreenEffectsTest, UnknownKeyIsIgnoredWithADebugLineAndTheRestApplies)
{
    solidScreen(1, Qt::white);
    LogCapture log;
    effects().setEffectsObj(kLayer, layerRecord({{"sparkle", 3}, {"opacity", 0.5}}));
    const QImage out = grab(1);
    EXPECT_EQ(log.count(QStringLiteral("effects: sparkle ignored: unknown key (layer record)")), 1);
    EXPECT_EQ(log.count(QStringLiteral("effects: bankId")), 0); // identity keys are silent
    EXPECT_TRUE(levelIs(out.pixel(160, 90), level(0.5)));
}

TEST_F(ScreenEffectsTest, NonNumbersKeepTheDefaultAndOutOfRangeIsClamped)
{
    solidScreen(1, QColor(128, 128, 128));
    LogCapture log;
    effects().setEffectsObj(kLayer, layerRecord({{"brightness", QStringLiteral("bright")},
                                                 {"contrast", qQNaN()},
                                                 {"opacity", 7}}));
    const QImage out = grab(1);
    EXPECT_EQ(log.count(QStringLiteral("effects: brightness ignored: not a number")), 1);
    EXPECT_EQ(log.count(QStringLiteral("effects: contrast ignored: not finite")), 1);
    EXPECT_EQ(log.count(QStringLiteral("effects: opacity clamped: 7 -> 1 (layer record)")), 1);
    EXPECT_TRUE(levelIs(out.pixel(160, 90), 128, 0));
}

TEST_F(ScreenEffectsTest, RecordOfABankReachesOnlyTheRenderersListedForIt)
{
    QtAV::NoxOpenGLRender* r = solidScreen(1, Qt::white);
    const int packed = kLayer + (kBank << 16);
    int other = 0; // stands for a render object of another screen
    effects().setAllRendererList(packed, {&other});
    effects().setEffectsObj(kLayer, layerRecord({{"opacity", 0.5}}));
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), 255, 0));
    effects().setAllRendererList(
        packed, {&other, static_cast<void*>(static_cast<QtAV::VideoRenderer*>(r))});
    // Only the list changed: the screen must be drawn again for it.
    QImage out;
    waitUntil([&] {
        out = grab(1);
        return qRed(out.pixel(160, 90)) < 200;
    }, 3000);
    EXPECT_TRUE(levelIs(out.pixel(160, 90), level(0.5))) << "the renderer list change was not drawn";
}

// --- monitor effects -----------------------------------------------------

TEST_F(ScreenEffectsTest, LeftEdgeBlendRisesAlongTheDocumentedRamp)
{
    solidScreen(1, Qt::white);
    Record record;
    record["blendLeft"] = 100;
    effects().setMonitorEffects(1, record);
    const QImage out = grab(1);
    ASSERT_EQ(out.width(), 320);
    const int y = 90;
    EXPECT_LE(qRed(out.pixel(0, y)), 4);
    for (int x = 1; x < 320; ++x) {
        ASSERT_GE(qRed(out.pixel(x, y)), qRed(out.pixel(x - 1, y))) << "falls at x = " << x;
        EXPECT_TRUE(levelIs(out.pixel(x, y), qRed(out.pixel(x, y)), 0)) << "grey at x = " << x;
    }
    for (int x = 100; x < 320; x += 20)
        EXPECT_TRUE(levelIs(out.pixel(x, y), 255, 0)) << "x = " << x;
    EXPECT_TRUE(levelIs(out.pixel(319, y), 255, 0));
    // The ramp at pixel centres, as edgeBlendFactor gives it (curve 2,
    // gamma 2.2 by default).
    for (int x : {5, 20, 40, 50, 60, 80, 95}) {
        const float f = kelmor::gl::edgeBlendFactor((x + 0.5f) / 100.f, 2.f, 2.2f);
        EXPECT_TRUE(levelIs(out.pixel(x, y), level(f), 3)) << "x = " << x << ", factor " << f;
    }
    // The other edges stay untouched.
    EXPECT_TRUE(levelIs(out.pixel(200, 0), 255, 0));
    EXPECT_TRUE(levelIs(out.pixel(200, 179), 255, 0));
}

TEST_F(ScreenEffectsTest, TestPatternReplacesThePictureOnlyOnTheScreenNamed)
{
    solidScreen(1, Qt::white);
    solidScreen(2, Qt::white);
    Record on;
    on["testPattern"] = true;
    effects().setMonitorEffects(1, on);
    QImage out = grab(1);
    // Centre crosshair (1, 0.15, 0.15); a grid line every 320 / 16 = 20 px
    // (0.85); dark grey (0.12) between, where the white picture was.
    EXPECT_PIXEL(out, 160, 90, QColor(255, level(0.15), level(0.15)));
    EXPECT_PIXEL(out, 160, 60, QColor(255, level(0.15), level(0.15)));
    EXPECT_TRUE(levelIs(out.pixel(20, 30), level(0.85), 2));
    EXPECT_TRUE(levelIs(out.pixel(300, 150), level(0.85), 2));
    EXPECT_TRUE(levelIs(out.pixel(30, 30), level(0.12), 2));
    EXPECT_TRUE(levelIs(out.pixel(290, 130), level(0.12), 2));
    // The other screen still shows its picture.
    const QImage other = grab(2);
    EXPECT_TRUE(levelIs(other.pixel(160, 90), 255, 0));
    EXPECT_TRUE(levelIs(other.pixel(30, 30), 255, 0));

    Record off;
    off["testPattern"] = QStringLiteral("off");
    effects().setMonitorEffects(1, off);
    out = grab(1);
    EXPECT_TRUE(levelIs(out.pixel(160, 90), 255, 0));
    EXPECT_TRUE(levelIs(out.pixel(30, 30), 255, 0));
}

TEST_F(ScreenEffectsTest, MonitorBrightnessAndContrastApplyPerScreenAndLaterRecordWins)
{
    solidScreen(1, Qt::white);
    solidScreen(2, Qt::white);
    Record dim;
    dim["brightness"] = -0.2;
    effects().setMonitorEffects(1, dim);
    Record flat;
    flat["contrast"] = 0.5;
    effects().setMonitorEffects(2, flat);
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), level(1.0 - 0.2)));
    EXPECT_TRUE(levelIs(grab(2).pixel(160, 90), level((1.0 - 0.5) * 0.5 + 0.5)));

    // A record for every screen (-1) replaces the screens' own, older ones.
    Record all;
    all["brightness"] = -0.5;
    effects().setMonitorEffects(-1, all);
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), level(0.5)));
    EXPECT_TRUE(levelIs(grab(2).pixel(160, 90), level(0.5)));

    // A screen's own record after it wins again, for that screen only.
    effects().setMonitorEffects(2, flat);
    EXPECT_TRUE(levelIs(grab(1).pixel(160, 90), level(0.5)));
    EXPECT_TRUE(levelIs(grab(2).pixel(160, 90), level(0.75)));
}
