// Reads the private state of the service and the registry for tests
// (both classes name these structs as friends).
#pragma once

#include "UI_Proc_KELMOR_Player_Desktop.h"
#include "UI_Proc_KELMOR_PlayersManage_Desktop.h"

struct ServiceTestAccess
{
    using Service = UI_Proc_KELMOR_Player_Desktop;
    static QVector<double>& scaleRatio(Service& s) { return s.scaleRatio; }
    static QMap<QtAV::AVPlayer*, bool>& useStopPlayers(Service& s) { return s.useStopPlayers; }
    static QStringList& decoderNames(Service& s) { return s.decoderNames; }
    static int& pendingReadyCount(Service& s) { return s.pendingReadyCount; }
    static int& curBankId(Service& s) { return s.curBankId; }
    static int& fadeInCount(Service& s) { return s.fadeInCount; }
    static int& fadeInFinishedCount(Service& s) { return s.fadeInFinishedCount; }
    static int& fadeOutCount(Service& s) { return s.fadeOutCount; }
    static int& fadeOutFinishedCount(Service& s) { return s.fadeOutFinishedCount; }
    static float& fadeTime(Service& s) { return s.fadeTime; }
    static WorkerPool& workerPool(Service& s) { return s.workerPool; }

    static int getBankLayer(Service& s, int a, int b) { return s.getBankLayer(a, b); }
    static bool isOpenGLWidgetRenderer(Service& s, QtAV::VideoRenderer* r)
    { return s.isOpenGLWidgetRenderer(r); }
    static QList<void*> getUIAndWidgetRendererList(Service& s, QList<QtAV::VideoRenderer*> r)
    { return s.getUIAndWidgetRendererList(r); }
    static QVector<int> idsFromNames(Service& s, const QStringList& names)
    { return s.idsFromNames(names); }
    static void setPathPlayerThread(QtAV::AVPlayer* p, const QString& path)
    { Service::setPathPlayerThread(p, path); }
    static void setPlayThread(UI_Proc_KELMOR_PlayerTimer_Desktop* t) { Service::setPlayThread(t); }
    static void resizeRendererStep(Service& s, QMap<QString, QVariant> c, QtAV::AVPlayer* p,
                                   int x, int y, int w, int h)
    { s.resizeRenderer(c, p, x, y, w, h); }
    static void setVolumeStateSync(Service& s, QtAV::AVPlayer* p, QMap<QString, QVariant> r)
    { s.setVolumeState(p, r); }
    static void setPlayerTimerState(Service& s, QtAV::AVPlayer* p, int op, bool flag,
                                    qint64 ms, qint64 value)
    { s.setPlayerTimerState(p, op, flag, ms, value); }
    static void setPlayerTimer(Service& s, UI_Proc_KELMOR_PlayerTimer_Desktop* t, int op,
                               bool flag, qint64 ms, qint64 value)
    { s.setPlayerTimer(t, op, flag, ms, value); }
};

struct RegistryTestAccess
{
    using Registry = UI_Proc_KELMOR_PlayersManage_Desktop;
    static QMap<int, QMap<int, ScenePlayer*>>& map(Registry& r) { return r.scenePlayerMap; }
    static WorkerPool& threadPool(Registry& r) { return r.threadPool; }
};
