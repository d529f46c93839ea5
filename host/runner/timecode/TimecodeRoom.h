// TimecodeRoom: LTC timecode in, chased layers out.
//
// With --ltc-input SOURCE the room reads LTC from that audio input on a
// thread of its own (LtcInput) and follows it on the GUI thread
// (TimecodeTracker); its host steps let layers chase it (ChaseSet):
//   {"op": "chase", "layer": {"bank": b, "layer": l}, "at": "01:00:10:00"}
//   {"op": "unchase", "layer": {"bank": b, "layer": l}}
// The layer's media time is the timecode minus "at".
//
// Host lines: {"host": "timecode", "tc", "fps", "running", "tcMs"} when
// the timecode starts ("change": "start"), stops ("stop") or jumps
// ("jump"), and at most once a second while it runs; "tc" is the label of
// the frame running at the line's "t", "tcMs" the timecode then in
// milliseconds since 00:00:00:00. {"host": "timecodeInput", "state":
// "opened" | "ended" | "failed", "text"} for the input itself.
//
// When the LTC stops, chased layers freewheel on the last timecode for
// --ltc-freewheel frames (counted from the last frame heard; the stop is
// known 2.5 frames after it at the earliest) and then pause; LTC that comes
// back (two consecutive frames) starts them again where it says.
//
// Debug lines (stderr): the input's changes, a lost lock, refused frames
// (at most one line a second) and readings dropped because the GUI thread
// fell behind.
//
// Threading: GUI thread, but for the input's thread, which only posts
// wake-ups here. The run's end (the runner's quitRequested) ends every
// chase and stops the input before the layers are torn down.
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"
#include "timecode/ChaseSet.h"
#include "timecode/TimecodeTracker.h"

#include <QObject>
#include <QString>
#include <memory>

class EventHub;
class HostSteps;
class LtcInput;
class StepRunner;
class QTimer;

struct TimecodeOptions
{
    QString input;            ///< --ltc-input; empty: no timecode
    int channel = 1;          ///< --ltc-channel: the input's channel carrying LTC (1 = first)
    int freewheelFrames = 10; ///< --ltc-freewheel
};

class TimecodeRoom : public QObject
{
    Q_OBJECT
public:
    TimecodeRoom(TimecodeOptions options, StepRunner& runner, HostSteps& host, EventHub& hub,
                 QObject* parent = nullptr);
    ~TimecodeRoom() override;

    /// Starts reading the input, when one was given.
    void start();
    /// Ends every chase and stops reading (the run ends).
    void stop();

private:
    StepOutcome chaseStep(const Step& step);
    StepOutcome unchaseStep(const Step& step);
    void drain();
    void tick();
    void apply(const TimecodeTracker::Change& change, qint64 nowNs);
    void noteInput(const LtcReading& reading);
    void noteRefused(const char* why, qint64 nowNs);
    void printLine(const char* change, qint64 nowNs);
    ChaseSet::Clock clockAt(qint64 nowNs) const;

    // All fields: GUI thread.
    const TimecodeOptions m_options;
    EventHub& m_hub;
    std::unique_ptr<LtcInput> m_input; // null without --ltc-input, or once stopped
    TimecodeTracker m_tracker;
    ChaseSet m_chases;
    QTimer* m_tick = nullptr;          // child; every 40 ms while reading
    qint64 m_lastLineNs = 0;           // the last periodic (or change) host line
    qint64 m_freewheelUntilNs = 0;     // layers play on until then after a stop
    bool m_freewheeling = false;       // stopped, freewheel not yet over
    qint64 m_refusedSinceNote = 0;     // refused frames not yet in a debug line
    qint64 m_lastRefusedNoteNs = 0;
    const char* m_lastRefusedWhy = nullptr;
    quint64 m_dropped = 0;             // readings dropped by the queue, in all
    bool m_stopped = false;
};
