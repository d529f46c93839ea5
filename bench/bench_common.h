// Shared pieces of the media benchmarks (bench_play_cpu, bench_ready_latency,
// bench_start_spread, bench_layer_capacity, bench_compositor) that need the
// GUI application: options, the application with the libmpv engine, event
// loop waits, offscreen screens and layers (a player with its render objects).
// Measuring and test clips are in bench_measure.h.
//
// Threading: GUI thread only.
// Ownership: a Layer owns its player and render objects and hands the player
// back (releaseObj) when destroyed; the screen service owns the screens.
#pragma once

#include "AVPlayer.h"
#include "ScreenWidget.h"
#include "bench_measure.h"

#include <QGuiApplication>
#include <QList>
#include <QPointer>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVector>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

class QCommandLineParser;

namespace QtAV {
class NoxOpenGLRender;
}

namespace bench {

/// Options every media benchmark takes: --media-dir, --verbose.
void addCommonOptions(QCommandLineParser& parser);
QString mediaDir(const QCommandLineParser& parser);

/// The application: shared GL contexts, the libmpv engine without sound,
/// engine debug lines hidden unless --verbose. Optionally times the
/// compositor's output-frame ticks (see TickTimes).
class BenchApp : public QGuiApplication
{
public:
    BenchApp(int& argc, char** argv);
    /// Installs the engine and checks for OpenGL; false (with a message) when
    /// the run cannot go on.
    bool start(const QCommandLineParser& parser);
    bool notify(QObject* receiver, QEvent* event) override;

    /// Durations (ms) of the compositor's ticks while recording. The
    /// compositor's tick runs from a parentless, single-shot, precise QTimer;
    /// the timer events of such timers are timed here (no other timer of
    /// that kind is active in these benchmarks).
    void recordTicks(bool on);
    std::vector<double> takeTicks();
    /// When each recorded tick began (the same order as takeTicks); taken
    /// with it.
    std::vector<Clock::time_point> takeTickStarts();

private:
    bool m_recording = false;          // GUI thread
    std::vector<double> m_ticks;       // GUI thread
    std::vector<Clock::time_point> m_tickStarts; // GUI thread
};

/// Runs the event loop until done() is true (checked every pollMs) or
/// timeoutMs passes; returns done().
bool waitUntil(const std::function<bool()>& done, int timeoutMs, int pollMs = 5);
/// Runs the event loop for msec.
void runFor(int msec);

/// An offscreen output screen.
ScreenWidget* openScreen(int id, const QSize& size);
/// A windowed output screen (a frameless window at `topLeft`); needs Qt's
/// xcb platform, not "offscreen".
ScreenWidget* openWindowScreen(int id, const QSize& size, const QPoint& topLeft = QPoint(0, 0));
void closeScreens();

/// One layer: a player of type "video" and its render objects.
class Layer
{
public:
    Layer();
    ~Layer(); // takes the render objects off and releases the player
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    QtAV::AVPlayer* player() const { return m_player.data(); }
    /// Shows the player on `screen` at `geometry` (of a picture of `picture`
    /// pixels).
    void show(ScreenWidget* screen, const QRect& geometry, const QSize& picture = QSize(1920, 1080));
    bool shown() const { return !m_renders.empty(); }
    /// The frame source's serial, 0 when there is none.
    quint64 serial() const;
    /// A libmpv property of the player's core, read synchronously (end of a
    /// run only); empty when unknown.
    QString mpvProperty(const char* name) const;

private:
    // GUI thread.
    QPointer<QtAV::AVPlayer> m_player;   // deleted by the release in ~Layer
    std::vector<std::unique_ptr<QtAV::NoxOpenGLRender>> m_renders;
    QList<QPointer<ScreenWidget>> m_screens; // the screens the renders are on
};

/// Releases the layers and waits until their players are gone.
void releaseLayers(std::vector<std::unique_ptr<Layer>>& layers);
/// Opens `clip` on every layer and waits until each has loaded and drawn its
/// first picture (when shown); false on timeout.
bool loadLayers(const std::vector<std::unique_ptr<Layer>>& layers, const Clip& clip,
                bool loop, int timeoutMs = 20000);

/// Grid cell `index` of `columns` columns of cells of `cell` size.
QRect gridCell(int index, int columns, const QSize& cell);

} // namespace bench
