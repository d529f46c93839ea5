#include "gl/FrameDrops.h"

#include "AVPlayer.h"

#include <algorithm>

namespace kelmor::gl {

void FrameDrops::note(QtAV::VideoFrameSource* source, quint64 count)
{
    if (!source || count == 0)
        return;
    for (auto& report : m_reports) {
        if (report.first == source) {
            report.second += count;
            return;
        }
    }
    m_reports.emplace_back(source, count);
}

void FrameDrops::settle(const Shown& shown)
{
    for (const auto& [source, count] : m_reports) {
        if (std::find(m_shownBefore.begin(), m_shownBefore.end(), source) == m_shownBefore.end())
            continue; // not shown before this frame: nothing was due on a screen
        const auto it = std::find_if(shown.begin(), shown.end(),
                                     [source = source](const auto& s) { return s.first == source; });
        if (it == shown.end() || !it->second)
            continue;
        QtAV::AVPlayer* player = it->second;
        if (!m_totals.contains(player)) {
            connect(player, &QObject::destroyed, this,
                    [this, player] { m_totals.remove(player); });
        }
        m_totals[player] += count;
    }
    m_reports.clear();
    m_shownBefore.clear();
    for (const auto& s : shown)
        m_shownBefore.push_back(s.first);
}

} // namespace kelmor::gl
