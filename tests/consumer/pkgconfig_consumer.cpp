// A one-file host built with pkg-config (no CMake): makes a layer through the
// service and finds it in the registry.
#include <UI_Proc_KELMOR_Player_Desktop.h>
#include <UI_Proc_KELMOR_PlayersManage_Desktop.h>

#include <QCoreApplication>
#include <QMap>
#include <QVariant>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QMap<QString, QVariant> record;
    record["layerId"] = 2;
    record["bankId"] = 5;
    record["type"] = QStringLiteral("picture");
    record["timeLenMsec"] = 1000;
    UI_Proc_KELMOR_Player_Desktop::getInstance().creatnewlayer(record);
    auto& registry = UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    if (!registry.getplayerByID(2, 5)) {
        std::puts("pkg-config consumer: no layer 2 of bank 5");
        return 1;
    }
    registry.clearAllPlayer();
    std::puts("pkg-config consumer ok");
    return 0;
}
