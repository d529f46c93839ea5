// A layer's fade: a factor in 0..1 ramped linearly over a given time by a
// ~60 Hz timer on the player's thread. The backend multiplies the volume by
// the factor and keeps it as the layer's opacity.
//
// Threading: the player's thread (the fader is a QObject living there).
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <functional>

namespace QtAV {

class MpvFader : public QObject
{
public:
    enum Direction { None, In, Out };

    /// `apply` gets each new factor; `finished` the direction of a fade that
    /// ran to its end.
    MpvFader(std::function<void(double)> apply, std::function<void(Direction)> finished);

    /// Fade in (towards 1) or out (towards 0) over `msec` from now. A fade in
    /// starts from silence unless the factor is already below 1 (a fade out
    /// was under way or ended), in which case it goes on from there. A new
    /// fade replaces a running one, which then reports nothing.
    void start(Direction direction, int msec);
    /// Stops a running fade of that direction where it stands; true if one ran.
    bool cancel(Direction direction);
    Direction running() const { return m_direction; }
    double factor() const { return m_factor; }

private:
    void tick();

    // All fields: the player's thread.
    std::function<void(double)> m_apply;
    std::function<void(Direction)> m_finished;
    QTimer m_timer;
    QElapsedTimer m_clock;
    Direction m_direction = None;
    double m_factor = 1.0;
    double m_from = 1.0;
    double m_to = 1.0;
    qint64 m_duration = 0;
};

} // namespace QtAV
