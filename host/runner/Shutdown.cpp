#include "Shutdown.h"

#include "AVPlayer.h"
#include "Console.h"
#include "ControlServer.h"
#include "HostSteps.h"
#include "LayerCleanup.h"
#include "OperationTable.h"
#include "Progress.h"
#include "ScreenService.h"
#include "ScreenSteps.h"
#include "StepRunner.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QGuiApplication>
#include <QTimer>

namespace {

constexpr int kPollMs = 20;
constexpr int kMaxPolls = 5000 / kPollMs; // give the players 5 s to go

bool playersGone()
{
    for (const QPointer<QtAV::AVPlayer>& player : createdPlayers()) {
        if (player)
            return false;
    }
    return true;
}

} // namespace

Shutdown::Shutdown(StepRunner& runner, HostSteps& host, ScreenSteps& screens,
                   ControlServer& server, Progress& progress, QObject* parent)
    : QObject(parent), m_runner(runner), m_host(host), m_screens(screens), m_server(server),
      m_progress(progress)
{
    m_poll = new QTimer(this);
    m_poll->setInterval(kPollMs);
    connect(m_poll, &QTimer::timeout, this, &Shutdown::poll);
}

void Shutdown::begin(int code)
{
    if (m_started)
        return;
    m_started = true;
    m_code = code;
    m_progress.stop();
    m_host.cancelWaits();
    m_runner.closeSources();
    m_server.close();
    m_screens.stopAllRecordings();

    // As a host ends: render objects off the screens, then the layers.
    refileRemovedLayers();
    removeRenderObjectsOfLiveLayers();
    UI_Proc_KELMOR_PlayersManage_Desktop::getInstance().clearAllPlayer();
    m_poll->start();
    poll();
}

void Shutdown::poll()
{
    if (!playersGone() && ++m_polls < kMaxPolls)
        return;
    m_poll->stop();
    if (!playersGone())
        console::note(QStringLiteral("some players were not released within 5 s; exiting anyway"));
    finish();
}

void Shutdown::finish()
{
    if (const int left = deleteRenderObjectsLeftOnScreens())
        console::note(QStringLiteral("%1 render object(s) of deleted layers were still on screens; destroyed")
                          .arg(left));
    ScreenService::getInstance().closeAllScreens();
    QGuiApplication::exit(m_code);
}
