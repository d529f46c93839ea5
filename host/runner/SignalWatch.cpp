#include "SignalWatch.h"

#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int g_pipe[2] = {-1, -1}; // written by the handler, read on the GUI thread

void onSignal(int number)
{
    const unsigned char byte = static_cast<unsigned char>(number);
    // Nothing else is async-signal-safe enough to do here.
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
}

} // namespace

SignalWatch::SignalWatch(QObject* parent) : QObject(parent)
{
}

bool SignalWatch::install()
{
    if (::pipe(g_pipe) != 0)
        return false;
    ::fcntl(g_pipe[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(g_pipe[1], F_SETFD, FD_CLOEXEC);
    ::fcntl(g_pipe[1], F_SETFL, O_NONBLOCK);
    m_notifier = new QSocketNotifier(g_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        unsigned char byte = 0;
        if (::read(g_pipe[0], &byte, 1) == 1)
            emit caught(byte);
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    // A controller that closes its end of our stdout must not kill us.
    ::signal(SIGPIPE, SIG_IGN);
    return true;
}
