// DropReport: tells the show's audience (stdout and every control client)
// when layers drop frames, once a second while they do, as a host line
//   {"t", "host": "drops", "layers": [{"bankId", "layerId", "dropped",
//    "total"}, ...]}
// "dropped": frames the layer had due on a screen but never showed since the
// previous line, "total": since the layer's player was made (the output
// screens' count, ScreenService::droppedFrames). Only layers that dropped
// since the previous line are listed, most drops first, at most kMaxLayers of
// them ("more": how many were left out); no line while nothing drops. A
// player the registry no longer holds is named bankId -1, layerId -1.
//
// Threading: GUI thread (a one-second timer; the counts are read there).
#pragma once

#include <QHash>
#include <QObject>
#include <QTimer>

class EventHub;

namespace QtAV { class AVPlayer; }

class DropReport : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxLayers = 32;
    static constexpr int kIntervalMs = 1000;

    /// Starts the once-a-second check.
    explicit DropReport(EventHub& hub, QObject* parent = nullptr);

    /// Checks now and prints a line if a layer dropped frames since the last
    /// check (the timer calls this).
    void check();

private:
    EventHub& m_hub;                            // outlives this object (main)
    QTimer m_timer;                             // GUI thread
    QHash<QtAV::AVPlayer*, quint64> m_reported; // GUI thread: player -> total at the last line
};
