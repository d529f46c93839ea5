// Screens, effects, NDI and Spout keep and report what they are given.
#include "AVPlayer.h"
#include "EffectsService.h"
#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "ScreenService.h"
#include "SpoutNode.h"
#include "TestSupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace {

ScreenInfo screen(int id, int type = 0, const QString& guid = "client-1")
{
    ScreenInfo info;
    info.screenId = id;
    info.screenType = type;
    info.clientGuid = guid;
    info.geometry = QRect(0, 0, 640, 360);
    return info;
}

Record identity(int id, int type, const QString& guid)
{
    return Record{{"screenId", id}, {"screenType", type}, {"clientGuid", guid}};
}

class Screens : public ::testing::Test
{
protected:
    ScreenService& screens = ScreenService::getInstance();
    void TearDown() override { screens.closeAllScreens(); }
};

TEST_F(Screens, OpenFindListAndClose)
{
    QSignalSpy opened(&screens, &ScreenService::screenOpened);
    ScreenWidget* one = screens.openScreen(screen(1));
    ScreenWidget* two = screens.openScreen(screen(2, 1, "client-2"));
    EXPECT_EQ(screens.openScreen(screen(1)), one); // already open
    EXPECT_EQ(opened.count(), 2);
    EXPECT_EQ(screens.widgetList(), QList<ScreenWidget*>({one, two}));
    EXPECT_EQ(one->screenId(), 1);
    EXPECT_EQ(two->clientGuid(), "client-2");
    EXPECT_EQ(one->size(), QSize(640, 360));

    EXPECT_EQ(screens.getScreenWidget(identity(2, 1, "client-2")), two);
    EXPECT_EQ(screens.getScreenWidget(identity(2, 0, "other")), two); // same id only
    EXPECT_EQ(screens.getScreenWidget(identity(3, 0, "client-1")), nullptr);
    EXPECT_EQ(screens.getScreenWidget(Record{}), nullptr);

    const QMap<int, void*> outputs = screens.getListOutput();
    EXPECT_EQ(outputs.keys(), QList<int>({1, 2}));
    EXPECT_EQ(outputs.value(2), static_cast<void*>(two));

    QSignalSpy closed(&screens, &ScreenService::screenClosed);
    EXPECT_TRUE(screens.closeScreen(1, 0, "client-1"));
    EXPECT_FALSE(screens.closeScreen(1, 0, "client-1"));
    EXPECT_EQ(closed.count(), 1);
    EXPECT_EQ(screens.widgetList(), QList<ScreenWidget*>({two}));
}

TEST_F(Screens, ExactIdentityWinsOverSameId)
{
    ScreenWidget* a = screens.openScreen(screen(5, 0, "a"));
    ScreenWidget* b = screens.openScreen(screen(5, 1, "b"));
    EXPECT_EQ(screens.getScreenWidget(identity(5, 1, "b")), b);
    EXPECT_EQ(screens.getScreenWidget(identity(5, 9, "z")), a);
    EXPECT_EQ(screens.getListOutput().value(5), static_cast<void*>(a));
}

TEST_F(Screens, ClosingAScreenLeavesItsRenderObjectsAlive)
{
    ScreenWidget* w = screens.openScreen(screen(1));
    QtAV::NoxOpenGLRender render;
    w->pushRender(&render);
    screens.closeAllScreens();
    render.setZ(1.0); // still a live object
    EXPECT_DOUBLE_EQ(render.z(), 1.0);
    EXPECT_TRUE(screens.widgetList().isEmpty());
}

TEST(Effects, KeepsTheLatestOfEachAndAnnouncesIt)
{
    EffectsService& fx = EffectsService::getInstance();
    fx.clear();
    QSignalSpy lists(&fx, &EffectsService::rendererListChanged);
    QSignalSpy layerFx(&fx, &EffectsService::effectsChanged);
    QSignalSpy monitor(&fx, &EffectsService::monitorEffectsChanged);
    QSignalSpy outputs(&fx, &EffectsService::outputRendererChanged);
    int dummy = 0;
    fx.setAllRendererList(131075, {&dummy});
    fx.setEffectsObj(3, Record{{"opacity", 0.5}});
    fx.setMonitorEffects(-1, Record{{"gamma", 2.2}});
    fx.setOutputRenderer({{1, &dummy}});
    EXPECT_EQ(fx.rendererList(131075), QList<void*>({&dummy}));
    EXPECT_TRUE(fx.hasRendererList(131075));
    EXPECT_FALSE(fx.hasRendererList(1));
    EXPECT_EQ(fx.effects(3).value("opacity").toDouble(), 0.5);
    EXPECT_EQ(fx.monitorEffects(-1).value("gamma").toDouble(), 2.2);
    EXPECT_EQ(fx.outputRenderers().value(1), static_cast<void*>(&dummy));
    ASSERT_EQ(lists.count(), 1);
    EXPECT_EQ(lists.at(0).at(0).toInt(), 131075);
    EXPECT_EQ(layerFx.count(), 1);
    EXPECT_EQ(monitor.at(0).at(0).toInt(), -1);
    EXPECT_EQ(outputs.count(), 1);
    fx.clear();
    EXPECT_FALSE(fx.hasRendererList(131075));
}

TEST(Ndi, StateIsSharedByEveryInstance)
{
    QtAV::AVPlayer player;
    {
        NdiService temp;
        temp.setPlayer("CamA#Main", &player);
        temp.playNDI("CamA#Main", &player);
    }
    EXPECT_TRUE(NdiService::isReceiving("CamA#Main", &player));
    EXPECT_EQ(NdiService::receiverSource(&player), "CamA#Main");
    EXPECT_TRUE(NdiService::isSending("CamA#Main", &player));
    {
        NdiService temp;
        temp.stopNDI("CamA#Main", &player);
        temp.stopNDI("Unknown", &player); // ignored
    }
    EXPECT_FALSE(NdiService::isSending("CamA#Main", &player));
    NdiService::forgetPlayer(&player);
    EXPECT_FALSE(NdiService::isReceiving("CamA#Main", &player));
    NdiService temp;
    temp.setPlayer("X", nullptr); // ignored with a debug line
    temp.playNDI("X", nullptr);
    EXPECT_EQ(NdiService::senderCount(), 0);
}

TEST(Spout, KeepsStateAndNeverPretendsToReceive)
{
    SpoutNode node;
    QSignalSpy textures(&node, &SpoutNode::textureReceived);
    LogCapture log;
    node.playSpout("Resolume");
    EXPECT_TRUE(node.isPlaying());
    EXPECT_EQ(node.sourceName(), "Resolume");
    EXPECT_EQ(node.playCount(), 1);
    EXPECT_EQ(log.count("playSpout"), 1);
    node.stop();
    EXPECT_FALSE(node.isPlaying());
    processEvents();
    EXPECT_EQ(textures.count(), 0);
}

} // namespace
