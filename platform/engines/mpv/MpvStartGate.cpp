#include "MpvStartGate.h"

#include "MpvFrameSource.h"

#include <QDebug>

namespace QtAV {

MpvStartGate::MpvStartGate()
{
    m_since.start();
}

void MpvStartGate::add(MpvFrameSource* member)
{
    for (const Member& m : qAsConst(m_members)) {
        if (m.source == member)
            return;
    }
    m_members.append(Member{member, false});
}

void MpvStartGate::remove(MpvFrameSource* member)
{
    for (int i = 0; i < m_members.size(); ++i) {
        if (m_members.at(i).source == member) {
            m_members.removeAt(i);
            return;
        }
    }
}

bool MpvStartGate::mayShow(MpvFrameSource* member, bool frameDue)
{
    if (m_open)
        return true;
    // Every member is asked, not only the one drawing now: when the gate
    // opens, the members drawn earlier in this output frame must not have
    // been held back already, so the first member to ask decides for all.
    bool all = true;
    for (Member& m : m_members) {
        if (!m.ready)
            m.ready = m.source == member ? frameDue : m.source->pollFrameDue();
        all = all && m.ready;
    }
    if (all || m_since.elapsed() >= kLimitMsec) {
        if (!all)
            qDebug() << "mpv: start gate opened after" << m_since.elapsed()
                     << "ms without every layer's first frame";
        m_open = true;
    }
    return m_open;
}

} // namespace QtAV
