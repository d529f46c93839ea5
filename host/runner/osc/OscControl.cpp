#include "osc/OscControl.h"

#include "Console.h"
#include "EventHub.h"
#include "JsonLine.h"
#include "RunnerOptions.h"
#include "StepRunner.h"
#include "osc/BankSteps.h"
#include "osc/OscAddressMap.h"
#include "osc/OscDestination.h"
#include "osc/OscEncoder.h"
#include "osc/OscSocket.h"
#include "osc/OscStepSource.h"

#include <QDebug>
#include <iterator>

OscControl::OscControl(StepRunner& runner, EventHub& hub, HostSteps& host, QObject* parent)
    : QObject(parent), m_runner(runner), m_hub(hub)
{
    if (!banksteps::install(host))
        console::note(QStringLiteral("OscControl: a bank step's name was taken already"));
    m_socket = new OscSocket(this);
    connect(m_socket, &OscSocket::readable, this, &OscControl::readPending);
    // A quit stops the input at once; the steps already queued are dropped
    // by the runner's shutdown.
    connect(&m_runner, &StepRunner::quitRequested, this, &OscControl::stopInput);
    m_debugWindow.start();
}

bool OscControl::start(const RunnerOptions& options, QString& error)
{
    if (m_started) {
        error = QStringLiteral("OscControl::start: started already");
        return false;
    }
    if (options.oscPort < 0 || options.oscPort > 65535) {
        error = QStringLiteral("OscControl::start: port %1 out of range").arg(options.oscPort);
        return false;
    }
    if (!m_decoder.isReady()) {
        error = m_decoder.setupProblem();
        return false;
    }
    QHostAddress address;
    if (options.oscAddress == QLatin1String("localhost"))
        address = QHostAddress::LocalHost;
    else if (!address.setAddress(options.oscAddress)) {
        error = QStringLiteral("--osc-address: not an IP address: %1").arg(options.oscAddress);
        return false;
    }
    if (!m_allow.parse(options.oscAllow, error))
        return false;
    if (!address.isLoopback() && m_allow.isEmpty()) {
        error = QStringLiteral("--osc-address %1 is beyond loopback, and OSC senders cannot present a token: "
                               "name the networks that may send with --osc-allow ADDRESS/PREFIX")
                    .arg(options.oscAddress);
        return false;
    }
    if (options.oscSend.size() > OscSubscribers::kMaxSubscribers) {
        error = QStringLiteral("--osc-send: more than %1 destinations").arg(OscSubscribers::kMaxSubscribers);
        return false;
    }
    QVector<OscPeer> destinations;
    for (const QString& text : options.oscSend) {
        OscPeer peer;
        if (!parseOscDestination(text, peer, error))
            return false;
        const bool v4Socket = address.protocol() == QAbstractSocket::IPv4Protocol;
        if ((v4Socket && peer.address.protocol() != QAbstractSocket::IPv4Protocol)
            || (address.isLoopback() && !plainAddress(peer.address).isLoopback())) {
            error = QStringLiteral("--osc-send %1: the OSC socket on %2 cannot reach it (name an --osc-address "
                                   "that can)")
                        .arg(text, options.oscAddress);
            return false;
        }
        destinations.append(peer);
    }
    if (!m_socket->bind(address, quint16(options.oscPort), error))
        return false;

    m_started = true;
    m_defaultIntervalMs = options.positionIntervalMs;
    for (const OscPeer& peer : destinations)
        m_subscribers.add(peer, m_defaultIntervalMs);
    connect(&m_hub, &EventHub::occurred, this, &OscControl::onEvent);
    connect(&m_hub, &EventHub::printed, this, &OscControl::onPrinted);
    if (!m_allow.isEmpty())
        console::note(QStringLiteral("OSC on %1 takes datagrams from loopback and from %2")
                          .arg(options.oscAddress, m_allow.describe().join(QStringLiteral(", "))));
    JsonLine fields;
    fields.add(QStringLiteral("address"), m_socket->address().toString());
    fields.add(QStringLiteral("port"), m_socket->port());
    m_hub.printHostLine(QStringLiteral("oscListening"), fields);
    return true;
}

quint16 OscControl::port() const
{
    return m_started ? m_socket->port() : 0;
}

void OscControl::stopInput()
{
    m_inputStopped = true;
}

void OscControl::readPending()
{
    // At most kPacketsPerTurn now; the socket notifier fires again for the rest
    // after the event loop has run the show.
    QByteArray packet;
    OscPeer from;
    for (int n = 0; n < kPacketsPerTurn && m_socket->read(packet, from); ++n) {
        if (m_inputStopped)
            continue;
        if (!m_allow.allows(from.address)) {
            debugLine(QStringLiteral("OSC: datagram from %1 dropped: the sender is not in --osc-allow").arg(from.text()));
            continue;
        }
        takePacket(packet, from);
    }
}

void OscControl::takePacket(const QByteArray& packet, const OscPeer& from)
{
    QVector<OscMessage> messages;
    QString problem;
    if (!m_decoder.decode(packet, messages, problem)) {
        refuse(from, problem);
        return;
    }
    QVector<OscRoute> routes;
    routes.reserve(messages.size());
    for (const OscMessage& message : messages) {
        const OscRoute route = routeOscMessage(message);
        if (route.kind == OscRoute::Kind::Refused) {
            refuse(from, messages.size() > 1 ? route.problem + QStringLiteral(" (the whole bundle was refused)")
                                             : route.problem,
                   message.path);
            return;
        }
        routes.append(route);
    }
    applyRoutes(messages, routes, from);
}

bool OscControl::applyRoutes(const QVector<OscMessage>& messages, const QVector<OscRoute>& routes,
                             const OscPeer& from)
{
    int steps = 0;
    qint64 bytes = 0;
    for (const OscRoute& route : routes) {
        if (route.kind == OscRoute::Kind::Step) {
            ++steps;
            bytes += route.step.size();
        }
    }
    OscStepSource* source = nullptr;
    if (steps > 0) {
        source = sourceFor(from);
        if (!source->hasRoomFor(steps, bytes) || totalQueued() + bytes > kMaxTotalQueued) {
            refuse(from,
                   QStringLiteral("input queue full (%1 steps waiting from this sender; at most %2 steps or %3 MiB "
                                  "per sender and %4 MiB in all)")
                       .arg(source->queuedLines())
                       .arg(OscStepSource::kMaxLines)
                       .arg(OscStepSource::kMaxBytes >> 20)
                       .arg(kMaxTotalQueued >> 20),
                   messages.constFirst().path);
            return false;
        }
    }
    for (const OscRoute& route : routes) {
        switch (route.kind) {
        case OscRoute::Kind::Step: source->push(route.step); break;
        case OscRoute::Kind::Subscribe: subscribe(route, from); break;
        case OscRoute::Kind::Unsubscribe: unsubscribe(route, from); break;
        case OscRoute::Kind::Refused: break; // refused before
        }
    }
    return true;
}

OscStepSource* OscControl::sourceFor(const OscPeer& from)
{
    QPointer<OscStepSource> source = m_senders.value(from);
    if (!source) {
        m_senders.remove(from);
        for (auto it = m_senders.begin(); it != m_senders.end();) {
            it = it.value() ? std::next(it) : m_senders.erase(it); // retired by the runner
        }
        if (m_senders.size() >= kMaxSenders) {
            // The least recently heard sender makes room.
            auto oldest = m_senders.begin();
            for (auto it = m_senders.begin(); it != m_senders.end(); ++it) {
                if (it.value()->lastUsed < oldest.value()->lastUsed)
                    oldest = it;
            }
            OscStepSource* dropped = oldest.value();
            if (dropped->queuedLines() > 0)
                refuse(dropped->peer(), QStringLiteral("dropped for a newer OSC sender (at most %1); %2 steps not run")
                                            .arg(kMaxSenders)
                                            .arg(dropped->queuedLines()));
            debugLine(QStringLiteral("OSC: sender %1 dropped for %2 (at most %3 senders)")
                          .arg(dropped->peer().text(), from.text())
                          .arg(kMaxSenders));
            dropped->close();
            m_senders.erase(oldest);
        }
        source = new OscStepSource(from, m_socket);
        source->eventCursor = m_hub.nextSeq(); // waitFor looks at events from now on
        m_senders.insert(from, source);
        m_runner.addSource(source);
    }
    source->lastUsed = ++m_useCounter;
    return source;
}

qint64 OscControl::totalQueued() const
{
    qint64 total = 0;
    for (const QPointer<OscStepSource>& source : m_senders) {
        if (source)
            total += source->queuedBytes();
    }
    return total;
}

void OscControl::subscribe(const OscRoute& route, const OscPeer& from)
{
    OscPeer peer = from;
    if (route.port != 0)
        peer.port = quint16(route.port);
    const int interval = route.intervalMs >= 0 ? route.intervalMs : m_defaultIntervalMs;
    const OscSubscribers::Added added = m_subscribers.add(peer, interval);
    if (added == OscSubscribers::Added::Full) {
        refuse(from, QStringLiteral("too many OSC subscribers (at most %1)").arg(OscSubscribers::kMaxSubscribers),
               QByteArrayLiteral("/kelmor/subscribe"));
        return;
    }
    JsonLine line;
    line.add(QStringLiteral("t"), double(console::msSinceStart()));
    line.add(QStringLiteral("ok"), QStringLiteral("subscribe"));
    line.add(QStringLiteral("address"), plainAddress(peer.address).toString());
    line.add(QStringLiteral("port"), peer.port);
    line.add(QStringLiteral("intervalMs"), interval);
    line.add(QStringLiteral("subscribers"), m_subscribers.count());
    m_socket->sendLine(from, QByteArrayLiteral("/kelmor/reply"), line.toLine());
}

void OscControl::unsubscribe(const OscRoute& route, const OscPeer& from)
{
    OscPeer peer = from;
    if (route.port != 0)
        peer.port = quint16(route.port);
    const bool removed = m_subscribers.remove(peer);
    JsonLine line;
    line.add(QStringLiteral("t"), double(console::msSinceStart()));
    line.add(QStringLiteral("ok"), QStringLiteral("unsubscribe"));
    line.add(QStringLiteral("address"), plainAddress(peer.address).toString());
    line.add(QStringLiteral("port"), peer.port);
    line.add(QStringLiteral("removed"), removed);
    m_socket->sendLine(from, QByteArrayLiteral("/kelmor/reply"), line.toLine());
}

void OscControl::refuse(const OscPeer& to, const QString& problem, const QByteArray& path)
{
    JsonLine line;
    line.add(QStringLiteral("t"), double(console::msSinceStart()));
    line.add(QStringLiteral("error"), problem);
    if (!path.isEmpty())
        line.add(QStringLiteral("address"), describeOscPath(path));
    m_socket->sendLine(to, QByteArrayLiteral("/kelmor/error"), line.toLine());
    debugLine(QStringLiteral("OSC: from %1: %2").arg(to.text(), problem));
}

void OscControl::debugLine(const QString& text)
{
    if (m_debugWindow.elapsed() >= 1000) {
        if (m_debugSuppressed > 0)
            qDebug().noquote() << QStringLiteral("OSC: %1 more debug lines left out").arg(m_debugSuppressed);
        m_debugWindow.restart();
        m_debugLines = 0;
        m_debugSuppressed = 0;
    }
    if (++m_debugLines > kDebugLinesPerSecond) {
        ++m_debugSuppressed;
        return;
    }
    qDebug().noquote() << text;
}

void OscControl::onEvent(const ShowEvent& event)
{
    if (m_subscribers.isEmpty())
        return;
    const QVector<OscPeer> recipients = m_subscribers.recipients(event);
    if (recipients.isEmpty())
        return;
    const QByteArray packet = oscenc::encode(m_format.fromEvent(event));
    for (const OscPeer& peer : recipients)
        m_socket->send(peer, packet);
}

void OscControl::onPrinted(const QByteArray& line)
{
    if (m_subscribers.isEmpty())
        return;
    OscMessage message;
    if (!m_format.fromHostLine(line, message))
        return;
    const QByteArray packet = oscenc::encode(message);
    for (const OscPeer& peer : m_subscribers.all())
        m_socket->send(peer, packet);
}
