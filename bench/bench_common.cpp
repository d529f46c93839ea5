#include "bench_common.h"

#include "MpvBackend.h"
#include "MpvEngine.h"
#include "NoxOpenGLRender.h"
#include "ScreenService.h"
#include "VideoFrameSource.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <cstdio>

namespace bench {

namespace {

bool g_verbose = false; // set once in BenchApp::start, read by the message handler

void messageHandler(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    // The engine writes a debug line per source and decoder; the tables stay
    // readable without them.
    if (type == QtDebugMsg && !g_verbose)
        return;
    std::fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

void addCommonOptions(QCommandLineParser& parser)
{
    parser.addHelpOption();
    parser.addOption({"media-dir", "Where the test clips are made (default: bench-media next to the program).",
                      "dir"});
    parser.addOption({"verbose", "Show the engine's debug lines."});
    parser.addOption({"render-thread", "Draw output frames on the render thread (default: on the "
                                       "GUI thread, the figures' reference)."});
}

QString mediaDir(const QCommandLineParser& parser)
{
    return parser.isSet("media-dir") ? parser.value("media-dir")
                                     : QCoreApplication::applicationDirPath() + "/bench-media";
}

BenchApp::BenchApp(int& argc, char** argv)
    : QGuiApplication(argc, argv)
{
}

bool BenchApp::start(const QCommandLineParser& parser)
{
    g_verbose = parser.isSet("verbose");
    qInstallMessageHandler(&messageHandler);
    QtAV::MpvEngineOptions options;
    options.audioOutput = QStringLiteral("null");
    QtAV::installMediaEngine(QtAV::createMpvEngine(options));
    // Before any screen: frames on the GUI thread unless asked otherwise.
    if (!parser.isSet("render-thread")) {
        ScreenService::getInstance().setRenderThread(false);
    } else if (!ScreenService::getInstance().setRenderThread(true)) {
        std::fprintf(stderr, "--render-thread: no render thread on this GL platform\n");
        return false;
    }
    if (!QtAV::compositorContext()) {
        std::fprintf(stderr, "no OpenGL context: run under an X server, e.g.\n"
                             "  xvfb-run -a -s \"-screen 0 1920x1080x24 -noreset\" env QT_QPA_PLATFORM=offscreen %s\n",
                     qPrintable(QCoreApplication::applicationFilePath()));
        return false;
    }
    return true;
}

bool BenchApp::notify(QObject* receiver, QEvent* event)
{
    if (!m_recording || event->type() != QEvent::Timer)
        return QGuiApplication::notify(receiver, event);
    auto* timer = qobject_cast<QTimer*>(receiver);
    if (!timer || timer->parent() || !timer->isSingleShot() || timer->timerType() != Qt::PreciseTimer)
        return QGuiApplication::notify(receiver, event);
    const Clock::time_point t0 = Clock::now();
    const bool handled = QGuiApplication::notify(receiver, event);
    m_ticks.push_back(msSince(t0));
    m_tickStarts.push_back(t0);
    return handled;
}

void BenchApp::recordTicks(bool on)
{
    m_recording = on;
}

std::vector<double> BenchApp::takeTicks()
{
    std::vector<double> ticks;
    ticks.swap(m_ticks);
    return ticks;
}

std::vector<Clock::time_point> BenchApp::takeTickStarts()
{
    std::vector<Clock::time_point> starts;
    starts.swap(m_tickStarts);
    return starts;
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs, int pollMs)
{
    if (done())
        return true;
    QElapsedTimer clock;
    clock.start();
    QEventLoop loop;
    QTimer poll;
    poll.setTimerType(Qt::PreciseTimer);
    bool ok = false;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done()) {
            ok = true;
            loop.quit();
        } else if (clock.elapsed() >= timeoutMs) {
            loop.quit();
        }
    });
    poll.start(pollMs);
    loop.exec();
    return ok;
}

void runFor(int msec)
{
    QEventLoop loop;
    QTimer::singleShot(msec, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

ScreenWidget* openScreen(int id, const QSize& size)
{
    ScreenInfo info;
    info.screenId = id;
    info.geometry = QRect(QPoint(0, 0), size);
    info.offscreen = true;
    return ScreenService::getInstance().openScreen(info);
}

ScreenWidget* openWindowScreen(int id, const QSize& size, const QPoint& topLeft)
{
    ScreenInfo info;
    info.screenId = id;
    info.geometry = QRect(topLeft, size);
    info.offscreen = false;
    info.monitor = -1;
    return ScreenService::getInstance().openScreen(info);
}

void closeScreens()
{
    ScreenService::getInstance().closeAllScreens();
}

Layer::Layer()
    : m_player(new QtAV::AVPlayer)
{
    m_player->setMediaType(QStringLiteral("video"));
}

Layer::~Layer()
{
    for (auto& r : m_renders) {
        if (m_player)
            m_player->removeVideoRenderer(r.get());
        for (const QPointer<ScreenWidget>& s : m_screens) {
            if (s)
                s->removeRender(r.get());
        }
    }
    m_renders.clear();
    if (QtAV::AVPlayer* player = m_player.data()) {
        QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player,
                         [player] { player->deleteLater(); });
        player->releaseObj();
    }
}

void Layer::show(ScreenWidget* screen, const QRect& geometry, const QSize& picture)
{
    if (!screen || !m_player)
        return;
    m_renders.push_back(std::make_unique<QtAV::NoxOpenGLRender>());
    QtAV::NoxOpenGLRender* r = m_renders.back().get();
    r->setPlayerLayerID(screen->screenId(), int(m_renders.size()));
    r->setOriginalWH(picture.width(), picture.height());
    r->setGeometry(geometry.x(), geometry.y(), geometry.width(), geometry.height());
    m_player->addVideoRenderer(r);
    screen->pushRender(r);
    m_screens.append(screen);
}

quint64 Layer::serial() const
{
    QtAV::VideoFrameSource* source = m_player ? m_player->frameSource() : nullptr;
    return source ? source->serial() : 0;
}

QString Layer::mpvProperty(const char* name) const
{
    auto* engine = dynamic_cast<QtAV::MpvEngine*>(QtAV::mediaEngine());
    QtAV::MpvBackend* backend = engine && m_player ? engine->backend(m_player.data()) : nullptr;
    return backend ? backend->propertyForDiagnostics(name) : QString();
}

void releaseLayers(std::vector<std::unique_ptr<Layer>>& layers)
{
    QList<QPointer<QtAV::AVPlayer>> players;
    for (auto& layer : layers)
        players.append(layer->player());
    layers.clear();
    waitUntil([&] {
        for (const QPointer<QtAV::AVPlayer>& p : players) {
            if (p)
                return false;
        }
        return true;
    }, 20000);
}

bool loadLayers(const std::vector<std::unique_ptr<Layer>>& layers, const Clip& clip, bool loop,
                int timeoutMs)
{
    std::vector<int> loaded(layers.size(), 0);
    std::vector<QMetaObject::Connection> connections;
    for (size_t i = 0; i < layers.size(); ++i) {
        QtAV::AVPlayer* player = layers[i]->player();
        connections.push_back(QObject::connect(player, &QtAV::AVPlayer::loaded, player,
                                               [&loaded, i] { loaded[i] = 1; }));
        if (loop)
            player->setRepeat(-1);
        player->setFile(clip.path);
    }
    const bool ok = waitUntil([&] {
        for (size_t i = 0; i < layers.size(); ++i) {
            if (!loaded[i] || (layers[i]->shown() && layers[i]->serial() == 0))
                return false;
        }
        return true;
    }, timeoutMs);
    for (auto& c : connections)
        QObject::disconnect(c);
    return ok;
}

QRect gridCell(int index, int columns, const QSize& cell)
{
    return QRect(QPoint((index % columns) * cell.width(), (index / columns) * cell.height()), cell);
}


} // namespace bench
