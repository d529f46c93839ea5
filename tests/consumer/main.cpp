// Uses the installed module as a host application would: the three public
// headers, the platform headers, and both singletons.
#include <AVPlayer.h>
#include <UI_Proc_KELMOR_PlayerTimer_Desktop.h>
#include <UI_Proc_KELMOR_Player_Desktop.h>
#include <UI_Proc_KELMOR_PlayersManage_Desktop.h>

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    UI_Proc_KELMOR_Player_Desktop& service = UI_Proc_KELMOR_Player_Desktop::getInstance();
    UI_Proc_KELMOR_PlayersManage_Desktop& registry =
        UI_Proc_KELMOR_PlayersManage_Desktop::getInstance();
    if (&service != &UI_Proc_KELMOR_Player_Desktop::getInstance()
        || &registry != &UI_Proc_KELMOR_PlayersManage_Desktop::getInstance()) {
        std::puts("singletons are not single");
        return 1;
    }
    if (registry.getplayerByID(1, 1) != nullptr || service.getAVPlayerEchoById(1, 1) != nullptr) {
        std::puts("an empty registry answered a player");
        return 1;
    }
    UI_Proc_KELMOR_PlayerTimer_Desktop timer(1, 2, 1000);
    if (timer.getPlayState() != 1200 || timer.getDuration() != 1000) {
        std::puts("a new timer is not stopped with its duration");
        return 1;
    }
    std::printf("consumer ok: service %p registry %p\n", static_cast<void*>(&service),
                static_cast<void*>(&registry));
    return 0;
}
