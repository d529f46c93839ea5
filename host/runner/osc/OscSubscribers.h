// OscSubscribers: who receives the runner's events over OSC: the operator's
// --osc-send destinations and the senders that asked with /kelmor/subscribe
// (at their own address: a sender cannot direct events to a third party).
// At most kMaxSubscribers in all; a subscription lasts until
// /kelmor/unsubscribe or the end of the run.
//
// Position events (sPositionChanged) may be thinned per subscriber: at most
// one per layer every intervalMs (0: every one). Every other event and every
// host line goes to every subscriber.
//
// Threading: GUI thread.
#pragma once

#include "osc/OscSocket.h"

#include <QHash>
#include <QPair>
#include <QVector>

struct ShowEvent;

class OscSubscribers
{
public:
    static constexpr int kMaxSubscribers = 32;
    /// Layers whose last position time a subscriber keeps (then it starts over).
    static constexpr int kMaxLayersRemembered = 4096;

    enum class Added { New, Updated, Full };
    /// Adds `peer` (or changes its interval when it is there already).
    Added add(const OscPeer& peer, int intervalMs);
    bool remove(const OscPeer& peer);
    int count() const { return m_subscribers.size(); }
    bool isEmpty() const { return m_subscribers.isEmpty(); }

    /// Those `event` goes to now, thinning applied (and recorded) at time `t`.
    QVector<OscPeer> recipients(const ShowEvent& event);
    /// Every subscriber.
    QVector<OscPeer> all() const;

private:
    struct Subscriber
    {
        OscPeer peer;
        int intervalMs = 0;
        QHash<QPair<int, int>, qint64> lastPosition; // (bank, layer) -> t of the last position sent
    };
    QVector<Subscriber> m_subscribers; // GUI thread
};
