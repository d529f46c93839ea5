// The start gate: layers started in the same GUI-thread turn show their first
// new frames in the same output frame.
//
// Every libmpv core runs its own clock and threads, so cores unpaused
// together start presenting at moments up to a hundred milliseconds or more
// apart. The gate takes the cores started in one turn as a group and holds
// each one's newest frame back from the screens until every member has a new
// frame due, then lets them all through in the same compositor tick. A member
// that has nothing to show (no video, a stall) opens the gate when the time
// limit passes, so a slow layer delays the group by that much at worst and
// never holds it for longer.
//
// Threading: members join and leave on the GUI thread (after
// awaitOutputFrame) and are judged where output frames are drawn (the GUI
// thread, or the render thread while a frame is lent to it): never at once.
// Ownership: the members share the gate; a member that goes away leaves it.
#pragma once

#include <QElapsedTimer>
#include <QVector>
#include <memory>

namespace QtAV {

class MpvFrameSource;

class MpvStartGate
{
public:
    static constexpr int kLimitMsec = 150;

    MpvStartGate();
    void add(MpvFrameSource* member);
    void remove(MpvFrameSource* member);
    /// Whether `member` may show its new frame now; `frameDue` tells whether
    /// it has one.
    bool mayShow(MpvFrameSource* member, bool frameDue);
    bool isOpen() const { return m_open; }

private:
    struct Member
    {
        MpvFrameSource* source;
        bool ready;
    };
    QVector<Member> m_members; // with the compositor's context (see above)
    QElapsedTimer m_since;     // from the first start of the group
    bool m_open = false;
};

} // namespace QtAV
