// The engine a host gets when it installs none: libmpv, loaded on first use;
// the explicit choices; and the mistakes a host can make (a player before
// the application object, a second engine after players exist, no OpenGL).
// Each scenario runs in a process of its own and reports through its exit
// code and what it wrote on stderr (the module's debug lines go there).
#include "AVPlayer.h"
#include "EngineMedia.h"
#include "MediaEngine.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QPointer>
#include <QSignalSpy>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>

namespace {

using Record = QMap<QString, QVariant>;

// Counts the debug lines that start with "media engine:" and passes every
// line on to stderr.
int g_choiceLines = 0;
void countChoiceLines(QtMsgType, const QMessageLogContext&, const QString& message)
{
    if (message.startsWith(QLatin1String("media engine:")))
        ++g_choiceLines;
    std::fprintf(stderr, "%s\n", qPrintable(message));
}

[[noreturn]] void finish(bool ok, const char* what)
{
    std::fprintf(stderr, "%s: %s\n", ok ? "PASS" : "FAIL", what);
    std::fflush(stderr);
    std::_Exit(ok ? 0 : 1);
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// A video layer made by the service, played from 0: true when its position
// rises past 300 ms within timeoutMs, as only a real engine makes it.
bool layerPlays(int layerId, int bankId, int timeoutMs = 15000)
{
    auto& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    Record record;
    record["layerId"] = layerId;
    record["bankId"] = bankId;
    record["path"] = EngineMedia::clip();
    record["groupID"] = 1;
    record["type"] = QStringLiteral("video");
    record["timeLenMsec"] = 2000;
    service.creatnewlayer(record);
    QPointer<QtAV::AVPlayer> player = registry.getplayerByID(layerId, bankId);
    if (!player)
        return false;
    // A video layer's position comes from its engine alone (timed items
    // count on their timers instead).
    service.setLayerMediaType(player, QStringLiteral("video"));
    qint64 highest = -1;
    QObject listening; // ends the connection when this function returns
    QObject::connect(&service, &UI_Proc_KELMOR_Player_Desktop::sPositionChanged, &listening,
                     [&](int layer, int bank, qint64 ms) {
                         if (layer == layerId && bank == bankId)
                             highest = std::max(highest, ms);
                     });
    service.playReady(player, 0, false);
    return waitUntil([&] { return highest > 300; }, timeoutMs);
}

[[noreturn]] void defaultEnginePlays()
{
    qInstallMessageHandler(countChoiceLines);
    int argc = 1;
    char name[] = "host";
    char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    if (!EngineMedia::ready())
        finish(false, "ffmpeg could not make the clip");
    if (!QtAV::mediaEngineName().isEmpty())
        finish(false, "the choice was made before any player");
    const bool played = layerPlays(1, 1) && layerPlays(2, 1);
    finish(played && QtAV::mediaEngineName() == QLatin1String("mpv") && g_choiceLines == 1,
           "two layers played on the default engine, chosen and logged once");
}

[[noreturn]] void stateOnlyChosen()
{
    int argc = 1;
    char name[] = "host";
    char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    if (!QtAV::installStateOnlyEngine())
        finish(false, "installStateOnlyEngine refused on a fresh process");
    QtAV::AVPlayer player;
    const bool none = QtAV::mediaEngine() == nullptr && QtAV::mediaEngineName() == QLatin1String("none");
    const bool still = !layerPlays(3, 1, 1500);
    std::fprintf(stderr, "no engine: %d, layer still: %d\n", none, still);
    finish(none && still, "state only: no engine and a layer that does not move");
}

[[noreturn]] void playerBeforeApplication()
{
    // Made before the application object: no engine for it.
    auto* early = new QtAV::AVPlayer;
    early->setRepeat(3);
    if (!QtAV::mediaEngineName().isEmpty())
        finish(false, "a player before the application fixed the choice");
    int argc = 1;
    char name[] = "host";
    char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    const bool later = layerPlays(4, 1);
    const bool kept = early->repeat() == 3;
    delete early;
    finish(later && kept && QtAV::mediaEngineName() == QLatin1String("mpv"),
           "the early player kept its state; a later layer played on libmpv");
}

[[noreturn]] void secondEngineRefused()
{
    int argc = 1;
    char name[] = "host";
    char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    QtAV::AVPlayer first;
    const bool refused = !QtAV::installStateOnlyEngine();
    finish(refused && QtAV::mediaEngineName() == QLatin1String("mpv") && layerPlays(5, 1),
           "the later install was refused and playback went on");
}

[[noreturn]] void noOpenGL()
{
    // No X server and the offscreen platform: no OpenGL context can be
    // made; libmpv draws nothing but keeps time.
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    int argc = 1;
    char name[] = "host";
    char* argv[] = {name, nullptr};
    QGuiApplication app(argc, argv);
    finish(layerPlays(6, 1), "a layer played with no OpenGL");
}

} // namespace

TEST(DefaultEngine, AHostThatInstallsNothingPlaysThroughLibmpv)
{
    EXPECT_EXIT(defaultEnginePlays(),
        ::testing::ExitedWithCode(0), "media engine: mpv \\(the default engine\\).*PASS");
}

TEST(DefaultEngine, StateOnlyIsAnExplicitChoice)
{
    EXPECT_EXIT(stateOnlyChosen(),
        ::testing::ExitedWithCode(0), "media engine: none, players keep their state only \\(installed by the host\\).*PASS");
}

TEST(DefaultEngine, APlayerBeforeTheApplicationKeepsItsStateAndTheChoiceStaysOpen)
{
    EXPECT_EXIT(playerBeforeApplication(),
        ::testing::ExitedWithCode(0), "made before the Qt application object.*PASS");
}

TEST(DefaultEngine, ASecondEngineAfterPlayersExistIsRefusedWithOneLine)
{
    EXPECT_EXIT(secondEngineRefused(),
        ::testing::ExitedWithCode(0), "installMediaEngine refused: the engine is already chosen \\(mpv\\).*PASS");
}

TEST(DefaultEngine, WithoutOpenGLLayersStillPlay)
{
    EXPECT_EXIT(noOpenGL(),
        ::testing::ExitedWithCode(0), "PASS");
}
