// OscAddressMap: what an OSC message asks of the runner. Show steps are
// built as the JSON text a show file or a TCP client would send, so they go
// through the same parser, checks and replies as every other step.
//
//   /kelmor/step <json string>                 the step as written
//   /kelmor/layer/<bank>/<layer>/play          {"op": "play", "args": [{"bank", "layer"}]}
//                               /pause /stop   likewise
//                               /ready [ms] [paused]   playReady (ms 0, paused true)
//                               /seek ms       setPosition
//                               /volume pct    setVolumeState, effect 7603
//                               /fadein ms     setFadeInOut (fade-out false)
//                               /fadeout ms    setFadeInOut (fade-out true)
//                               /repeat count  setRepeat
//                               /opacity 0..1  setEffectsObj {"bankId", "opacity"}
//                               /visible b     setWidgetRenderVisible
//   /kelmor/bank/<bank>/ready [ms]             {"op": "readyBank", "bank", "ms"}
//                       /play /stop            {"op": "playBank"|"stopBank", "bank"}
//   /kelmor/subscribe [port] [intervalMs]      events to the sender's address
//   /kelmor/unsubscribe [port]
//
// Arguments: integers as 'i' or 'h' (or a real that is a whole number, as
// faders send); numbers as any of 'i' 'h' 'f' 'd'; booleans as 'T'/'F' or a
// number (0 false). Anything else, a missing or extra argument, an unknown
// address or an OSC pattern (wildcards are not expanded) is refused with a
// reason.
//
// Threading: any (a pure function).
#pragma once

#include "OscMessage.h"

#include <QByteArray>
#include <QString>

struct OscRoute
{
    enum class Kind { Step, Subscribe, Unsubscribe, Refused };
    Kind kind = Kind::Refused;
    QByteArray step;     ///< Step: the show step's JSON text
    int port = 0;        ///< Subscribe, Unsubscribe: 0 names the sender's own port
    int intervalMs = -1; ///< Subscribe: position thinning; -1: the runner's default
    QString problem;     ///< Refused: why
};

OscRoute routeOscMessage(const OscMessage& message);

/// An address as it may appear in an error line (at most 128 characters).
QString describeOscPath(const QByteArray& path);
