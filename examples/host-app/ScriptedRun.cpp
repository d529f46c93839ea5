#include "ScriptedRun.h"

#include "LayerController.h"

#include <MediaEngine.h>

#include <cstdio>

namespace {

// Generous: a cold start of the engine under a loaded machine included.
constexpr int kReadyLimitMs = 30000;
constexpr int kSnapshotSlackMs = 15000;

void note(const QString& line)
{
    std::fprintf(stderr, "kelmor-host-app: %s\n", line.toLocal8Bit().constData());
    std::fflush(stderr);
}

} // namespace

ScriptedRun::ScriptedRun(LayerController& layer, const HostOptions& options, QObject* parent)
    : QObject(parent), m_layer(layer), m_options(options)
{
    m_snapshotDue.setSingleShot(true);
    connect(&m_snapshotDue, &QTimer::timeout, this, &ScriptedRun::takeSnapshot);
    m_watchdog.setSingleShot(true);
    connect(&m_watchdog, &QTimer::timeout, this, [this] {
        fail(m_started ? QStringLiteral("the snapshot was not taken in time")
                       : QStringLiteral("%1 was not ready within %2 s").arg(m_options.file).arg(kReadyLimitMs / 1000));
    });
    connect(&m_layer, &LayerController::ready, this, &ScriptedRun::onReady);
    connect(&m_layer, &LayerController::mediaFailed, this, &ScriptedRun::onMediaFailed);
}

void ScriptedRun::start()
{
    if (m_options.file.isEmpty())
        return;
    if (scripted())
        m_watchdog.start(kReadyLimitMs);
    QString error;
    if (!m_layer.load(m_options.file, error)) {
        note(error);
        if (scripted())
            fail(QStringLiteral("cannot load %1").arg(m_options.file));
    }
}

void ScriptedRun::onReady()
{
    // Only the first readiness is the command line's; later loads are the
    // user's.
    if (m_started || m_over || !m_options.play)
        return;
    m_started = true;
    note(QStringLiteral("%1 ready (media engine \"%2\"); playing").arg(m_options.file, QtAV::mediaEngineName()));
    m_layer.play();
    if (scripted()) {
        m_watchdog.start(m_options.afterMs + kSnapshotSlackMs);
        m_snapshotDue.start(m_options.afterMs);
    }
}

void ScriptedRun::onMediaFailed(const QString& path, const QString& reason)
{
    note(QStringLiteral("cannot play %1: %2").arg(path, reason));
    if (scripted())
        fail(QStringLiteral("the media cannot be played"));
}

void ScriptedRun::takeSnapshot()
{
    if (m_over)
        return;
    QString error;
    if (!m_layer.saveSnapshot(m_options.snapshot, error)) {
        fail(error);
        return;
    }
    note(QStringLiteral("snapshot saved to %1").arg(m_options.snapshot));
    m_over = true;
    m_watchdog.stop();
    emit finished(Success);
}

void ScriptedRun::fail(const QString& message)
{
    if (m_over)
        return;
    m_over = true;
    m_watchdog.stop();
    m_snapshotDue.stop();
    note(QStringLiteral("failed: %1").arg(message));
    emit finished(Failure);
}
