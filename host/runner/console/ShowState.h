// ShowState: the "state" host step, a read-only picture of the show that any
// source may ask for (the console page asks when it connects and now and
// then; stdin and TCP get the very same answer):
//
//   {"op": "state"}  ->  {"t", "ok": "state", "line",
//     "layers":  [{"bankId", "layerId", "type", "path", "state", "position",
//                  "duration", "volume", "repeat", "fade", "opacity",
//                  "screens": [ids]}, ...]      ascending bank, then layer
//     "screens": [{"id", "type", "guid", "width", "height", "offscreen",
//                  "testPattern", "brightness", "effects": {record}}, ...]
//     "sources": [{"name", "primary", "steps", "of", "waiting":
//                  {"op", "line", "signal", "args", "ms"} or null}, ...]}
//
// Layers are those made by creatnewlayer steps and still filed in the
// registry. "position" is the player's (a clip) or the timer's (a timed
// item); "duration" the layer's play length as the show set it
// (timeLenMsec, setDuration); "volume" in percent as setVolumeState takes
// it; "state" and "fade" come from LayerWatch. A screen's testPattern and
// brightness are read from its own monitor-effect record, else from the
// all-screens (-1) one. "steps" counts the steps a source ran, "of" the
// steps of a show file (-1 for a stream).
//
// Threading: GUI thread.
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

#include <QJsonArray>

class HostSteps;
class LayerWatch;
class StepRunner;

class ShowState
{
public:
    ShowState(StepRunner& runner, HostSteps& host, LayerWatch& layers);

    /// The "state" step.
    StepOutcome run(const Step& step);

    QJsonArray layers() const;
    QJsonArray screens() const;
    QJsonArray sources() const;

private:
    // All fields: GUI thread; the objects outlive this one (main).
    StepRunner& m_runner;
    HostSteps& m_host;
    LayerWatch& m_layers;
};
