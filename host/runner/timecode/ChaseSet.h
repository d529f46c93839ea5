// ChaseSet: the layers that follow timecode, and what each is told.
//
// A chased layer's media time is the timecode minus its "at". Each update
// (every timecode frame, and every 40 ms while the chase freewheels):
// - before "at", or before any timecode came: the layer is paused on its
//   first frame (once per entry into that state); a video is started 200 ms
//   before "at" with the media time (negative then) on the external clock,
//   and the engine holds the first frame until that time reaches it;
// - timecode running (or freewheeling): a video layer gets the media time
//   through the module's external clock (setSynchClock), and the engine
//   seeks on a large difference and trims its speed on a small one; a timed
//   item (a still, a page) is moved to the media time through its timer's
//   position (setProgressTimer) when the timer's own count is more than
//   60 ms off. Either is started with the module's play();
// - timecode stopped and freewheel over: the layer is paused.
// Layers are looked up through the registry at every update: a layer that is
// gone, or whose content no longer chases, leaves the set (a debug line).
//
// Kinds: "video" chases through the external clock; the timed items with a
// count of their own ("picture", "office" and the other kinds with a timer)
// through their timer. "audio" (which the external clock does not drive)
// and live sources (capture cards, network video, NDI, Spout, virtual
// screens) are refused.
//
// Threading: GUI thread; it calls the module's service and registry.
#pragma once

#include "timecode/Timecode.h"

#include <QHash>
#include <QPair>
#include <QString>

class ScenePlayer;

class ChaseSet
{
public:
    /// What the chases follow now.
    struct Clock
    {
        bool known = false;   ///< a timecode was ever locked
        bool run = false;     ///< running or freewheeling: layers play
        double tcNs = 0.0;    ///< the timecode now, ns since 00:00:00:00
        timecode::Rate rate = timecode::Rate::Fps25;
    };

    /// Layers chased at most.
    static constexpr int kMaxChases = 256;

    /// Starts (or re-aims) the chase of a layer; false and `problem` when the
    /// layer does not exist or cannot chase.
    bool add(int bankId, int layerId, const timecode::Label& at, const Clock& clock, QString& problem);
    /// Ends a chase (the layer keeps playing as it is, on its own clock);
    /// false when the layer was not chased.
    bool remove(int bankId, int layerId);
    /// Drops every chase without touching the layers (the run ends).
    void clear() { m_chases.clear(); }
    int size() const { return m_chases.size(); }

    void update(const Clock& clock);

private:
    enum class Phase { None, Holding, Playing, Paused };
    enum class Kind { Video, Timed };
    struct Chase
    {
        timecode::Label at;
        Phase phase = Phase::None;
        Kind kind = Kind::Video;
    };
    using Key = QPair<int, int>; // (bankId, layerId)

    /// The kind a layer chases as; false and `problem` when it cannot.
    static bool kindOf(const ScenePlayer* scene, int bankId, int layerId, Kind& kind, QString& problem);
    /// false when the chase is to end.
    bool updateOne(const Key& key, Chase& chase, const Clock& clock);
    void hold(const Key& key, Chase& chase, ScenePlayer& scene);
    void follow(Chase& chase, ScenePlayer& scene, double mediaMs);

    QHash<Key, Chase> m_chases; // GUI thread
};
