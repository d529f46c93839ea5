#include "osc/OscSubscribers.h"

#include "EventHub.h"

OscSubscribers::Added OscSubscribers::add(const OscPeer& peer, int intervalMs)
{
    for (Subscriber& subscriber : m_subscribers) {
        if (subscriber.peer == peer) {
            subscriber.intervalMs = qMax(0, intervalMs);
            subscriber.lastPosition.clear();
            return Added::Updated;
        }
    }
    if (m_subscribers.size() >= kMaxSubscribers)
        return Added::Full;
    Subscriber subscriber;
    subscriber.peer = peer;
    subscriber.intervalMs = qMax(0, intervalMs);
    m_subscribers.append(subscriber);
    return Added::New;
}

bool OscSubscribers::remove(const OscPeer& peer)
{
    for (int i = 0; i < m_subscribers.size(); ++i) {
        if (m_subscribers.at(i).peer == peer) {
            m_subscribers.removeAt(i);
            return true;
        }
    }
    return false;
}

QVector<OscPeer> OscSubscribers::recipients(const ShowEvent& event)
{
    QVector<OscPeer> out;
    const bool position = event.name == QLatin1String("sPositionChanged");
    const QPair<int, int> layer(event.args.value(QStringLiteral("bankId")).toInt(),
                                event.args.value(QStringLiteral("layerId")).toInt());
    for (Subscriber& subscriber : m_subscribers) {
        if (position && subscriber.intervalMs > 0) {
            const auto last = subscriber.lastPosition.constFind(layer);
            if (last != subscriber.lastPosition.constEnd() && event.t - last.value() < subscriber.intervalMs)
                continue;
            if (subscriber.lastPosition.size() >= kMaxLayersRemembered)
                subscriber.lastPosition.clear(); // layers come and go over a long show
            subscriber.lastPosition.insert(layer, event.t);
        }
        out.append(subscriber.peer);
    }
    return out;
}

QVector<OscPeer> OscSubscribers::all() const
{
    QVector<OscPeer> out;
    for (const Subscriber& subscriber : m_subscribers)
        out.append(subscriber.peer);
    return out;
}
