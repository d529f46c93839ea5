// The screen-sharing steps of the runner: a screen's finished picture
// published as a PipeWire video source for other programs (OBS, GStreamer,
// another kelmor-show's "spout" layer), through ScreenService.
//
//   {"op": "publishScreen", "screen": 1, "name": "kelmor-screen-1"}
//   {"op": "unpublishScreen", "screen": 1}
//
// publishScreen answers ok with the node name; it is refused for a screen
// that is not open, a name that is empty, longer than 128 characters, holds
// control characters or is used by another published screen. Without a
// PipeWire daemon the step still succeeds: the node appears once a daemon
// runs. unpublishScreen is refused for a screen that is not published. The
// publications end with the run.
//
// The steps are registered with HostSteps::addStep, so every surface (show
// file, stdin, TCP, OSC, console) reaches them the same way.
//
// Threading: GUI thread.
#pragma once

#include "StepOutcome.h"
#include "StepParser.h"

#include <QSet>

class HostSteps;

class ScreenSharing
{
public:
    explicit ScreenSharing(HostSteps& host);
    /// Ends the publications this room made.
    ~ScreenSharing();
    ScreenSharing(const ScreenSharing&) = delete;
    ScreenSharing& operator=(const ScreenSharing&) = delete;

    StepOutcome publish(const Step& step);
    StepOutcome unpublish(const Step& step);

private:
    QSet<int> m_published; // GUI thread: screens this room published
};
