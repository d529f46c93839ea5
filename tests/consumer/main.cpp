// A host program that uses the installed module and nothing else: the layer
// service and the registry, no engine installed, no platform call of its own.
//
//   kelmor_consumer CLIP           plays CLIP on a layer and succeeds when its
//                                  position rises (the default libmpv engine)
//   kelmor_consumer CLIP --no-engine
//                                  the default engine is expected to be
//                                  missing: succeeds when the layer keeps its
//                                  state and does not move
#include <UI_Proc_KELMOR_Player_Desktop.h>
#include <UI_Proc_KELMOR_PlayersManage_Desktop.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMap>
#include <QVariant>
#include <algorithm>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CLIP [--no-engine]\n", argv[0]);
        return 2;
    }
    const bool expectNoEngine = argc > 2 && std::strcmp(argv[2], "--no-engine") == 0;
    QCoreApplication app(argc, argv);
    UI_Proc_KELMOR_Player_Desktop& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    UI_Proc_KELMOR_PlayersManage_Desktop& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();

    QMap<QString, QVariant> record;
    record["layerId"] = 1;
    record["bankId"] = 1;
    record["path"] = QString::fromLocal8Bit(argv[1]);
    record["groupID"] = 1;
    record["type"] = QStringLiteral("video");
    record["timeLenMsec"] = 2000;
    service.creatnewlayer(record);
    auto* player = registry.getplayerByID(1, 1);
    if (!player) {
        std::puts("the registry has no layer 1 of bank 1 after creatnewlayer");
        return 1;
    }
    service.setLayerMediaType(player, QStringLiteral("video"));

    qint64 highest = -1;
    QObject::connect(&service, &UI_Proc_KELMOR_Player_Desktop::sPositionChanged,
                     [&](int, int, qint64 ms) { highest = std::max(highest, ms); });
    service.playReady(player, 0, false);
    QDeadlineTimer deadline(expectNoEngine ? 1500 : 15000);
    while (highest <= 300 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);

    const bool moved = highest > 300;
    if (moved == expectNoEngine) {
        std::printf("consumer failed: the layer %s (highest position %lld ms)\n",
                    moved ? "moved with no engine" : "did not play", static_cast<long long>(highest));
        return 1;
    }
    registry.clearAllPlayer();
    std::printf("consumer ok: %s (highest position %lld ms)\n",
                expectNoEngine ? "state kept without the engine" : "played on the default engine",
                static_cast<long long>(highest));
    return 0;
}
