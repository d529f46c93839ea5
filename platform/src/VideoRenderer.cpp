// Renderer type names and the settings every renderer keeps.
#include "VideoRenderer.h"

#include <QByteArray>
#include <QList>
#include <cstring>
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

NameTable& nameTable()
{
    static NameTable table;
    return table;
}

} // namespace

VideoRenderer::~VideoRenderer() = default;

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
    QMutexLocker lock(&m_settingsMutex);
    m_frame = frame;
    return true;
}

VideoFrame VideoRenderer::currentFrame() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_frame;
}

void VideoRenderer::resizeRenderer(int width, int height)
{
    QMutexLocker lock(&m_settingsMutex);
    m_rendererSize = QSize(width, height);
}

QSize VideoRenderer::rendererSize() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_rendererSize;
}

void VideoRenderer::setRegionOfInterest(double x, double y, double width, double height)
{
    QMutexLocker lock(&m_settingsMutex);
    m_roi = QRectF(x, y, width, height);
}

QRectF VideoRenderer::regionOfInterest() const
{
    QMutexLocker lock(&m_settingsMutex);
    return m_roi;
}

void VideoRenderer::setPatchRoi(QVector<QRectF> regions)
{
    QMutexLocker lock(&m_settingsMutex);
    m_patchRoi = std::move(regions);
}

void VideoRenderer::setPatchCount(int count)
{
    QMutexLocker lock(&m_settingsMutex);
    m_patchCount = count;
}

void VideoRenderer::setPatchInfo(int rows, int cols, QVector<float> points)
{
    QMutexLocker lock(&m_settingsMutex);
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
