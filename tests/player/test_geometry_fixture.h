// Fixture of the renderer geometry and routing tests: layers filed in the
// registry by the fixture itself, offscreen output screens, and read-back
// helpers for render objects, screens and the effects service.
//
// Every test leaves the process as it found it: the render objects are
// removed with delLayerAllRenderer, the layers are ended with clearAllPlayer
// (each player is deleted when it announces its release), the screens are
// closed, and the effects service and the scale ratio are reset.
#pragma once

#include "AVPlayer.h"
#include "EffectsService.h"
#include "NoxOpenGLRender.h"
#include "RecordingEngine.h"
#include "ScenePlayer.h"
#include "ScreenService.h"
#include "TestAccess.h"
#include "TestSupport.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

class GeometryTest : public ::testing::Test
{
protected:
    using Service = UI_Proc_KELMOR_Player_Desktop;
    using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;

    static constexpr int kBank = 1;
    static constexpr int kLayer = 2;
    /// The packed bank/layer key of (kBank, kLayer) as the effects service
    /// receives it.
    static constexpr int kPackedKey = kLayer + (kBank << 16);

    static Service& service() { return Service::getInstance(); }
    static Registry& reg() { return Registry::getInstance(); }
    static EffectsService& effects() { return EffectsService::getInstance(); }
    static ScreenService& screens() { return ScreenService::getInstance(); }
    static QVector<double>& scaleRatio() { return ServiceTestAccess::scaleRatio(service()); }
    static EngineJournal& journal() { return RecordingEngine::instance().journal(); }

    void SetUp() override
    {
        effects().clear();
        scaleRatio().clear();
        journal().clear();
    }

    void TearDown() override
    {
        for (const LayerRecord& layer : m_layers) {
            ScenePlayer* scene = reg().getScenePlayer(layer.bankId, layer.layerId);
            if (!scene)
                continue;
            // The fixture's test renderers are its own: take them out of the
            // map before the layer's render objects are destroyed.
            for (const auto& owned : m_testRenderers) {
                for (const ScreenKey& key : scene->rendererMap.keys(owned.get()))
                    scene->rendererMap.remove(key);
            }
            service().delLayerAllRenderer(layer.bankId, layer.layerId, true);
        }
        reg().clearAllPlayer();
        for (const LayerRecord& layer : m_layers) {
            EXPECT_TRUE(QTest::qWaitFor([&] { return layer.player.isNull(); }, 10000))
                << "player of layer " << layer.layerId << " was not released";
        }
        processEvents();
        screens().closeAllScreens();
        effects().clear();
        scaleRatio().clear();
    }

    /// A layer of (kBank, kLayer) placed on screen 1 by geometryRecord().
    ScenePlayer* placedLayer()
    {
        ScenePlayer* scene = makeLayer();
        openScreen(1);
        service().addRenderer(geometryRecord());
        return scene;
    }

    /// Files a layer (player and scene player) under (bankId, layerId). The
    /// player is deleted when it announces its release, as the service does
    /// for layers it creates.
    ScenePlayer* makeLayer(int bankId = kBank, int layerId = kLayer,
                           const QString& mediaType = QStringLiteral("video"))
    {
        auto* player = new QtAV::AVPlayer();
        player->setMediaType(mediaType);
        QObject::connect(player, &QtAV::AVPlayer::sig_deleteObj, player, &QObject::deleteLater);
        auto* scene = new ScenePlayer();
        scene->player = player;
        scene->layerId = layerId;
        reg().insertScenePlayer(bankId, layerId, scene);
        m_layers.push_back({bankId, layerId, QPointer<QtAV::AVPlayer>(player)});
        return scene;
    }

    static ScreenWidget* openScreen(int screenId, int screenType = 0,
                                    const QString& guid = QStringLiteral("guid-a"))
    {
        ScreenInfo info;
        info.screenId = screenId;
        info.screenType = screenType;
        info.clientGuid = guid;
        return screens().openScreen(info);
    }

    /// A complete geometry record for (kBank, kLayer) on screen 1: shown at
    /// (100, 50) in 640 x 360, original 1920 x 1080 shown at 960 x 540 (ratio
    /// 2), visible part from (10, 20); rotated placement (30, 40).
    static Record geometryRecord(int screenId = 1)
    {
        Record r;
        r["bankId"] = kBank;
        r["layerId"] = kLayer;
        r["screenId"] = screenId;
        r["screenType"] = 0;
        r["clientGuid"] = QStringLiteral("guid-a");
        r["frameX"] = 10;
        r["frameY"] = 20;
        r["rendererX"] = 100;
        r["rendererY"] = 50;
        r["crossWidth"] = 640;
        r["crossHeight"] = 360;
        r["originalWidth"] = 1920;
        r["originalHeight"] = 1080;
        r["layerRotation"] = 0.0f;
        r["isScal"] = false;
        r["isRotation"] = false;
        r["actualWidth"] = 960;
        r["actualHeight"] = 540;
        r["isFill"] = false;
        r["relativeX"] = 30;
        r["relativeY"] = 40;
        r["isOutArea"] = false;
        r["isBezier"] = false;
        return r;
    }

    /// The render object recorded for a screen number, or null.
    static QtAV::NoxOpenGLRender* renderOn(const ScenePlayer* scene, int screenId)
    {
        return dynamic_cast<QtAV::NoxOpenGLRender*>(
            scene->rendererMap.value(ScreenKey(screenId, 0, QString())));
    }

    static bool hasEntry(const ScenePlayer* scene, int screenId)
    {
        return scene->rendererMap.contains(ScreenKey(screenId, 0, QString()));
    }

    /// A renderer with any type name, owned by the fixture (it outlives the
    /// layers, so that no player or map is left pointing at a freed one).
    TestRenderer* testRenderer(const char* typeName, int renderType = QtAV::VideoRenderType_Output)
    {
        m_testRenderers.push_back(std::make_unique<TestRenderer>(typeName, renderType));
        return m_testRenderers.back().get();
    }

    static int refreshCount(QtAV::AVPlayer* player)
    {
        return journal().count(player, QStringLiteral("refreshUi("));
    }

private:
    struct LayerRecord
    {
        int bankId;
        int layerId;
        QPointer<QtAV::AVPlayer> player;
    };
    std::vector<std::unique_ptr<TestRenderer>> m_testRenderers; // destroyed after TearDown
    std::vector<LayerRecord> m_layers;
};

/// Counts the renderer-list publications the effects service receives.
class RendererListSpy : public QSignalSpy
{
public:
    RendererListSpy()
        : QSignalSpy(&EffectsService::getInstance(), &EffectsService::rendererListChanged) {}
    /// The packed key of the i-th publication.
    int keyAt(int i) const { return at(i).at(0).toInt(); }
};
