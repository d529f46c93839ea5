// Wakes an object on the GUI thread from another thread (the PipeWire
// loop): signal() from any thread, and `wake` runs once on the GUI thread
// for one or more signals since the last run.
//
// An eventfd watched by a QSocketNotifier, rather than a queued Qt call: no
// allocation per wake-up, and the hand-over is a plain write and read of a
// descriptor, which ThreadSanitizer can follow (it cannot see inside Qt's
// event queue). The data itself travels through the caller's own
// mutex-guarded slot.
//
// Threading: constructed and destroyed on the GUI thread; signal() from any
// thread until the destructor starts (the caller stops its signalling
// threads first).
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

namespace kelmor::pipewire {

class GuiWakeup
{
public:
    explicit GuiWakeup(std::function<void()> wake);
    ~GuiWakeup();
    GuiWakeup(const GuiWakeup&) = delete;
    GuiWakeup& operator=(const GuiWakeup&) = delete;

    /// False when no descriptor could be made (signal() then does nothing).
    bool isValid() const { return m_fd >= 0; }
    /// Any thread.
    void signal();

private:
    const int m_fd;                              // eventfd; fixed for the object's life
    std::function<void()> m_wake;                // GUI thread
    std::unique_ptr<QSocketNotifier> m_notifier; // GUI thread
};

} // namespace kelmor::pipewire
