// Renderer type names and the settings every renderer keeps.
#include "VideoRenderer.h"

#include "AVPlayer.h"

#include <QByteArray>
#include <QList>
#include <cstring>
#include <atomic>
#include <mutex>

namespace QtAV {

const VideoRendererId VideoRendererId_NoxGL = 1;
const VideoRendererId VideoRendererId_QmlGL = 2;

namespace {

// The process's table of renderer type names; index + 1 is the id. Names are
// never removed, so the pointers name() hands out stay valid.
struct NameTable
{
    std::mutex mutex; // guards names
    QList<QByteArray> names{QByteArray("NoxGL"), QByteArray("QmlGL")};
};

// Revisions come from one process-wide counter: two renderers never share
// one, so a cache keyed by a renderer's address never mistakes a new renderer
// at a reused address for the old one.
quint64 nextRevision()
{
    static std::atomic<quint64> revisions{0};
    return ++revisions;
}

NameTable& nameTable()
{
    static NameTable table;
    return table;
}

} // namespace

VideoRenderer::VideoRenderer()
    : m_revision(nextRevision())
{
}

VideoRenderer::~VideoRenderer()
{
    // A renderer destroyed while a player still shows on it leaves that
    // player's list, so the player never reaches a deleted output.
    if (m_player)
        m_player->removeVideoRenderer(this);
}

VideoRenderer::SettingsWrite::SettingsWrite(VideoRenderer& renderer)
    : m_renderer(renderer)
{
    m_renderer.m_settingsMutex.lock();
}

VideoRenderer::SettingsWrite::~SettingsWrite()
{
    m_renderer.m_revision = nextRevision();
    std::function<void()> listener = m_renderer.m_listener;
    m_renderer.m_settingsMutex.unlock();
    if (listener)
        listener();
}

VideoRenderer::BaseSettings VideoRenderer::baseSettingsLocked() const
{
    BaseSettings s;
    s.revision = m_revision;
    s.frame = m_frame;
    s.receiveCount = m_receiveCount;
    s.roi = m_roi;
    s.patchRoi = m_patchRoi;
    s.patchCount = m_patchCount;
    s.patch = m_patchInfo;
    return s;
}

quint64 VideoRenderer::receiveCount() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_receiveCount;
}

AVPlayer* VideoRenderer::player() const
{
    return m_player;
}

quint64 VideoRenderer::settingsRevision() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_revision;
}

void VideoRenderer::setChangeListener(std::function<void()> listener)
{
    QMutexLocker lock(&m_settingsMutex);
    m_listener = std::move(listener);
}

const char* VideoRenderer::name(VideoRendererId id)
{
    NameTable& table = nameTable();
    std::lock_guard<std::mutex> lock(table.mutex);
    if (id < 1 || id > table.names.size())
        return nullptr;
    return table.names.at(id - 1).constData();
}

VideoRendererId VideoRenderer::registerName(const char* name)
{
    if (!name)
        return 0;
    NameTable& table = nameTable();
    std::lock_guard<std::mutex> lock(table.mutex);
    for (int i = 0; i < table.names.size(); ++i) {
        if (std::strcmp(table.names.at(i).constData(), name) == 0)
            return i + 1;
    }
    table.names.append(QByteArray(name));
    return table.names.size();
}

bool VideoRenderer::receive(const VideoFrame& frame)
{
    SettingsWrite write(*this);
    m_frame = frame;
    ++m_receiveCount;
    return true;
}

VideoFrame VideoRenderer::currentFrame() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_frame;
}

void VideoRenderer::resizeRenderer(int width, int height)
{
    SettingsWrite write(*this);
    m_rendererSize = QSize(width, height);
}

QSize VideoRenderer::rendererSize() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_rendererSize;
}

void VideoRenderer::setRegionOfInterest(double x, double y, double width, double height)
{
    SettingsWrite write(*this);
    m_roi = QRectF(x, y, width, height);
}

QRectF VideoRenderer::regionOfInterest() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_roi;
}

void VideoRenderer::setPatchRoi(QVector<QRectF> regions)
{
    SettingsWrite write(*this);
    m_patchRoi = std::move(regions);
}

void VideoRenderer::setPatchCount(int count)
{
    SettingsWrite write(*this);
    m_patchCount = count;
}

void VideoRenderer::setPatchInfo(int rows, int cols, QVector<float> points)
{
    SettingsWrite write(*this);
    m_patchInfo.rows = rows;
    m_patchInfo.cols = cols;
    m_patchInfo.points = std::move(points);
}

QVector<QRectF> VideoRenderer::patchRoi() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_patchRoi;
}

int VideoRenderer::patchCount() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_patchCount;
}

PatchInfo VideoRenderer::patchInfo() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_patchInfo;
}

} // namespace QtAV
