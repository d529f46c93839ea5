#include "console/OperatorConsole.h"

#include "Console.h"
#include "EventHub.h"
#include "HostSteps.h"
#include "JsonLine.h"
#include "StepRunner.h"
#include "console/ConsoleClient.h"
#include "console/ConsoleStepSource.h"

#include "ScreenService.h"

#include <QTimer>

OperatorConsole::OperatorConsole(StepRunner& runner, EventHub& hub, HostSteps& host, QObject* parent)
    : QObject(parent),
      m_runner(runner),
      m_hub(hub),
      m_layers(hub),
      m_state(runner, host, m_layers),
      m_server(*this)
{
    if (!host.addStep(QStringLiteral("state"), [this](StepSource&, const Step& step) { return m_state.run(step); }))
        console::note(QStringLiteral("OperatorConsole: the \"state\" step is taken; the console pages cannot show the show"));
    connect(&m_hub, &EventHub::printed, this, &OperatorConsole::broadcast);
    connect(&m_thumbnails, &ScreenThumbnails::thumbnail, this, &OperatorConsole::sendThumbnail);
}

OperatorConsole::~OperatorConsole()
{
    stop();
}

bool OperatorConsole::start(const QString& address, int port, const QString& operatorToken,
                            const AccessToken& liveControlToken, QString& error)
{
    if (m_server.running()) {
        error = QStringLiteral("OperatorConsole::start: already serving");
        return false;
    }
    QHostAddress host;
    if (address == QLatin1String("localhost"))
        host = QHostAddress::LocalHost;
    else if (!host.setAddress(address)) {
        error = QStringLiteral("--http-address: not an IP address: %1").arg(address);
        return false;
    }
    if (port < 0 || port > 65535) {
        error = QStringLiteral("OperatorConsole::start: port %1 out of range").arg(port);
        return false;
    }
    AccessToken token;
    bool generated = false;
    if (!operatorToken.isEmpty()) {
        if (!AccessToken::fromText(operatorToken, token, error))
            return false;
    } else if (liveControlToken.isSet()) {
        token = liveControlToken;
    } else if (!host.isLoopback()) {
        token = AccessToken::generate();
        generated = true;
    }
    QString tried;
    const QString folder = ConsoleFiles::find(tried);
    if (folder.isEmpty()) {
        error = QStringLiteral("the console's page was not found (looked in %1; KELMOR_CONSOLE_DIR names another folder)")
                    .arg(tried);
        return false;
    }
    if (!m_server.start(host, port, token, folder, error))
        return false;

    const QString authority = host.protocol() == QAbstractSocket::IPv6Protocol
        ? QStringLiteral("[%1]:%2").arg(host.toString()).arg(m_server.port())
        : QStringLiteral("%1:%2").arg(host.toString()).arg(m_server.port());
    const QString url = QStringLiteral("http://%1/").arg(authority);
    if (generated) {
        // Shown once, on stderr only: stdout goes to every control client.
        console::note(QStringLiteral("the console serves beyond loopback, on %1: open %2?token=%3 (generated token)")
                          .arg(address, url, token.text()));
    } else if (token.isSet()) {
        console::note(QStringLiteral("the console on %1 requires the runner's token: open %2?token=TOKEN").arg(address, url));
    }
    JsonLine fields;
    fields.add(QStringLiteral("url"), url);
    fields.add(QStringLiteral("address"), host.toString());
    fields.add(QStringLiteral("port"), m_server.port());
    fields.add(QStringLiteral("token"), token.isSet());
    m_hub.printHostLine(QStringLiteral("console"), fields);
    console::note(QStringLiteral("console: %1 (from %2)").arg(url, folder));
    return true;
}

void OperatorConsole::stop()
{
    if (!m_server.running())
        return;
    for (Page& page : m_clients)
        page.client->close(QByteArray(), QStringLiteral("the runner is ending"), true);
    m_server.stop(); // every connection ends; every civetweb thread returned
    m_thumbnails.setActive(false);
}

// ---- civetweb's threads: post, nothing else ----

void OperatorConsole::clientJoined(std::shared_ptr<ConsoleClient> client)
{
    QMetaObject::invokeMethod(this, [this, client] { adopt(client); }, Qt::QueuedConnection);
}

void OperatorConsole::clientInput(int clientId)
{
    QMetaObject::invokeMethod(this, [this, clientId] { onInput(clientId); }, Qt::QueuedConnection);
}

void OperatorConsole::stillWanted(std::shared_ptr<ConsoleStill> still)
{
    QMetaObject::invokeMethod(this, [this, still] { makeStill(still); }, Qt::QueuedConnection);
}

// ---- GUI thread ----

void OperatorConsole::adopt(const std::shared_ptr<ConsoleClient>& client)
{
    if (m_runner.quitting() || !m_server.running()) {
        client->close(console::refusalLine(QStringLiteral("the runner is ending")), QStringLiteral("the runner is ending"));
        return;
    }
    auto* source = new ConsoleStepSource(client, QStringLiteral("console#%1 %2").arg(client->id()).arg(client->peer()));
    m_clients.insert(client->id(), Page{client, source});
    connect(source, &QObject::destroyed, this, [this] { QTimer::singleShot(0, this, &OperatorConsole::prune); });
    JsonLine hello;
    hello.add(QStringLiteral("t"), double(console::msSinceStart()));
    hello.add(QStringLiteral("console"), QStringLiteral("hello"));
    hello.add(QStringLiteral("client"), client->id());
    hello.add(QStringLiteral("source"), source->name());
    client->sendEvent(hello.toLine());
    m_runner.addSource(source);
    prune(); // thumbnails while some page wants them
    console::note(QStringLiteral("console: page %1 connected from %2").arg(client->id()).arg(client->peer()));
}

void OperatorConsole::onInput(int clientId)
{
    const auto it = m_clients.constFind(clientId);
    if (it == m_clients.constEnd())
        return;
    if (it->source)
        it->source->inputWaiting();
    else
        it->client->rearmWake();
    prune();
}

void OperatorConsole::prune()
{
    for (auto it = m_clients.begin(); it != m_clients.end();) {
        // Gone: the runner retired its source (every line ran) and the
        // connection ended.
        if (!it->source && it->client->inputEnded()) {
            console::note(QStringLiteral("console: page %1 left").arg(it->client->id()));
            it = m_clients.erase(it);
        } else {
            ++it;
        }
    }
    bool wanted = false;
    for (const Page& page : qAsConst(m_clients))
        wanted = wanted || (page.client->wantsThumbnails() && !page.client->closing());
    m_thumbnails.setActive(m_server.running() && wanted);
}

void OperatorConsole::broadcast(const QByteArray& line)
{
    for (const Page& page : qAsConst(m_clients))
        page.client->sendEvent(line);
}

void OperatorConsole::sendThumbnail(int screenId, const QByteArray& message)
{
    for (const Page& page : qAsConst(m_clients))
        page.client->sendThumbnail(screenId, message);
}

void OperatorConsole::makeStill(const std::shared_ptr<ConsoleStill>& still)
{
    const QImage image = ScreenService::getInstance().grabScreen(still->screenId);
    {
        std::lock_guard<std::mutex> lock(still->mutex);
        still->image = image;
        still->finished = true;
    }
    still->done.notify_all();
}
