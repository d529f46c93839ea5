#include "LayerController.h"

#include "MediaProbe.h"

#include <AVPlayer.h>
#include <ScreenService.h>
#include <UI_Proc_KELMOR_Player_Desktop.h>
#include <UI_Proc_KELMOR_PlayersManage_Desktop.h>

#include <QDebug>
#include <QMap>
#include <QVariant>

namespace {

using Record = QMap<QString, QVariant>;

constexpr int kReleasePollMs = 20;
constexpr int kMaxReleasePolls = 5000 / kReleasePollMs; // the module gets 5 s

UI_Proc_KELMOR_Player_Desktop& service() { return UI_Proc_KELMOR_Player_Desktop::getInstance(); }
UI_Proc_KELMOR_PlayersManage_Desktop& registry()
{
    return UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
}

Record layerKey()
{
    return {{QStringLiteral("bankId"), LayerController::kBankId},
            {QStringLiteral("layerId"), LayerController::kLayerId}};
}

// The layer over the whole screen: the picture's original size, its
// placement and its region of interest are all the screen's size, so the
// whole picture is scaled onto the whole screen whatever its own size.
Record fillScreenRecord(const QSize& size)
{
    Record r = layerKey();
    r.insert(QStringLiteral("screenId"), LayerController::kScreenId);
    r.insert(QStringLiteral("screenType"), 0);
    r.insert(QStringLiteral("clientGuid"), QString());
    for (const char* key : {"frameX", "frameY", "rendererX", "rendererY", "relativeX", "relativeY",
                            "layerRotation"})
        r.insert(QLatin1String(key), 0);
    for (const char* key : {"crossWidth", "originalWidth", "actualWidth"})
        r.insert(QLatin1String(key), size.width());
    for (const char* key : {"crossHeight", "originalHeight", "actualHeight"})
        r.insert(QLatin1String(key), size.height());
    for (const char* key : {"isScal", "isRotation", "isFill"})
        r.insert(QLatin1String(key), false);
    return r;
}

} // namespace

LayerController::LayerController(QObject* parent) : QObject(parent)
{
    m_releasePoll.setInterval(kReleasePollMs);
    connect(&m_releasePoll, &QTimer::timeout, this, &LayerController::pollRelease);
    connectService();
}

LayerController::~LayerController() = default;

void LayerController::connectService()
{
    // The service reports every layer of every bank; this host has one.
    UI_Proc_KELMOR_Player_Desktop* s = &service();
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sPositionChanged, this,
            [this](int layerId, int bankId, qint64 msec) {
                if (layerId == kLayerId && bankId == kBankId)
                    emit positionChanged(msec);
            });
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sendLoadAllComple, this, [this](int layerId) {
        if (layerId == kLayerId)
            emit status(QStringLiteral("sendLoadAllComple: layer %1 loaded").arg(layerId));
    });
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sPlayReady, this, [this](int bankId) {
        if (bankId != kBankId || m_file.isEmpty())
            return;
        emit status(QStringLiteral("sPlayReady: bank %1 ready").arg(bankId));
        emit ready();
    });
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sendPlayerIndex, this, [this](int layerId, int bankId) {
        if (layerId != kLayerId || bankId != kBankId)
            return;
        emit status(QStringLiteral("sendPlayerIndex: layer %1 of bank %2 ended").arg(layerId).arg(bankId));
        emit itemEnded();
    });
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sFadeinFinished, this, [this] {
        emit status(QStringLiteral("sFadeinFinished"));
        emit fadeFinished(false);
    });
    connect(s, &UI_Proc_KELMOR_Player_Desktop::sFadeoutFinished, this, [this] {
        emit status(QStringLiteral("sFadeoutFinished"));
        emit fadeFinished(true);
    });
}

bool LayerController::openScreen(const QRect& geometry, bool offscreen, QString& error)
{
    if (!m_screenGeometry.isNull()) {
        error = QStringLiteral("openScreen: the output screen is open already");
        return false;
    }
    if (geometry.width() < 1 || geometry.height() < 1) {
        error = QStringLiteral("openScreen: empty geometry");
        return false;
    }
    ScreenInfo info;
    info.screenId = kScreenId;
    info.geometry = geometry;
    info.monitor = -1; // a window at the geometry, not fullscreen
    info.offscreen = offscreen;
    ScreenWidget* widget = ScreenService::getInstance().openScreen(info);
    if (!widget) {
        error = QStringLiteral("openScreen: screen %1 could not be opened").arg(kScreenId);
        return false;
    }
    m_screenGeometry = widget->geometry();
    emit status(QStringLiteral("screen %1 open, %2x%3 %4")
                    .arg(kScreenId)
                    .arg(m_screenGeometry.width())
                    .arg(m_screenGeometry.height())
                    .arg(widget->info().offscreen ? QStringLiteral("offscreen") : QStringLiteral("window")));
    return true;
}

QtAV::AVPlayer* LayerController::player(const char* operation) const
{
    if (m_shuttingDown || !m_player || m_file.isEmpty()) {
        qDebug().noquote() << QStringLiteral("LayerController::%1: nothing loaded; ignored").arg(QLatin1String(operation));
        return nullptr;
    }
    return m_player.data();
}

bool LayerController::makeLayer(const QString& path, QString& error)
{
    Record layer = layerKey();
    layer.insert(QStringLiteral("path"), path);
    layer.insert(QStringLiteral("groupID"), 1);
    layer.insert(QStringLiteral("type"), QStringLiteral("video"));
    layer.insert(QStringLiteral("timeLenMsec"), m_lengthMs > 0 ? m_lengthMs : 0);
    layer.insert(QStringLiteral("isSetPr"), false); // the engine's own decoder choice
    service().creatnewlayer(layer);

    QtAV::AVPlayer* made = registry().getplayerByID(kLayerId, kBankId);
    if (!made) {
        error = QStringLiteral("load: the module made no layer %1 in bank %2").arg(kLayerId).arg(kBankId);
        return false;
    }
    m_player = made;
    m_layerMade = true;
    // Reported from the event loop, so connecting after the source was
    // opened still hears of it; the player keeps the connection across
    // content changes.
    connect(made, &QtAV::AVPlayer::mediaError, this, [this](const QString& file, const QString& reason) {
        emit status(QStringLiteral("mediaError: %1: %2").arg(file, reason));
        emit mediaFailed(file, reason);
    });
    service().setLayerMediaType(made, QStringLiteral("video"));
    service().addRenderer(fillScreenRecord(m_screenGeometry.size()));
    if (service().getRendererCount(made) < 1) {
        error = QStringLiteral("load: the layer has no render object on screen %1").arg(kScreenId);
        return false;
    }
    return true;
}

bool LayerController::load(const QString& path, QString& error)
{
    if (m_shuttingDown) {
        error = QStringLiteral("load: shutting down");
        return false;
    }
    if (m_screenGeometry.isNull()) {
        error = QStringLiteral("load: no output screen is open");
        return false;
    }
    if (path.isEmpty()) {
        error = QStringLiteral("load: no file given");
        return false;
    }
    m_lengthMs = probeDurationMs(path);
    if (!m_layerMade) {
        if (!makeLayer(path, error))
            return false;
    } else {
        const Record content{{QStringLiteral("type"), QStringLiteral("video")},
                             {QStringLiteral("videoPath"), path},
                             {QStringLiteral("timeLenMsec"), m_lengthMs > 0 ? m_lengthMs : 1000}};
        service().changeLayerContent(kLayerId, kBankId, content);
    }
    m_file = path;
    emit loaded(path, m_lengthMs);

    // Prepared at its start and held: the first picture is on the screen and
    // sPlayReady comes for the bank.
    service().setCurPlayerCount(kBankId);
    service().playReady(m_player.data(), 0, true);
    return true;
}

void LayerController::play()
{
    QtAV::AVPlayer* target = player("play");
    if (!target)
        return;
    service().play(target);
    emit status(QStringLiteral("playing"));
}

void LayerController::pause()
{
    QtAV::AVPlayer* target = player("pause");
    if (!target)
        return;
    service().pause(target);
    emit status(QStringLiteral("paused"));
}

void LayerController::stop()
{
    QtAV::AVPlayer* target = player("stop");
    if (!target)
        return;
    // The service's stop() only pauses a video layer; a host's Stop button
    // also goes back to the start.
    service().resetPlay(target, true);
    emit positionChanged(0);
    emit status(QStringLiteral("stopped"));
}

void LayerController::fade(bool fadeOut, int msec)
{
    QtAV::AVPlayer* target = player("fade");
    if (!target)
        return;
    if (msec < 0) {
        qDebug() << "LayerController::fade: negative length" << msec << "refused";
        return;
    }
    // The finished signal counts every fade of its kind since the reset: this
    // host runs one at a time.
    if (fadeOut)
        service().initFinishedFadeOut();
    else
        service().initFinishedFadeIn();
    service().setFadeInOut(target, fadeOut, msec);
    emit status(QStringLiteral("fading %1 over %2 ms").arg(fadeOut ? QStringLiteral("out") : QStringLiteral("in")).arg(msec));
}

void LayerController::seek(qint64 msec)
{
    QtAV::AVPlayer* target = player("seek");
    if (!target)
        return;
    if (msec < 0) {
        qDebug() << "LayerController::seek: negative position" << msec << "refused";
        return;
    }
    service().setPosition(kBankId, kLayerId, msec);
}

bool LayerController::saveSnapshot(const QString& path, QString& error)
{
    if (m_screenGeometry.isNull()) {
        error = QStringLiteral("saveSnapshot: no output screen is open");
        return false;
    }
    if (!ScreenService::getInstance().saveSnapshot(kScreenId, path)) {
        error = QStringLiteral("saveSnapshot: screen %1 could not be saved to %2 (nothing drawn, or the file "
                               "cannot be written)")
                    .arg(kScreenId)
                    .arg(path);
        return false;
    }
    return true;
}

void LayerController::shutdown()
{
    if (m_shuttingDown)
        return;
    m_shuttingDown = true;
    if (m_layerMade) {
        // Render objects off the screen first, then the layer; the player's
        // release ends over a few event-loop turns and the service deletes it.
        service().delLayerAllRenderer(kBankId, kLayerId, true);
        registry().deleteplayerByID(layerKey());
        m_layerMade = false;
    }
    m_releasePolls = 0;
    m_releasePoll.start();
    pollRelease();
}

void LayerController::pollRelease()
{
    if (m_player && ++m_releasePolls < kMaxReleasePolls)
        return;
    m_releasePoll.stop();
    if (m_player)
        qDebug() << "LayerController::shutdown: the player was not released within 5 s";
    finishShutdown();
}

void LayerController::finishShutdown()
{
    if (!m_screenGeometry.isNull()) {
        ScreenService::getInstance().closeScreen(kScreenId, 0, QString());
        m_screenGeometry = QRect();
    }
    m_file.clear();
    // Never inside the caller's own stack: the receiver may end the program.
    QTimer::singleShot(0, this, &LayerController::shutDownFinished);
}
