#include "console/ScreenThumbnails.h"

#include "PreviewRenderer.h"
#include "ScreenService.h"

#include <QBuffer>
#include <QRunnable>

#include <pthread.h>

ScreenThumbnails::ScreenThumbnails(QObject* parent) : QObject(parent)
{
    m_pool.setMaxThreadCount(1);
    m_pool.setExpiryTimeout(-1); // one thread for the console's life
    ScreenService& screens = ScreenService::getInstance();
    connect(&screens, &ScreenService::screenOpened, this, &ScreenThumbnails::sync);
    connect(&screens, &ScreenService::screenClosed, this, &ScreenThumbnails::sync);
}

ScreenThumbnails::~ScreenThumbnails()
{
    m_previews.clear();
    m_pool.waitForDone(); // results posted meanwhile are dropped with this object
}

QByteArray ScreenThumbnails::message(int screenId, const QByteArray& jpeg)
{
    QByteArray out;
    out.reserve(4 + jpeg.size());
    const quint32 id = quint32(screenId);
    out.append(char(id >> 24)).append(char(id >> 16)).append(char(id >> 8)).append(char(id));
    out.append(jpeg);
    return out;
}

void ScreenThumbnails::setActive(bool on)
{
    if (on == m_active)
        return;
    m_active = on;
    sync();
}

void ScreenThumbnails::sync()
{
    QSet<int> open;
    if (m_active) {
        for (ScreenWidget* widget : ScreenService::getInstance().widgetList())
            open.insert(widget->screenId());
    }
    for (auto it = m_previews.begin(); it != m_previews.end();) {
        if (open.contains(it->first)) {
            ++it;
            continue;
        }
        m_waiting.remove(it->first);
        it = m_previews.erase(it);
    }
    for (ScreenWidget* widget : ScreenService::getInstance().widgetList()) {
        const int id = widget->screenId();
        if (!open.contains(id) || m_previews.count(id))
            continue;
        const QSize size = widget->size();
        const int height = size.width() > 0 ? qBound(2, kWidth * size.height() / size.width(), kWidth) : kWidth * 9 / 16;
        auto preview = std::make_unique<QtAV::PreviewRenderer>();
        preview->resizeRenderer(kWidth, height);
        preview->setMaxRate(kRate);
        connect(preview.get(), &QtAV::PreviewRenderer::pictureChanged, this, [this, id] { onPicture(id); });
        preview->setScreenId(id);
        m_previews.emplace(id, std::move(preview));
    }
}

void ScreenThumbnails::onPicture(int screenId)
{
    const auto it = m_previews.find(screenId);
    if (it == m_previews.end())
        return;
    const QImage picture = it->second->picture();
    if (picture.isNull())
        return;
    if (m_encoding.contains(screenId)) {
        m_waiting.insert(screenId, picture); // the newest replaces an older one
        return;
    }
    encode(screenId, picture);
}

void ScreenThumbnails::encode(int screenId, const QImage& picture)
{
    m_encoding.insert(screenId);
    m_pool.start(QRunnable::create([this, screenId, picture] {
        // Named, so that its CPU time can be told apart (top -H, /proc).
        pthread_setname_np(pthread_self(), "console-jpeg");
        QByteArray jpeg;
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        if (!picture.save(&buffer, "JPEG", kJpegQuality))
            jpeg.clear();
        // This object outlives the job (its destructor waits for the pool);
        // a result posted while it is being destroyed is dropped with it.
        QMetaObject::invokeMethod(this, [this, screenId, jpeg] { encoded(screenId, jpeg); }, Qt::QueuedConnection);
    }));
}

void ScreenThumbnails::encoded(int screenId, const QByteArray& jpeg)
{
    m_encoding.remove(screenId);
    if (!jpeg.isEmpty() && m_previews.count(screenId)) {
        ++m_encoded;
        emit thumbnail(screenId, message(screenId, jpeg));
    }
    const auto waiting = m_waiting.find(screenId);
    if (waiting != m_waiting.end()) {
        const QImage next = waiting.value();
        m_waiting.erase(waiting);
        encode(screenId, next);
    }
}
