// The media player: its state, and its media work handed to the engine.
#include "AVPlayer.h"

#include "VideoRenderer.h"
#include "gl/PushedFrameSource.h"

#include <QDebug>
#include <QPointer>
#include <QStringList>

namespace QtAV {

// Turns the backend's reports into the player's signals (player's thread).
class AVPlayer::EventSink : public PlayerEventSink
{
public:
    explicit EventSink(AVPlayer* player) : m_player(player) {}
    AVPlayer* player() const override { return m_player; }
    void loaded() override { emit m_player->loaded(); }
    void stopped() override { emit m_player->stopped(); }
    void positionChanged(qint64 msec) override
    {
        m_player->m_position = msec;
        emit m_player->positionChanged(msec);
    }
    void fadeInFinished() override { emit m_player->fadeInFinished(); }
    void fadeOutFinished() override { emit m_player->fadeOutFinished(); }
    void playReadySucess() override { emit m_player->playReadySucess(); }
    void released() override { m_player->announceDeletion(); }
    void mediaError(const QString& path, const QString& reason) override
    {
        if (path.isEmpty() || reason.isEmpty())
            qDebug() << "mediaError: report without a path or a reason:" << path << reason;
        emit m_player->mediaError(path, reason);
    }

private:
    AVPlayer* m_player;
};

AVPlayer::AVPlayer(QObject* parent)
    : QObject(parent),
      m_sink(std::make_unique<EventSink>(this)),
      m_audio(std::make_unique<AudioOutput>()),
      m_clock(new AVClock(this)),
      m_pushed(std::make_unique<PushedFrameSource>())
{
    if (MediaEngine* engine = mediaEngine())
        m_backend = engine->createBackend(*m_sink);
    m_audio->attachBackend(m_backend.get());
    if (m_backend) {
        connect(m_clock, &AVClock::clockTypeChanged, this,
                [this](int type) { m_backend->setClockType(type); });
        connect(m_clock, &AVClock::externalClockUpdated, this,
                [this](qint64 ms) { m_backend->updateExternalClock(ms); });
    }
}

AVPlayer::~AVPlayer()
{
    for (VideoRenderer* r : qAsConst(m_outputs)) {
        if (r->m_player == this)
            r->m_player = nullptr;
    }
    m_audio->attachBackend(nullptr);
    m_backend.reset();
}

void AVPlayer::setPriority(const QVector<int>& ids)
{
    m_priority = ids;
    if (m_backend)
        m_backend->setDecoderPriority(ids);
}

void AVPlayer::setFile(const QString& path)
{
    m_file = path;
    m_position = 0;
    if (m_backend)
        m_backend->open(path);
}

void AVPlayer::setMediaType(const QString& type)
{
    m_mediaType = type;
    if (m_backend)
        m_backend->setMediaType(type);
}

void AVPlayer::addVideoRenderer(VideoRenderer* renderer)
{
    if (!renderer || m_outputs.contains(renderer))
        return;
    m_outputs.append(renderer);
    renderer->m_player = this; // a renderer shows one player: the last to add it
    if (m_backend)
        m_backend->outputsChanged(m_outputs);
}

bool AVPlayer::removeVideoRenderer(VideoRenderer* renderer)
{
    if (m_outputs.removeAll(renderer) == 0)
        return false;
    if (renderer->m_player == this)
        renderer->m_player = nullptr;
    if (m_backend)
        m_backend->outputsChanged(m_outputs);
    return true;
}

void AVPlayer::clearVideoRenderers()
{
    for (VideoRenderer* r : qAsConst(m_outputs)) {
        if (r->m_player == this)
            r->m_player = nullptr;
    }
    m_outputs.clear();
    if (m_backend)
        m_backend->outputsChanged(m_outputs);
}

void AVPlayer::pause(bool p)
{
    m_paused = p;
    if (m_backend)
        m_backend->setPaused(p);
}

void AVPlayer::stop()
{
    m_paused = true;
    m_position = 0;
    if (m_backend)
        m_backend->stop();
}

void AVPlayer::resetPlay(bool pause)
{
    m_position = m_startPosition;
    m_paused = pause;
    if (m_backend)
        m_backend->resetPlay(pause);
}

void AVPlayer::playReady(const QString& file, qint64 msec, bool isPause)
{
    m_file = file;
    m_position = msec;
    m_paused = isPause;
    if (m_backend)
        m_backend->playReady(file, msec, isPause);
}

void AVPlayer::playReady(qint64 msec, bool isPause)
{
    playReady(m_file, msec, isPause);
}

void AVPlayer::setPosition(qint64 msec)
{
    m_position = msec;
    if (m_backend)
        m_backend->seek(msec);
}

qint64 AVPlayer::position() const
{
    return m_backend ? m_backend->position() : m_position;
}

void AVPlayer::setStartPosition(qint64 msec)
{
    m_startPosition = msec;
    if (m_backend)
        m_backend->setStartPosition(msec);
}

void AVPlayer::setStopPosition(qint64 msec)
{
    m_stopPosition = msec;
    if (m_backend)
        m_backend->setStopPosition(msec);
}

void AVPlayer::setRepeat(int count)
{
    m_repeat = count;
    if (m_backend)
        m_backend->setRepeat(count);
}

void AVPlayer::setFadeIn(int msec)
{
    if (m_backend)
        m_backend->fadeIn(msec);
}

void AVPlayer::setFadeOut(int msec)
{
    if (m_backend)
        m_backend->fadeOut(msec);
}

bool AVPlayer::stopFadeIn()
{
    return m_backend && m_backend->stopFadeIn();
}

bool AVPlayer::stopFadeOut()
{
    return m_backend && m_backend->stopFadeOut();
}

void AVPlayer::updateFrame()
{
    if (m_backend)
        m_backend->updateFrame();
}

void AVPlayer::refreshUi()
{
    if (m_backend)
        m_backend->refreshUi();
}

void AVPlayer::pushFrame(const VideoFrame& frame)
{
    static_cast<PushedFrameSource*>(m_pushed.get())->push(frame);
}

VideoFrameSource* AVPlayer::frameSource() const
{
    if (m_released)
        return nullptr;
    static const QStringList pushedTypes{QStringLiteral("ndi"), QStringLiteral("virtualScreen"),
                                         QStringLiteral("spout")};
    VideoFrameSource* own = m_backend ? m_backend->frameSource() : nullptr;
    if (!own || pushedTypes.contains(m_mediaType))
        return m_pushed.get();
    return own;
}

double AVPlayer::pictureOpacity() const
{
    return m_backend ? m_backend->opacity() : 1.0;
}

void AVPlayer::releaseObj()
{
    if (m_released) {
        qDebug() << "releaseObj ignored: player already released" << this;
        return;
    }
    m_released = true;
    m_paused = true;
    if (m_backend)
        m_backend->release(); // reports released() when the media is let go
    else
        announceDeletion();
}

void AVPlayer::announceDeletion()
{
    // Emitted from the event loop, never from inside the caller's own call,
    // because whoever receives sig_deleteObj() may delete this player at once.
    // The queued call goes to a courier object rather than to the player, so
    // that nothing touches the player after the signal has returned.
    auto* courier = new QObject;
    courier->moveToThread(thread());
    QPointer<AVPlayer> self(this);
    QMetaObject::invokeMethod(
        courier,
        [courier, self] {
            if (self)
                emit self->sig_deleteObj();
            courier->deleteLater();
        },
        Qt::QueuedConnection);
}

PlayerStatistics AVPlayer::statistics() const
{
    return m_backend ? m_backend->statistics() : PlayerStatistics();
}

void AVPlayer::setTextureID(int textureId, int width, int height, QString sourceName)
{
    if (m_backend)
        m_backend->setTextureID(textureId, width, height, sourceName);
    // The texture is shown as a pushed frame; texture 0 or an empty size
    // blanks the picture. It belongs to the object that announced it, so the
    // picture is blanked when that object goes (its texture goes with it).
    QObject* feeder = sender();
    if (feeder && feeder != m_textureFeeder) {
        QObject::disconnect(m_feederGone);
        m_textureFeeder = feeder;
        m_feederGone = connect(feeder, &QObject::destroyed, this, [this] {
            m_textureFeeder = nullptr;
            pushFrame(VideoFrame());
        });
    }
    if (textureId > 0 && width > 0 && height > 0)
        pushFrame(VideoFrame::fromTexture(unsigned(textureId), QSize(width, height), false));
    else
        pushFrame(VideoFrame());
}

} // namespace QtAV
