// Effect records of layers and screens, and the soft-edge ramp.
#include "gl/EffectSettings.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using kelmor::gl::LayerEffects;
using kelmor::gl::ScreenEffects;

namespace {

using Record = QMap<QString, QVariant>;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

TEST(EffectSettingsLayer, EmptyRecordGivesNeutralDefaultsSilently)
{
    LogCapture log;
    const LayerEffects e = kelmor::gl::parseLayerEffects(Record());
    EXPECT_EQ(e.opacity, 1.0f);
    EXPECT_EQ(e.brightness, 0.0f);
    EXPECT_EQ(e.contrast, 1.0f);
    EXPECT_EQ(e.saturation, 1.0f);
    EXPECT_EQ(e.gamma, 1.0f);
    EXPECT_TRUE(e.isNeutral());
    EXPECT_EQ(log.count("effects:"), 0);
}

TEST(EffectSettingsLayer, ValuesInRangeAreTakenAsGiven)
{
    LogCapture log;
    const LayerEffects e = kelmor::gl::parseLayerEffects(
        {{"opacity", 0.5}, {"brightness", -0.25}, {"contrast", QStringLiteral("2")}, {"saturation", 0},
         {"gamma", 2.2f}, {"bankId", 3}, {"layerId", 7}, {"screenId", 1}, {"screenType", "led"},
         {"clientGuid", "{a-b}"}});
    EXPECT_EQ(e.opacity, 0.5f);
    EXPECT_EQ(e.brightness, -0.25f);
    EXPECT_EQ(e.contrast, 2.0f);
    EXPECT_EQ(e.saturation, 0.0f);
    EXPECT_EQ(e.gamma, 2.2f);
    EXPECT_FALSE(e.isNeutral());
    // Identity keys are accepted silently.
    EXPECT_EQ(log.count("effects:"), 0) << log.lines().join('\n').toStdString();
}

TEST(EffectSettingsLayer, OutOfRangeValuesAreClampedAndLogged)
{
    LogCapture log;
    const LayerEffects e = kelmor::gl::parseLayerEffects(
        {{"opacity", 1.5}, {"brightness", -3}, {"contrast", 9}, {"saturation", -1}, {"gamma", 0}});
    EXPECT_EQ(e.opacity, 1.0f);
    EXPECT_EQ(e.brightness, -1.0f);
    EXPECT_EQ(e.contrast, 4.0f);
    EXPECT_EQ(e.saturation, 0.0f);
    EXPECT_EQ(e.gamma, 0.1f);
    EXPECT_EQ(log.count("effects: opacity clamped: 1.5 -> 1 (layer record)"), 1);
    EXPECT_EQ(log.count("effects: brightness clamped: -3 -> -1 (layer record)"), 1);
    EXPECT_EQ(log.count("effects: contrast clamped"), 1);
    EXPECT_EQ(log.count("effects: saturation clamped"), 1);
    EXPECT_EQ(log.count("effects: gamma clamped: 0 -> 0.1 (layer record)"), 1);
}

TEST(EffectSettingsLayer, ValuesThatAreNotFiniteNumbersKeepTheDefault)
{
    LogCapture log;
    const LayerEffects e = kelmor::gl::parseLayerEffects(
        {{"opacity", QStringLiteral("half")}, {"brightness", QVariant()}, {"contrast", kNaN},
         {"saturation", QVariantList{1, 2}}, {"gamma", kInf}});
    EXPECT_TRUE(e.isNeutral());
    EXPECT_EQ(log.count("effects: opacity ignored: not a number"), 1);
    EXPECT_EQ(log.count("effects: brightness ignored: not a number"), 1);
    EXPECT_EQ(log.count("effects: contrast ignored: not finite"), 1);
    EXPECT_EQ(log.count("effects: saturation ignored: not a number"), 1);
    EXPECT_EQ(log.count("effects: gamma ignored: not finite"), 1);
    EXPECT_EQ(log.count("(layer record)"), 5);
}

TEST(EffectSettingsLayer, UnknownKeyIsIgnoredAndNamed)
{
    LogCapture log;
    const LayerEffects e = kelmor::gl::parseLayerEffects({{"opacity", 0.25}, {"hue", 90}, {"layerId", 2}});
    EXPECT_EQ(e.opacity, 0.25f);
    EXPECT_EQ(log.count("effects: hue ignored: unknown key (layer record)"), 1);
    EXPECT_EQ(log.count("effects:"), 1);
}

TEST(EffectSettingsScreen, EmptyRecordGivesDefaultsWithoutBlend)
{
    LogCapture log;
    const ScreenEffects e = kelmor::gl::parseScreenEffects(Record());
    EXPECT_EQ(e.blendLeft, 0.0f);
    EXPECT_EQ(e.blendRight, 0.0f);
    EXPECT_EQ(e.blendTop, 0.0f);
    EXPECT_EQ(e.blendBottom, 0.0f);
    EXPECT_EQ(e.blendCurve, 2.0f);
    EXPECT_EQ(e.blendGamma, 2.2f);
    EXPECT_EQ(e.brightness, 0.0f);
    EXPECT_EQ(e.contrast, 1.0f);
    EXPECT_FALSE(e.testPattern);
    EXPECT_FALSE(e.hasBlend());
    EXPECT_TRUE(e.isNeutral());
    EXPECT_EQ(log.count("effects:"), 0);
}

TEST(EffectSettingsScreen, BlendWidthsCurveAndColourAreRead)
{
    LogCapture log;
    const ScreenEffects e = kelmor::gl::parseScreenEffects(
        {{"blendLeft", 240}, {"blendRight", "120.5"}, {"blendTop", -10}, {"blendCurve", 20}, {"blendGamma", 1.8},
         {"brightness", 0.1}, {"contrast", 1.2}, {"screenId", 2}, {"screenType", 0}, {"bankId", 1}});
    EXPECT_EQ(e.blendLeft, 240.0f);
    EXPECT_EQ(e.blendRight, 120.5f);
    EXPECT_EQ(e.blendTop, 0.0f);
    EXPECT_EQ(e.blendBottom, 0.0f);
    EXPECT_EQ(e.blendCurve, 10.0f);
    EXPECT_EQ(e.blendGamma, 1.8f);
    EXPECT_EQ(e.brightness, 0.1f);
    EXPECT_EQ(e.contrast, 1.2f);
    EXPECT_TRUE(e.hasBlend());
    EXPECT_FALSE(e.isNeutral());
    EXPECT_EQ(log.count("effects: blendTop clamped: -10 -> 0 (screen record)"), 1);
    EXPECT_EQ(log.count("effects: blendCurve clamped: 20 -> 10 (screen record)"), 1);
    EXPECT_EQ(log.count("effects:"), 2) << log.lines().join('\n').toStdString();
}

TEST(EffectSettingsScreen, TestPatternTakesBooleansNumbersAndWords)
{
    for (const QVariant& on : {QVariant(true), QVariant(1), QVariant(QStringLiteral("Yes")), QVariant("on")})
        EXPECT_TRUE(kelmor::gl::parseScreenEffects({{"testPattern", on}}).testPattern) << on.toString().toStdString();
    for (const QVariant& off : {QVariant(false), QVariant(0.0), QVariant(QStringLiteral("false")), QVariant("off")})
        EXPECT_FALSE(kelmor::gl::parseScreenEffects({{"testPattern", off}}).testPattern);
    LogCapture log;
    const ScreenEffects e = kelmor::gl::parseScreenEffects({{"testPattern", "maybe"}, {"blendWidth", 5}});
    EXPECT_FALSE(e.testPattern);
    EXPECT_TRUE(e.isNeutral());
    EXPECT_EQ(log.count("effects: testPattern ignored: not a boolean"), 1);
    EXPECT_EQ(log.count("effects: blendWidth ignored: unknown key (screen record)"), 1);
    EXPECT_TRUE(kelmor::gl::parseScreenEffects({{"testPattern", true}}).hasBlend() == false);
    EXPECT_FALSE(kelmor::gl::parseScreenEffects({{"testPattern", true}}).isNeutral());
}

TEST(EffectSettingsScreen, NotFiniteValuesKeepTheDefault)
{
    LogCapture log;
    const ScreenEffects e = kelmor::gl::parseScreenEffects(
        {{"blendLeft", kNaN}, {"blendGamma", -kInf}, {"contrast", "x"}, {"testPattern", kNaN}});
    EXPECT_EQ(e.blendLeft, 0.0f);
    EXPECT_EQ(e.blendGamma, 2.2f);
    EXPECT_EQ(e.contrast, 1.0f);
    EXPECT_FALSE(e.testPattern);
    EXPECT_EQ(log.count("ignored"), 4);
    EXPECT_EQ(log.count("(screen record)"), 4);
}

// --- soft-edge ramp ----------------------------------------------------------

TEST(EdgeBlend, EndpointsAreDarkAndFullLight)
{
    for (float curve : {0.5f, 1.0f, 2.0f, 4.0f})
        for (float gamma : {1.0f, 2.2f}) {
            EXPECT_EQ(kelmor::gl::edgeBlendFactor(0.0f, curve, gamma), 0.0f);
            EXPECT_EQ(kelmor::gl::edgeBlendFactor(-0.5f, curve, gamma), 0.0f);
            EXPECT_EQ(kelmor::gl::edgeBlendFactor(std::nanf(""), curve, gamma), 0.0f);
            EXPECT_EQ(kelmor::gl::edgeBlendFactor(1.0f, curve, gamma), 1.0f);
            EXPECT_EQ(kelmor::gl::edgeBlendFactor(3.0f, curve, gamma), 1.0f);
        }
    // Half light at the middle before gamma correction; linear with curve 1.
    EXPECT_EQ(kelmor::gl::edgeBlendFactor(0.5f, 3.0f, 1.0f), 0.5f);
    EXPECT_FLOAT_EQ(kelmor::gl::edgeBlendFactor(0.3f, 1.0f, 1.0f), 0.3f);
    EXPECT_FLOAT_EQ(kelmor::gl::edgeBlendFactor(0.25f, 2.0f, 1.0f), 0.125f);
    EXPECT_FLOAT_EQ(kelmor::gl::edgeBlendFactor(0.5f, 2.0f, 2.0f), std::sqrt(0.5f));
}

TEST(EdgeBlend, RampIsMonotonic)
{
    for (float curve : {0.1f, 1.0f, 2.0f, 3.5f, 10.0f})
        for (float gamma : {0.5f, 1.0f, 2.2f}) {
            float previous = 0.0f;
            for (int k = 0; k <= 10000; ++k) {
                const float f = kelmor::gl::edgeBlendFactor(k / 10000.0f, curve, gamma);
                ASSERT_GE(f, previous) << "curve " << curve << " gamma " << gamma << " k " << k;
                ASSERT_LE(f, 1.0f);
                previous = f;
            }
        }
}

TEST(EdgeBlend, MirroredRampsAddUpToOne)
{
    for (float curve : {1.0f, 2.0f, 3.0f})
        for (int k = 0; k <= 64; ++k) {
            const float t = k / 64.0f; // 1 - t is exact
            EXPECT_NEAR(kelmor::gl::edgeBlendFactor(t, curve, 1.0f) + kelmor::gl::edgeBlendFactor(1.0f - t, curve, 1.0f),
                        1.0f, 1e-6f)
                << "curve " << curve << " t " << t;
            // With gamma correction the projected light (value^gamma) adds up.
            const float a = kelmor::gl::edgeBlendFactor(t, curve, 2.2f);
            const float b = kelmor::gl::edgeBlendFactor(1.0f - t, curve, 2.2f);
            EXPECT_NEAR(std::pow(a, 2.2) + std::pow(b, 2.2), 1.0, 1e-5) << "curve " << curve << " t " << t;
        }
}

TEST(EdgeBlend, BadCurveOrGammaIsClampedNotPropagated)
{
    const float f = kelmor::gl::edgeBlendFactor(0.3f, std::nanf(""), std::numeric_limits<float>::infinity());
    EXPECT_EQ(f, kelmor::gl::edgeBlendFactor(0.3f, 2.0f, 2.2f));
    EXPECT_EQ(kelmor::gl::edgeBlendFactor(0.3f, -4.0f, 100.0f), kelmor::gl::edgeBlendFactor(0.3f, 0.1f, 10.0f));
}

TEST(EdgeBlend, TableHas256SamplesOfTheRamp)
{
    const QVector<float> table = kelmor::gl::edgeBlendTable(2.0f, 2.2f);
    ASSERT_EQ(table.size(), 256);
    EXPECT_EQ(table.first(), 0.0f);
    EXPECT_EQ(table.last(), 1.0f);
    for (int k = 0; k < 256; ++k)
        EXPECT_EQ(table[k], kelmor::gl::edgeBlendFactor(k / 255.0f, 2.0f, 2.2f)) << k;
}

} // namespace
