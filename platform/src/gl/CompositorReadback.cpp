// Reading a screen's picture back: grabs, recordings and the output tap of a
// published screen.
#include "gl/Compositor.h"

#include "gl/GlContext.h"

#include <QDebug>
#include <unistd.h>

namespace kelmor::gl {

QImage Compositor::grab(ScreenWidget* widget)
{
    awaitRenderThread();
    Screen* screen = screenFor(widget);
    if (!screen || !screen->surface || !screen->surface->isValid())
        return QImage();
    drawHere();
    screen = screenFor(widget); // the frame drops screens the service closed
    if (!screen || !sharedContext())
        return QImage();
    ensureOutput(*screen);
    return screen->surface->readOutput();
}

bool Compositor::startRecording(ScreenWidget* widget, const QString& path, int fps, int fd)
{
    awaitRenderThread();
    Screen* screen = screenFor(widget);
    if (!screen || !screen->surface || !screen->surface->isValid() || !sharedContext()) {
        if (fd >= 0)
            ::close(fd);
        qDebug() << "startRecording: screen" << (widget ? widget->screenId() : -1)
                 << "cannot be drawn; nothing recorded";
        return false;
    }
    if (screen->recorder && screen->recorder->isRecording()) {
        qDebug() << "startRecording: screen" << widget->screenId() << "already records to"
                 << screen->recorder->path();
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    if (!screen->recorder)
        screen->recorder = std::make_unique<ScreenRecorder>();
    if (!screen->recorder->start(path, screen->surface->size(), fps, fd))
        return false;
    screen->recordClock.start();
    screen->forced = true; // the first picture at time 0
    drawHere();
    return true;
}

void Compositor::finishRecordings()
{
    awaitRenderThread();
    for (auto& s : m_screens) {
        if (s->recorder && s->recorder->isRecording())
            qDebug() << "finishRecordings: screen" << s->id << s->recorder->stop()
                     << "frames in" << s->recorder->path();
    }
}

bool Compositor::stopRecording(ScreenWidget* widget)
{
    awaitRenderThread();
    Screen* screen = screenFor(widget);
    if (!screen || !screen->recorder || !screen->recorder->isRecording())
        return false;
    // The picture on screen lasts until now.
    if (sharedContext()) {
        ensureOutput(*screen);
        screen->recorder->pushFrame(screen->surface->readOutput(), screen->recordClock.elapsed());
    }
    const int frames = screen->recorder->stop();
    qDebug() << "stopRecording: screen" << widget->screenId() << frames << "frames in"
             << screen->recorder->path();
    return true;
}

void Compositor::setOutputTap(ScreenWidget* widget, ScreenOutputTap* tap)
{
    awaitRenderThread();
    if (Screen* screen = screenFor(widget))
        screen->tap = tap;
}

} // namespace kelmor::gl
