// Fixture of the screen tests whose layers are made through the module, as
// the host makes them (creatnewlayer, then the media type). The service and
// the registry are process-wide: a test starts with no layer, and at its end
// removes its layers' render objects, ends every layer and waits until
// their players are deleted, before the screens close.
//
// Threading: the test's thread (the GUI thread) only.
#pragma once

#include "ScreenFixture.h"
#include "TestAccess.h"
#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

class ModuleLayerTest : public ScreenTest
{
protected:
    using Service = UI_Proc_KELMOR_Player_Desktop;
    using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;

    static constexpr int kBank = 1;

    static Service& service() { return Service::getInstance(); }
    static Registry& reg() { return Registry::getInstance(); }

    void SetUp() override
    {
        ScreenTest::SetUp();
        ASSERT_TRUE(RegistryTestAccess::map(reg()).isEmpty()) << "a previous test left layers behind";
    }

    /// Layer `layerId` of kBank made as the host makes it: creatnewlayer
    /// (group 9, no pre-render), then its media type `type`. Null when the
    /// module made no player. endLayers() ends it.
    QtAV::AVPlayer* makeLayer(int layerId, const QString& type, const QString& path, int timeLenMsec)
    {
        service().creatnewlayer(hostLayerRecord(kBank, layerId, path, timeLenMsec, type));
        QtAV::AVPlayer* player = reg().getplayerByID(layerId, kBank);
        if (!player)
            return nullptr;
        m_layerIds << layerId;
        m_layerPlayers << QPointer<QtAV::AVPlayer>(player);
        service().setLayerMediaType(player, type);
        return player;
    }

    /// A layer the test has ended itself: endLayers() no longer removes its
    /// render objects (its player is still waited for).
    void forgetLayer(int layerId) { m_layerIds.removeAll(layerId); }

    /// Removes the render objects of the layers made, ends every layer of
    /// the registry and waits up to `msec` until every player made here is
    /// deleted (true).
    bool endLayers(int msec = kWait)
    {
        for (int layerId : m_layerIds)
            service().delLayerAllRenderer(kBank, layerId, true);
        m_layerIds.clear();
        reg().clearAllPlayer();
        return waitUntil([this] {
            for (const QPointer<QtAV::AVPlayer>& p : m_layerPlayers) {
                if (p)
                    return false;
            }
            return true;
        }, msec);
    }

    QList<int> m_layerIds;                          // layers made and not yet ended
    QList<QPointer<QtAV::AVPlayer>> m_layerPlayers; // every player made: null once deleted
};
