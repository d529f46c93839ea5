#include "ScreenSteps.h"

#include "Console.h"
#include "EventHub.h"
#include "ScreenService.h"
#include "StepFields.h"

#include <QFile>
#include <QImage>
#include <QTimer>

namespace {

constexpr int kMaxScreenSide = 16384;
constexpr int kMaxRecordMs = 24 * 3600 * 1000;

ScreenService& screens() { return ScreenService::getInstance(); }

} // namespace

ScreenSteps::ScreenSteps(const QString& outDir, bool defaultOffscreen, EventHub& hub,
                         QObject* parent)
    : QObject(parent), m_paths(outDir), m_defaultOffscreen(defaultOffscreen), m_hub(hub)
{
}

bool ScreenSteps::offscreen() const
{
    return m_defaultOffscreen || !m_offscreenIds.isEmpty();
}

StepOutcome ScreenSteps::openScreen(const Step& step)
{
    StepFields f(step, {QStringLiteral("id"), QStringLiteral("type"), QStringLiteral("guid"),
                        QStringLiteral("x"), QStringLiteral("y"), QStringLiteral("width"),
                        QStringLiteral("height"), QStringLiteral("monitor"),
                        QStringLiteral("offscreen"), QStringLiteral("windowed")});
    ScreenInfo info;
    info.screenId = f.integer("id", 0, INT_MIN, INT_MAX, true);
    info.screenType = f.integer("type", 0);
    info.clientGuid = f.string("guid");
    const int x = f.integer("x", 0, -kMaxScreenSide, kMaxScreenSide);
    const int y = f.integer("y", 0, -kMaxScreenSide, kMaxScreenSide);
    const int width = f.integer("width", 1920, 1, kMaxScreenSide);
    const int height = f.integer("height", 1080, 1, kMaxScreenSide);
    info.geometry = QRect(x, y, width, height);
    info.monitor = f.integer("monitor", -1, -1, 64);
    bool offscreen = m_defaultOffscreen;
    if (f.has("offscreen") && f.has("windowed")
        && f.boolean("offscreen", false) == f.boolean("windowed", false))
        return StepOutcome::error(QStringLiteral("\"offscreen\" and \"windowed\" contradict each other"));
    if (f.has("offscreen"))
        offscreen = f.boolean("offscreen", offscreen);
    if (f.has("windowed"))
        offscreen = !f.boolean("windowed", !offscreen);
    info.offscreen = offscreen;
    if (!f.ok())
        return StepOutcome::error(f.problem());

    ScreenWidget* widget = screens().openScreen(info);
    if (!widget)
        return StepOutcome::error(QStringLiteral("screen %1 could not be opened").arg(info.screenId));
    if (widget->info().offscreen)
        m_offscreenIds.insert(info.screenId);
    noteWhereFramesAreDrawn();
    JsonLine extra;
    extra.add(QStringLiteral("screen"), info.screenId);
    extra.add(QStringLiteral("offscreen"), widget->info().offscreen);
    extra.add(QStringLiteral("width"), widget->size().width());
    extra.add(QStringLiteral("height"), widget->size().height());
    return StepOutcome::ok(extra);
}

void ScreenSteps::noteWhereFramesAreDrawn()
{
    if (m_noted)
        return;
    m_noted = true;
    console::note(screens().renderThread()
                      ? QStringLiteral("output frames are drawn on a render thread")
                      : QStringLiteral("output frames are drawn on the GUI thread"));
}

StepOutcome ScreenSteps::closeScreen(const Step& step)
{
    StepFields f(step, {QStringLiteral("id"), QStringLiteral("type"), QStringLiteral("guid")});
    const int id = f.integer("id", 0, INT_MIN, INT_MAX, true);
    const int type = f.integer("type", 0);
    const QString guid = f.string("guid");
    if (!f.ok())
        return StepOutcome::error(f.problem());

    // A recording of this screen ends before the screen does.
    ScreenWidget* first = screens().screenById(id);
    if (m_recordings.contains(id) && first && first->screenType() == type
        && first->clientGuid() == guid)
        finishRecording(id, true);
    if (!screens().closeScreen(id, type, guid))
        return StepOutcome::error(
            QStringLiteral("unknown screen %1 (type %2, guid \"%3\")").arg(id).arg(type).arg(guid));
    if (!screens().screenById(id))
        m_offscreenIds.remove(id);
    return StepOutcome::ok();
}

StepOutcome ScreenSteps::snapshot(const Step& step)
{
    StepFields f(step, {QStringLiteral("screen"), QStringLiteral("path"), QStringLiteral("overwrite")});
    const int id = f.integer("screen", 0, INT_MIN, INT_MAX, true);
    const QString path = f.string("path", QString(), true);
    const bool overwrite = f.boolean("overwrite", false);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    if (path.isEmpty())
        return StepOutcome::error(QStringLiteral("\"path\": empty"));
    if (!screens().screenById(id))
        return StepOutcome::error(QStringLiteral("unknown screen %1").arg(id));

    // The picture first, so that a screen with none leaves no file behind.
    const QImage picture = screens().grabScreen(id);
    if (picture.isNull())
        return StepOutcome::error(QStringLiteral("screen %1 has no picture (not drawn)").arg(id));
    OutputFile file;
    QString why;
    if (!m_paths.open(path, overwrite, file, why))
        return StepOutcome::error(QStringLiteral("\"path\": %1").arg(why));
    // Written through the descriptor opened inside --out, never by name.
    QFile out;
    const bool written = out.open(file.fd(), QIODevice::WriteOnly, QFileDevice::DontCloseHandle)
        && picture.save(&out, "PNG") && out.flush();
    out.close();
    if (!written) {
        file.discard();
        return StepOutcome::error(
            QStringLiteral("snapshot of screen %1 to %2 failed: %3").arg(id).arg(file.path(), out.errorString()));
    }
    JsonLine extra;
    extra.add(QStringLiteral("path"), file.path());
    return StepOutcome::ok(extra);
}

StepOutcome ScreenSteps::record(const Step& step)
{
    StepFields f(step, {QStringLiteral("screen"), QStringLiteral("path"), QStringLiteral("ms"),
                        QStringLiteral("fps"), QStringLiteral("overwrite")});
    const int id = f.integer("screen", 0, INT_MIN, INT_MAX, true);
    const QString path = f.string("path", QString(), true);
    const int ms = f.integer("ms", 0, 1, kMaxRecordMs, true);
    const int fps = f.integer("fps", 30, 1, 240);
    const bool overwrite = f.boolean("overwrite", false);
    if (!f.ok())
        return StepOutcome::error(f.problem());
    if (path.isEmpty())
        return StepOutcome::error(QStringLiteral("\"path\": empty"));
    if (!screens().screenById(id))
        return StepOutcome::error(QStringLiteral("unknown screen %1").arg(id));
    if (m_recordings.contains(id))
        return StepOutcome::error(QStringLiteral("screen %1 is already recording").arg(id));

    OutputFile file;
    QString why;
    if (!m_paths.open(path, overwrite, file, why))
        return StepOutcome::error(QStringLiteral("\"path\": %1").arg(why));
    // The recorder writes through the descriptor opened inside --out.
    if (!screens().startRecording(id, file.takeFd(), file.path(), fps)) {
        file.discard();
        return StepOutcome::error(
            QStringLiteral("recording screen %1 to %2 failed").arg(id).arg(file.path()));
    }
    Recording recording;
    recording.path = file.path();
    recording.timer = new QTimer(this);
    recording.timer->setSingleShot(true);
    connect(recording.timer, &QTimer::timeout, this, [this, id] { finishRecording(id, false); });
    recording.timer->start(ms);
    m_recordings.insert(id, recording);

    JsonLine extra;
    extra.add(QStringLiteral("path"), recording.path);
    return StepOutcome::ok(extra);
}

void ScreenSteps::finishRecording(int screenId, bool cut)
{
    const auto it = m_recordings.find(screenId);
    if (it == m_recordings.end())
        return;
    const Recording recording = it.value();
    recording.timer->stop();
    // Still listed while it stops: a display lost during the stop (met at
    // the X request of its last picture) finishes it from the loss's end of
    // the run instead of leaving the file unfinished. False when the screen
    // already ended the file (it closed meanwhile).
    screens().stopRecording(screenId);
    m_recordings.remove(screenId);
    recording.timer->deleteLater();

    JsonLine fields;
    fields.add(QStringLiteral("screen"), screenId);
    fields.add(QStringLiteral("path"), recording.path);
    if (cut)
        fields.add(QStringLiteral("cut"), true);
    m_hub.printHostLine(QStringLiteral("recordFinished"), fields);
    if (m_recordings.isEmpty())
        emit recordingsFinished();
}

void ScreenSteps::stopAllRecordings()
{
    for (int id : m_recordings.keys())
        finishRecording(id, true);
}
