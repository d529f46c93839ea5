// The open output screens and the look-up from a screen-identity record.
#include "ScreenService.h"

#include "gl/Compositor.h"
#include "gl/GlContext.h"
#include "pipewire/ScreenPublisher.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QScreen>
#include <unistd.h>

ScreenService& ScreenService::getInstance()
{
    static ScreenService instance;
    return instance;
}

ScreenService::ScreenService(QObject* parent)
    : QObject(parent)
{
}

ScreenService::~ScreenService()
{
    // The application object outlives this only when the process ends
    // through exit() without leaving main (Qt's X11 platform does that when
    // its connection breaks): the display may be gone and Qt half torn down,
    // so recordings finish their files and everything else (GL objects,
    // windows) is left to the OS.
    if (QCoreApplication::instance()) {
        kelmor::gl::abandonSharedContext();
        m_published.clear(); // joins their PipeWire threads; GL buffers left to the OS
        if (m_compositor)
            m_compositor->finishRecordings();
        static_cast<void>(m_compositor.release());
        m_widgets.clear();
        return;
    }
    m_published.clear();
    m_compositor.reset();
    qDeleteAll(m_widgets);
}

kelmor::gl::Compositor* ScreenService::compositor()
{
    if (!m_compositor && qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        m_compositor = std::make_unique<kelmor::gl::Compositor>();
    return m_compositor.get();
}

namespace {

bool sameIdentity(const ScreenWidget* w, int id, int type, const QString& guid)
{
    return w->screenId() == id && w->screenType() == type && w->clientGuid() == guid;
}

} // namespace

ScreenWidget* ScreenService::openScreen(const ScreenInfo& info)
{
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (sameIdentity(w, info.screenId, info.screenType, info.clientGuid))
            return w;
    }
    if (m_renderThreadWanted && !m_renderThreadTried) {
        // The default: frames on the render thread from the first screen on
        // (a run without screens makes no GL context for it).
        setRenderThread(true);
    }
    auto* widget = new ScreenWidget(info);
    m_widgets.append(widget);
    if (kelmor::gl::Compositor* c = compositor())
        c->screenOpened(widget);
    qDebug() << "openScreen" << info.screenId << "type" << info.screenType << info.geometry
             << (info.offscreen ? "offscreen" : "windowed");
    emit screenOpened(info.screenId);
    return widget;
}

bool ScreenService::closeScreen(int screenId, int screenType, const QString& clientGuid)
{
    for (int i = 0; i < m_widgets.size(); ++i) {
        ScreenWidget* w = m_widgets.at(i);
        if (sameIdentity(w, screenId, screenType, clientGuid)) {
            m_widgets.removeAt(i);
            auto published = m_published.find(screenId);
            if (published != m_published.end() && screenById(screenId) == nullptr) {
                qDebug() << "closeScreen" << screenId << ": publication"
                         << published->second->nodeName() << "ended";
                if (m_compositor)
                    m_compositor->setOutputTap(w, nullptr);
                m_published.erase(published);
            }
            if (m_compositor)
                m_compositor->screenClosing(w);
            delete w; // the render objects it hosted are not its own
            emit screenClosed(screenId);
            return true;
        }
    }
    qDebug() << "closeScreen ignored: no open screen" << screenId << screenType << clientGuid;
    return false;
}

void ScreenService::closeAllScreens()
{
    while (!m_widgets.isEmpty()) {
        ScreenWidget* w = m_widgets.first();
        closeScreen(w->screenId(), w->screenType(), w->clientGuid());
    }
}

ScreenWidget* ScreenService::getScreenWidget(QMap<QString, QVariant> record)
{
    const int id = record.value(QStringLiteral("screenId")).toInt();
    const int type = record.value(QStringLiteral("screenType")).toInt();
    const QString guid = record.value(QStringLiteral("clientGuid")).toString();
    ScreenWidget* sameId = nullptr;
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (sameIdentity(w, id, type, guid))
            return w;
        if (!sameId && w->screenId() == id)
            sameId = w;
    }
    return sameId;
}

QMap<int, void*> ScreenService::getListOutput()
{
    QMap<int, void*> outputs;
    for (ScreenWidget* w : qAsConst(m_widgets)) {
        if (!outputs.contains(w->screenId()))
            outputs.insert(w->screenId(), w);
    }
    return outputs;
}

QList<ScreenWidget*> ScreenService::widgetList() const
{
    return m_widgets;
}

ScreenWidget* ScreenService::screenById(int screenId) const
{
    for (ScreenWidget* w : m_widgets) {
        if (w->screenId() == screenId)
            return w;
    }
    return nullptr;
}

QImage ScreenService::grabScreen(int screenId)
{
    ScreenWidget* widget = screenById(screenId);
    if (!widget) {
        qDebug() << "grabScreen: no open screen" << screenId;
        return QImage();
    }
    if (!m_compositor) {
        qDebug() << "grabScreen: screen" << screenId << "is not drawn (no OpenGL)";
        return QImage();
    }
    return m_compositor->grab(widget);
}

bool ScreenService::saveSnapshot(int screenId, const QString& path)
{
    const QImage picture = grabScreen(screenId);
    if (picture.isNull()) {
        qDebug() << "saveSnapshot: screen" << screenId << "has no picture; nothing written to" << path;
        return false;
    }
    const QFileInfo file(path);
    if (!file.absoluteDir().exists() && !QDir().mkpath(file.absolutePath())) {
        qDebug() << "saveSnapshot: cannot make the folder of" << path;
        return false;
    }
    if (!picture.save(path, "PNG")) {
        qDebug() << "saveSnapshot: cannot write" << path;
        return false;
    }
    return true;
}

bool ScreenService::startRecording(int screenId, const QString& path, int fps)
{
    ScreenWidget* widget = screenById(screenId);
    if (!widget || !m_compositor) {
        qDebug() << "startRecording: screen" << screenId << (widget ? "is not drawn" : "is not open");
        return false;
    }
    return m_compositor->startRecording(widget, path, fps);
}

bool ScreenService::startRecording(int screenId, int fd, const QString& path, int fps)
{
    ScreenWidget* widget = screenById(screenId);
    if (fd < 0 || !widget || !m_compositor) {
        qDebug() << "startRecording: screen" << screenId
                 << (fd < 0 ? "given no file" : widget ? "is not drawn" : "is not open");
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    return m_compositor->startRecording(widget, path, fps, fd);
}

void ScreenService::displayConnectionLost()
{
    qDebug() << "displayConnectionLost: no more drawing";
    kelmor::gl::abandonSharedContext();
}

bool ScreenService::stopRecording(int screenId)
{
    ScreenWidget* widget = screenById(screenId);
    if (!widget || !m_compositor) {
        qDebug() << "stopRecording: screen" << screenId << "is not recording";
        return false;
    }
    return m_compositor->stopRecording(widget);
}

void ScreenService::setPresentation(Presentation presentation)
{
    if (presentation != Presentation::Auto && presentation != Presentation::Vsync
        && presentation != Presentation::Immediate) {
        qDebug() << "setPresentation: unknown presentation" << int(presentation) << "ignored";
        return;
    }
    m_presentation = presentation;
}

ScreenService::Presentation ScreenService::presentation() const
{
    return m_presentation;
}

bool ScreenService::setRenderThread(bool on)
{
    if (!on) {
        if (kelmor::gl::renderThreadRunning())
            qDebug() << "setRenderThread: the render thread runs until the process ends; kept";
        else
            m_renderThreadWanted = false;
        return kelmor::gl::renderThreadRunning();
    }
    m_renderThreadWanted = true;
    m_renderThreadTried = true;
    compositor(); // frames are drawn by it: made first, on this thread
    return kelmor::gl::startRenderThread();
}

bool ScreenService::renderThread() const
{
    return kelmor::gl::renderThreadRunning();
}

bool ScreenService::presentsWithVsync(int screenId) const
{
    ScreenWidget* widget = screenById(screenId);
    return widget && m_compositor && m_compositor->presentsWithVsync(widget);
}

quint64 ScreenService::presentedFrames(int screenId) const
{
    ScreenWidget* widget = screenById(screenId);
    return widget && m_compositor ? m_compositor->presentedCount(widget) : 0;
}

quint64 ScreenService::drawnFrames(int screenId) const
{
    ScreenWidget* widget = screenById(screenId);
    return widget && m_compositor ? m_compositor->drawCount(widget) : 0;
}

quint64 ScreenService::droppedFrames(QtAV::AVPlayer* player) const
{
    return player && m_compositor ? m_compositor->droppedFrames(player) : 0;
}

QHash<QtAV::AVPlayer*, quint64> ScreenService::droppedFrameCounts() const
{
    return m_compositor ? m_compositor->droppedFrameCounts() : QHash<QtAV::AVPlayer*, quint64>();
}

void ScreenService::addPreview(QtAV::PreviewRenderer* preview)
{
    if (!preview || m_previews.contains(preview))
        return;
    m_previews.append(preview);
    compositor(); // previews are filled by the compositor
}

void ScreenService::removePreview(QtAV::PreviewRenderer* preview)
{
    m_previews.removeAll(preview);
    if (m_compositor)
        m_compositor->previewGone(preview);
}

QList<QtAV::PreviewRenderer*> ScreenService::previews() const
{
    return m_previews;
}

namespace {

/// The refresh rate a screen is drawn at: its monitor's, or 60 offscreen.
int screenRate(const ScreenWidget* widget)
{
    const QList<QScreen*> monitors = QGuiApplication::screens();
    const int monitor = widget->info().monitor;
    qreal hz = 60;
    if (!widget->info().offscreen && monitor >= 0 && monitor < monitors.size())
        hz = monitors.at(monitor)->refreshRate();
    return hz >= 20 && hz <= 240 ? qRound(hz) : 60;
}

bool acceptableNodeName(const QString& name)
{
    if (name.trimmed().isEmpty() || name.size() > 128)
        return false;
    for (QChar c : name) {
        if (c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

} // namespace

bool ScreenService::publishScreen(int screenId, const QString& nodeName)
{
    ScreenWidget* widget = screenById(screenId);
    if (!widget || !compositor()) {
        qDebug() << "publishScreen: screen" << screenId << (widget ? "is not drawn" : "is not open");
        return false;
    }
    if (!acceptableNodeName(nodeName)) {
        qDebug() << "publishScreen: screen" << screenId
                 << ": the node name must be 1 to 128 characters without control characters";
        return false;
    }
    for (const auto& entry : m_published) {
        if (entry.first != screenId && entry.second->nodeName() == nodeName) {
            qDebug() << "publishScreen: screen" << screenId << ": the name" << nodeName
                     << "is used by screen" << entry.first;
            return false;
        }
    }
    auto existing = m_published.find(screenId);
    if (existing != m_published.end()) {
        if (existing->second->nodeName() == nodeName)
            return true;
        m_compositor->setOutputTap(widget, nullptr);
        m_published.erase(existing);
    }
    auto publisher = std::make_unique<kelmor::pipewire::ScreenPublisher>(
        screenId, nodeName, widget->size(), screenRate(widget), [this, screenId] {
            ScreenWidget* shown = screenById(screenId);
            if (shown && m_compositor)
                m_compositor->redraw(shown);
        });
    if (!publisher->start()) {
        qDebug() << "publishScreen: screen" << screenId << ": PipeWire cannot be used";
        return false;
    }
    m_compositor->setOutputTap(widget, publisher.get());
    m_published[screenId] = std::move(publisher);
    qDebug() << "publishScreen: screen" << screenId << "as" << nodeName;
    return true;
}

bool ScreenService::unpublishScreen(int screenId)
{
    auto it = m_published.find(screenId);
    if (it == m_published.end()) {
        qDebug() << "unpublishScreen: screen" << screenId << "is not published";
        return false;
    }
    if (ScreenWidget* widget = screenById(screenId); widget && m_compositor)
        m_compositor->setOutputTap(widget, nullptr);
    m_published.erase(it);
    qDebug() << "unpublishScreen: screen" << screenId;
    return true;
}

QString ScreenService::publishedName(int screenId) const
{
    auto it = m_published.find(screenId);
    return it == m_published.end() ? QString() : it->second->nodeName();
}

const kelmor::pipewire::ScreenPublisher* ScreenService::publication(int screenId) const
{
    auto it = m_published.find(screenId);
    return it == m_published.end() ? nullptr : it->second.get();
}
