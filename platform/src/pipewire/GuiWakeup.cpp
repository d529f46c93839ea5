#include "pipewire/GuiWakeup.h"

#include <QDebug>

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace kelmor::pipewire {

GuiWakeup::GuiWakeup(std::function<void()> wake)
    : m_fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), m_wake(std::move(wake))
{
    if (m_fd < 0) {
        qDebug() << "GuiWakeup: no eventfd:" << strerror(errno);
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] {
        uint64_t count = 0;
        if (::read(m_fd, &count, sizeof count) != sizeof count)
            return; // nothing pending (another read took it)
        if (m_wake)
            m_wake();
    });
}

GuiWakeup::~GuiWakeup()
{
    m_notifier.reset();
    if (m_fd >= 0)
        ::close(m_fd);
}

void GuiWakeup::signal()
{
    if (m_fd < 0)
        return;
    const uint64_t one = 1;
    // A full counter (never in practice) or EAGAIN only means a wake-up is
    // already pending.
    [[maybe_unused]] const ssize_t written = ::write(m_fd, &one, sizeof one);
}

} // namespace kelmor::pipewire
