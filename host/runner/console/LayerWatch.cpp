#include "console/LayerWatch.h"

#include "EventHub.h"
#include "OperationTable.h"

#include "AVPlayer.h"
#include "ScenePlayer.h"
#include "UI_Proc_KELMOR_PlayerTimer_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QTimer>

namespace {

constexpr int kTimerPlaying = 1201;
constexpr int kTimerPaused = 1202;
/// A clip paused this close to its start position counts as stopped there.
constexpr qint64 kAtStartMs = 60;

bool isTimed(const QString& type)
{
    return type != QLatin1String("video") && type != QLatin1String("audio");
}

} // namespace

LayerWatch::LayerWatch(EventHub& hub, QObject* parent) : QObject(parent), m_hub(hub)
{
    m_listener = addPlayerCreatedListener([this](QtAV::AVPlayer* player) { watch(player); });
    connect(&m_hub, &EventHub::occurred, this, &LayerWatch::onEvent);
    m_sampler = new QTimer(this);
    m_sampler->setInterval(kSampleMs);
    connect(m_sampler, &QTimer::timeout, this, &LayerWatch::sample);
}

LayerWatch::~LayerWatch()
{
    removePlayerCreatedListener(m_listener);
}

LayerWatch::Memo* LayerWatch::memoOf(QObject* player)
{
    const auto it = m_memos.find(player);
    return it == m_memos.end() ? nullptr : &it.value();
}

void LayerWatch::watch(QtAV::AVPlayer* player)
{
    if (!player || m_memos.contains(player))
        return;
    Memo memo;
    memo.player = player;
    m_memos.insert(player, memo);
    using P = QtAV::AVPlayer;
    connect(player, &P::loaded, this, [this, player] {
        if (Memo* m = memoOf(player)) {
            m->loaded = true;
            m->error = m->ended = m->stopped = false;
        }
    });
    connect(player, &P::playReadySucess, this, [this, player] {
        if (Memo* m = memoOf(player)) {
            m->ready = m->loaded = true;
            m->error = m->ended = m->stopped = m->sawPlaying = false;
        }
    });
    connect(player, &P::mediaError, this, [this, player] {
        if (Memo* m = memoOf(player))
            m->error = true;
    });
    connect(player, &P::stopped, this, [this, player] {
        Memo* m = memoOf(player);
        if (!m || isTimed(player->getMediaType()))
            return; // a timed item ends with its timer
        if (player->isPaused())
            m->stopped = true; // stopped from outside (a content change)
        else
            m->ended = true;   // the last pass ran out
    });
    connect(player, &P::positionChanged, this, [this, player] {
        if (Memo* m = memoOf(player)) {
            if (!player->isPaused())
                m->ended = m->stopped = false; // playing again
        }
    });
    connect(player, &P::fadeInFinished, this, [this, player] {
        if (Memo* m = memoOf(player))
            m->fade = 0;
    });
    connect(player, &P::fadeOutFinished, this, [this, player] {
        if (Memo* m = memoOf(player))
            m->fade = 0;
    });
    connect(player, &QObject::destroyed, this, [this, player] {
        m_memos.remove(player);
        if (m_memos.isEmpty())
            m_sampler->stop();
    });
    if (!m_sampler->isActive())
        m_sampler->start();
}

void LayerWatch::onEvent(const ShowEvent& event)
{
    const bool position = event.name == QLatin1String("sPositionChanged");
    const bool ended = event.name == QLatin1String("sendPlayerIndex");
    if (!position && !ended)
        return;
    const int layerId = event.args.value(QStringLiteral("layerId")).toInt();
    const int bankId = event.args.value(QStringLiteral("bankId")).toInt();
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    QtAV::AVPlayer* player = registry.getplayerByID(layerId, bankId);
    Memo* m = player ? memoOf(player) : nullptr;
    if (!m || !isTimed(player->getMediaType()))
        return;
    if (position) {
        const qint64 at = static_cast<qint64>(event.args.value(QStringLiteral("position")).toDouble());
        if (at > 0)
            m->lastProgress = at;
        return;
    }
    ScenePlayer* scene = registry.getScenePlayer(bankId, layerId);
    const qint64 length = scene && scene->playerTimer ? scene->playerTimer->getDuration() : 0;
    const bool ranOut = m->lastProgress >= length - kEndSlackMs;
    m->ended = ranOut;
    m->stopped = !ranOut;
    m->lastProgress = 0;
}

void LayerWatch::sample()
{
    for (Memo& m : m_memos) {
        if (!m.player)
            continue;
        const double now = m.player->pictureOpacity();
        if (m.opacity >= 0 && now != m.opacity) {
            if (now > m.opacity && now < 1.0)
                m.fade = 1;
            else if (now < m.opacity && now > 0.0)
                m.fade = -1;
        }
        m.opacity = now;
    }
}

LayerWatch::View LayerWatch::view(QtAV::AVPlayer* player, UI_Proc_KELMOR_PlayerTimer_Desktop* timer, bool timed)
{
    View v;
    if (!player) {
        v.state = QStringLiteral("gone");
        return v;
    }
    Memo* m = memoOf(player);
    if (!m) {
        watch(player); // a layer made before the watch began (or filed by hand)
        m = memoOf(player);
    }
    v.opacity = player->pictureOpacity();
    v.fade = m->fade > 0 ? QStringLiteral("in") : m->fade < 0 ? QStringLiteral("out") : QString();

    if (m->error) {
        v.state = QStringLiteral("error");
        return v;
    }
    if (timed) {
        const int play = timer ? timer->getPlayState() : 0;
        if (play == kTimerPlaying) {
            m->sawPlaying = true;
            m->ended = m->stopped = false;
            v.state = QStringLiteral("playing");
        } else if (play == kTimerPaused) {
            v.state = QStringLiteral("paused");
        }
    } else if (m->ended) {
        v.state = QStringLiteral("ended");
    } else if (m->stopped) {
        v.state = QStringLiteral("stopped");
    } else if (!player->isPaused()) {
        m->sawPlaying = true;
        v.state = QStringLiteral("playing");
    } else if (m->sawPlaying) {
        v.state = qAbs(player->position() - player->startPosition()) <= kAtStartMs ? QStringLiteral("stopped")
                                                                                   : QStringLiteral("paused");
    }
    if (!v.state.isEmpty())
        return v;
    if (m->ended)
        v.state = QStringLiteral("ended");
    else if (m->stopped)
        v.state = QStringLiteral("stopped");
    else if (m->ready)
        v.state = QStringLiteral("ready");
    else if (m->loaded)
        v.state = QStringLiteral("loaded");
    else
        v.state = QStringLiteral("created");
    return v;
}
