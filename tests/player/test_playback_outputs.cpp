// Outputs beyond the render objects: the effects service, renderer lists,
// depth and visibility, and the NDI and Spout streams of a layer.
#include "PlaybackFixture.h"

#include "EffectsService.h"
#include "NdiService.h"
#include "NoxOpenGLRender.h"
#include "ScreenService.h"
#include "SpoutNode.h"

namespace {

class PlaybackOutputs : public PlaybackTest
{
protected:
    static EffectsService& effects() { return EffectsService::getInstance(); }

    void SetUp() override
    {
        PlaybackTest::SetUp();
        effects().clear();
    }
    void TearDown() override
    {
        effects().clear();
        PlaybackTest::TearDown();
    }
};

TEST_F(PlaybackOutputs, DepthGoesToRenderObjectsOnly)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QtAV::NoxOpenGLRender first;
    QtAV::NoxOpenGLRender second;
    TestRenderer other("PlainGL");
    TestRenderer longer("NoxGLX");
    player->addVideoRenderer(&first);
    player->addVideoRenderer(&other);
    player->addVideoRenderer(&longer);
    player->addVideoRenderer(&second);

    service().setRendererZ(player, 3.5);
    service().setWidgetRenderVisible(player, false);

    EXPECT_EQ(first.z(), 3.5);
    EXPECT_EQ(second.z(), 3.5);
    EXPECT_FALSE(first.isVisible());
    EXPECT_FALSE(second.isVisible());
    player->clearVideoRenderers();
}

TEST_F(PlaybackOutputs, DepthOfPlayerWithoutOutputsLogsIsEmpty)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    LogCapture log;

    service().setRendererZ(player, 1.0);
    service().setWidgetRenderVisible(player, true);

    EXPECT_EQ(log.count("setRendererZ -------------isEmpty-"), 1);
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(PlaybackOutputs, RendererListUsesPackedKeyLayerPlusBankShifted)
{
    QtAV::AVPlayer* player = createLayer(2, 3, "video");
    QtAV::NoxOpenGLRender render;
    TestRenderer preview("QmlGL");
    player->addVideoRenderer(&preview);
    player->addVideoRenderer(&render);

    service().setAllRenderList(3, 2);
    service().setAllRenderList(2, 3); // no such layer

    EXPECT_TRUE(effects().hasRendererList(131075));
    EXPECT_EQ(effects().rendererList(131075),
              QList<void*>({static_cast<QtAV::VideoRenderer*>(&render)}));
    EXPECT_FALSE(effects().hasRendererList(2 + (3 << 16)));
    player->clearVideoRenderers();
}

TEST_F(PlaybackOutputs, EffectsAreForwardedAndKnownLayerRedrawn)
{
    QtAV::AVPlayer* player = createLayer(4, 1, "video");
    journal().clear();
    Record record;
    record["bankId"] = 4;
    record["brightness"] = 0.5;
    Record unknown = record;
    unknown["bankId"] = 5;

    service().setEffectsObj(1, record);
    service().setEffectsObj(7, unknown);

    EXPECT_EQ(effects().effects(1), record);
    EXPECT_EQ(effects().effects(7), unknown); // told even for an unknown layer
    EXPECT_EQ(callsOf(player), QStringList({"refreshUi()"}));
}

TEST_F(PlaybackOutputs, MonitorEffectsAndOutputMapAreForwarded)
{
    Record record;
    record["gamma"] = 1.2;
    ScreenInfo info;
    info.screenId = 11;
    ScreenWidget* widget = ScreenService::getInstance().openScreen(info);

    service().setMonitorEffect(11, record);
    service().setOutputRenderer(Record());

    EXPECT_EQ(effects().monitorEffects(11), record);
    EXPECT_EQ(effects().outputRenderers().value(11), static_cast<void*>(widget));
    ScreenService::getInstance().closeScreen(11, 0, QString());
}

TEST_F(PlaybackOutputs, SpoutStartTwiceMakesOneNodeAndPlaysTwice)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout", 1000, "TexA");
    ScenePlayer* scene = reg().getScenePlayer(1, 2);

    service().setSpoutState(player, 1);
    SpoutNode* node = scene->spoutNode;
    service().setSpoutState(player, 1);

    ASSERT_NE(node, nullptr);
    EXPECT_EQ(scene->spoutNode, node);
    EXPECT_EQ(node->playCount(), 2);
    EXPECT_EQ(node->sourceName(), "TexA");
}

TEST_F(PlaybackOutputs, SpoutTextureReachesPlayerTextureSlot)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout", 1000, "TexA");
    service().setSpoutState(player, 1);
    journal().clear();

    emit reg().getScenePlayer(1, 2)->spoutNode->textureReceived(5, 640, 480, "TexA");

    EXPECT_EQ(callsOf(player), QStringList({"setTextureID(5, 640, 480, TexA)"}));
}

TEST_F(PlaybackOutputs, SpoutStopWithoutNodeLeavesNoNode)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "spout");

    service().setSpoutState(player, 0);

    EXPECT_EQ(reg().getScenePlayer(1, 2)->spoutNode, nullptr);
}

TEST_F(PlaybackOutputs, SpoutOnVideoOrUnregisteredPlayerDoesNothing)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    QtAV::AVPlayer loose;
    loose.setMediaType("spout");

    service().setSpoutState(player, 1);
    service().setSpoutState(&loose, 1);

    EXPECT_EQ(reg().getScenePlayer(1, 2)->spoutNode, nullptr);
}

TEST_F(PlaybackOutputs, NdiStateStartsStopsAndIgnoresOtherValues)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "ndi", 1000, "CamA");
    const QString file = player->file();
    const int senders = NdiService::senderCount();

    service().setNdiState(player, 2);
    EXPECT_EQ(NdiService::senderCount(), senders);
    EXPECT_FALSE(NdiService::isSending(file, player));

    service().setNdiState(player, 1);
    EXPECT_TRUE(NdiService::isSending(file, player));
    service().setNdiState(player, 2);
    EXPECT_TRUE(NdiService::isSending(file, player));
    service().setNdiState(player, 0);
    EXPECT_FALSE(NdiService::isSending(file, player));
}

TEST_F(PlaybackOutputs, NdiStateOfUnregisteredPlayerDoesNothing)
{
    QtAV::AVPlayer loose;
    loose.setFile("CamQ");

    service().setNdiState(&loose, 1);

    EXPECT_FALSE(NdiService::isSending("CamQ", &loose));
}

TEST_F(PlaybackOutputs, RendererPropertyIsAcceptedAndIgnored)
{
    QtAV::AVPlayer* player = createLayer(1, 2, "video");
    journal().clear();
    LogCapture log;

    service().setRendererProperty(player, Record({{"opacity", 0.5}}), 3);

    EXPECT_TRUE(journal().names().isEmpty());
    EXPECT_TRUE(log.lines().isEmpty());
}

} // namespace
