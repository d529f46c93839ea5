// Effect settings of the output-screen compositor, read from the records the
// effects service keeps, and the soft-edge (edge blend) ramp.
//
// Threading: pure functions and plain value types without shared state; any
// thread may call them. Lifetime/ownership: everything is returned by value.
// Parsing logs (qDebug) what it ignores or clamps, once per call; the
// compositor parses when a record changes, not per frame.
//
// Record keys (QMap<QString, QVariant>; values are numbers or strings holding
// numbers; an absent key keeps its default):
//
//  Layer record (EffectsService::setEffectsObj), parsed by parseLayerEffects:
//    "opacity"     0..1     default 1   multiplies the layer's alpha
//    "brightness"  -1..1    default 0   added to each colour channel
//    "contrast"    0..4     default 1   scales each channel around mid grey 0.5
//    "saturation"  0..4     default 1   0 = grey, 1 = unchanged
//    "gamma"       0.1..10  default 1   output = input^(1/gamma)
//
//  Screen record (EffectsService::setMonitorEffects / setTP), parsed by
//  parseScreenEffects:
//    "blendLeft", "blendRight", "blendTop", "blendBottom"
//                  0..1e6   default 0   soft-edge width in screen pixels
//    "blendCurve"  0.1..10  default 2   shape exponent of the ramp (1 = linear)
//    "blendGamma"  0.1..10  default 2.2 projector gamma the ramp corrects for
//    "brightness"  -1..1    default 0   as in the layer record
//    "contrast"    0..4     default 1   as in the layer record
//    "testPattern" bool     default false  projector alignment pattern
//                  instead of the picture; true/false, a number (non-zero is
//                  true) or the strings true/false, yes/no, on/off, 1/0
//
//  Both records may also carry the identity keys "bankId", "layerId",
//  "screenId", "screenType" and "clientGuid"; they are accepted silently.
//
// Rules: a value that is not a number, or is NaN/inf, is ignored (the
// default stays) with the debug line "effects: <key> ignored: <why> (<kind>
// record)"; a value out of range is clamped with "effects: <key> clamped:
// <value> -> <clamped> (<kind> record)"; an unknown key is ignored with
// "effects: <key> ignored: unknown key (<kind> record)"; kind is "layer" or
// "screen".
#pragma once

#include "KelmorPlatformExport.h"

#include <QMap>
#include <QString>
#include <QVariant>
#include <QVector>

namespace kelmor {
namespace gl {

/// Per-layer colour effects; the defaults leave the picture unchanged.
struct KELMOR_PLATFORM_EXPORT LayerEffects
{
    float opacity = 1, brightness = 0, contrast = 1, saturation = 1, gamma = 1;
    /// True when every value is its default (the shader can skip the effects).
    bool isNeutral() const;
};

/// Per-screen effects: soft edges for projector overlaps, colour, test pattern.
struct KELMOR_PLATFORM_EXPORT ScreenEffects
{
    float blendLeft = 0, blendRight = 0, blendTop = 0, blendBottom = 0; // soft-edge widths in screen pixels
    float blendCurve = 2;    // shape exponent of the ramp (1 = linear)
    float blendGamma = 2.2f; // projector gamma the ramp is corrected for
    float brightness = 0, contrast = 1;
    bool testPattern = false; // projector alignment pattern instead of the picture
    /// True when any soft edge is wider than 0.
    bool hasBlend() const;
    /// True without soft edges, colour change or test pattern (the curve and
    /// gamma of the ramp do not matter then).
    bool isNeutral() const;
};

/// Reads a layer record (keys above); never fails.
KELMOR_PLATFORM_EXPORT LayerEffects parseLayerEffects(const QMap<QString, QVariant>& record);
/// Reads a screen record (keys above); never fails.
KELMOR_PLATFORM_EXPORT ScreenEffects parseScreenEffects(const QMap<QString, QVariant>& record);

/// The soft-edge attenuation at position t (0 = outer edge of the screen,
/// 1 = inner end of the soft edge): 0 at t <= 0 (and for NaN), 1 at t >= 1,
/// continuous and monotonically non-decreasing. Shape
/// f = t < 0.5 ? 0.5 (2t)^curve : 1 - 0.5 (2(1-t))^curve, so f(t) + f(1-t) = 1;
/// then gamma-corrected: result = f^(1/gamma), which the projector turns back
/// into light f. Two overlapping projectors with mirrored ramps thus add up to
/// constant light. curve and gamma are clamped to 0.1..10 (non-finite: 2 and
/// 2.2).
KELMOR_PLATFORM_EXPORT float edgeBlendFactor(float t, float curve, float gamma);

/// Samples of edgeBlendFactor at t = k / 255, k = 0..255 (the compositor
/// uploads them as a lookup texture).
KELMOR_PLATFORM_EXPORT QVector<float> edgeBlendTable(float curve, float gamma);

} // namespace gl
} // namespace kelmor
