// LayerWatch: what each layer is doing, in an operator's words, for the
// "state" step: created, loaded, ready, playing, paused, stopped, ended (or
// error), and whether a fade is running.
//
// The module keeps no such state of its own (the play state lives in the
// player and in the timer of a timed item), so it is followed here from the
// players' own signals and the service's events, as a host would:
// - loaded(): "loaded"; playReadySucess(): "ready" (prepared, held);
// - mediaError(): "error" until the next load;
// - a clip (video, audio) plays while its player is not paused; its
//   stopped() while playing is the end of its last pass ("ended"), and a
//   clip paused at its start position after it played reads "stopped";
// - a timed item plays, pauses and stops with its timer (1201, 1202, 1200);
//   the service reports its end and a stop alike (sendPlayerIndex), told
//   apart here by where its progress last was: within kEndSlackMs of its
//   length is "ended", anywhere else "stopped";
// - fades: the picture's opacity is sampled every kSampleMs; rising below 1
//   is a fade in, falling above 0 a fade out, until the player reports the
//   fade finished.
//
// Threading: GUI thread (the players and the service emit there).
#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>

class EventHub;
class QTimer;
class UI_Proc_KELMOR_PlayerTimer_Desktop;
struct ShowEvent;

namespace QtAV { class AVPlayer; }

class LayerWatch : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 kEndSlackMs = 300;
    static constexpr int kSampleMs = 200;

    /// Follows every player a creatnewlayer step makes from now on.
    explicit LayerWatch(EventHub& hub, QObject* parent = nullptr);
    ~LayerWatch() override;

    /// Starts following `player` (null or followed already: nothing).
    void watch(QtAV::AVPlayer* player);

    struct View
    {
        QString state;   ///< created, loaded, ready, playing, paused, stopped, ended, error
        QString fade;    ///< "in", "out" or empty
        double opacity = 1.0;
    };
    /// `timer`: the layer's timer (null: none); `timed`: not a clip.
    View view(QtAV::AVPlayer* player, UI_Proc_KELMOR_PlayerTimer_Desktop* timer, bool timed);

private:
    struct Memo
    {
        QPointer<QtAV::AVPlayer> player;
        bool loaded = false;
        bool ready = false;
        bool error = false;
        bool sawPlaying = false;  // played since it was last made ready
        bool ended = false;
        bool stopped = false;
        qint64 lastProgress = 0;  // a timed item's last position above 0
        double opacity = -1;      // last sample; -1 before the first
        int fade = 0;             // +1 in, -1 out, 0 none
    };
    Memo* memoOf(QObject* player);
    void onEvent(const ShowEvent& event);
    void sample();

    // All fields: GUI thread.
    EventHub& m_hub;
    QHash<const QObject*, Memo> m_memos; // by player
    QTimer* m_sampler = nullptr;          // child; runs while players are followed
    int m_listener = 0;                   // the operation table's listener id
};
