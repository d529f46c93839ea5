// The compositor's count of dropped frames: frames a player's source had due
// while the player was shown on a screen, that never reached the screens.
//
// Sources report them from updateTexture() (reportDroppedFrames,
// VideoFrameSource.h): a pushed source counts the frames replaced before an
// output frame took them, the libmpv source the frames libmpv's video output
// dropped because they could not be drawn in time. After the sources of an
// output frame are brought up to date, the compositor settles the reports:
// each goes to the player whose render objects showed the source, when the
// source was shown in the previous output frame as well (frames that came
// while nothing showed the source were not due anywhere). Reports of sources
// no screen shows (previews only, frames given to a render object) are
// dropped.
//
// Threading: GUI thread (the compositor's). Totals are kept for the life of
// each player: the entry goes when the player is destroyed.
#pragma once

#include <QHash>
#include <QObject>
#include <utility>
#include <vector>

namespace QtAV {
class AVPlayer;
class VideoFrameSource;
}

namespace kelmor::gl {

class FrameDrops : public QObject
{
    Q_OBJECT
public:
    using Shown = std::vector<std::pair<QtAV::VideoFrameSource*, QtAV::AVPlayer*>>;

    /// A source's report, during an output frame.
    void note(QtAV::VideoFrameSource* source, quint64 count);
    /// Ends an output frame: `shown` are the sources the screens drew, each
    /// with its player.
    void settle(const Shown& shown);

    /// Frames `player` dropped so far (0 when none or unknown).
    quint64 dropped(QtAV::AVPlayer* player) const { return m_totals.value(player, 0); }
    /// Every player that dropped frames, with its total.
    QHash<QtAV::AVPlayer*, quint64> all() const { return m_totals; }

private:
    // GUI thread.
    std::vector<std::pair<QtAV::VideoFrameSource*, quint64>> m_reports; // this output frame's
    std::vector<QtAV::VideoFrameSource*> m_shownBefore;  // sources drawn in the previous frame
    QHash<QtAV::AVPlayer*, quint64> m_totals;
};

} // namespace kelmor::gl
