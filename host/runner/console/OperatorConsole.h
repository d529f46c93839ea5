// OperatorConsole: the runner's operator console, a web page served by the
// runner itself (kelmor-show --http PORT), through which a browser watches
// and drives the show.
//
// It only turns messages into show steps and events into messages: each
// connected page is a step source of its own (ConsoleStepSource), every
// button of the page sends ordinary show steps, and every event and host
// line the runner prints goes to every page, so the console, stdin, TCP and
// OSC can never disagree. Besides, it adds the read-only "state" step
// (ShowState), which any source may use, sends each page a thumbnail of
// every open screen a few times a second (ScreenThumbnails) and answers
// requests for a full-size still of a screen.
//
// Access: 127.0.0.1 unless --http-address names another address; beyond
// loopback the runner's token is required (--token, or the one live
// control generated, or else one generated here and printed once on
// stderr), and with --token it is required on loopback too. See
// ConsoleServer and ConsoleAccess for the checks and limits.
//
// A page is greeted with {"t", "console": "hello", "client": N}; a page
// that missed events while it was not reading hears {"t", "console":
// "dropped", "events": N, "thumbnails": M} once it catches up.
//
// Threading: GUI thread. ConsoleServer's callbacks reach this object only
// through the Hooks below, which post to the GUI thread and return.
// Ownership: main owns it; the pages' sources belong to the runner.
#pragma once

#include "console/ConsoleServer.h"
#include "console/LayerWatch.h"
#include "console/ScreenThumbnails.h"
#include "console/ShowState.h"

#include <QHash>
#include <QObject>
#include <QPointer>

#include <memory>

class ConsoleStepSource;
class EventHub;
class HostSteps;
class StepRunner;

class OperatorConsole : public QObject, private ConsoleServer::Hooks
{
    Q_OBJECT
public:
    /// Adds the "state" step to `host`; serves nothing until start().
    OperatorConsole(StepRunner& runner, EventHub& hub, HostSteps& host, QObject* parent = nullptr);
    ~OperatorConsole() override;

    /// Serves the console on `address`:`port` (0: any free port) and prints
    /// {"t", "host": "console", "url", "address", "port"}. `operatorToken`:
    /// --token (empty: none); `liveControlToken`: the token live control
    /// has in force, used when no --token was given. False (and `error`)
    /// when the address, port, token or the page's folder cannot be used.
    bool start(const QString& address, int port, const QString& operatorToken, const AccessToken& liveControlToken,
               QString& error);
    /// Stops serving; every page is closed (what was queued for it still
    /// goes out first, as far as it can at once). At destruction, after the
    /// run ended: until then pages keep getting the shutdown's events, and
    /// the runner's closing of the sources closes them.
    void stop();
    quint16 port() const { return m_server.port(); }
    int pageCount() const { return int(m_clients.size()); }

private:
    // ConsoleServer::Hooks, on civetweb's threads: post and return.
    void clientJoined(std::shared_ptr<ConsoleClient> client) override;
    void clientInput(int clientId) override;
    void stillWanted(std::shared_ptr<ConsoleStill> still) override;

    void adopt(const std::shared_ptr<ConsoleClient>& client);
    void onInput(int clientId);
    void broadcast(const QByteArray& line);
    void sendThumbnail(int screenId, const QByteArray& message);
    void makeStill(const std::shared_ptr<ConsoleStill>& still);
    void prune();

    struct Page
    {
        std::shared_ptr<ConsoleClient> client;
        QPointer<ConsoleStepSource> source; // null once the runner retired it
    };

    // All fields: GUI thread.
    StepRunner& m_runner;
    EventHub& m_hub;
    LayerWatch m_layers;
    ShowState m_state;
    ScreenThumbnails m_thumbnails;
    QHash<int, Page> m_clients; // by client id
    ConsoleServer m_server;     // last: stopped (and its threads joined) before the rest goes
};
