// DisplayLoss: the end of a run whose X server went away.
//
// Qt's X11 platform reports a broken connection with the warning "The X11
// connection broke ..." and then calls exit(1); Xlib reports one met during a
// request (GLX included, and the only report on the offscreen platform)
// through its I/O error handler, which must not return. Either way static
// destructors would then run with the display gone. This watch catches both
// first and ends the run in order: recordings are finished from the pictures
// already taken (their encoders need no display) with their recordFinished
// lines ("cut": true), a host line {"t", "host": "displayLost", "code",
// "reason"} and a note on stderr say why, and the process ends with
// _exit(kExitCode), so nothing else touches the display.
//
// Threading: made and destroyed on the GUI thread. The handlers run on the
// thread that met the error. Recordings belong to the GUI thread and are
// finished only there: a loss met on another thread (a window's
// presentation thread swapping) is handed to the GUI thread with a queued
// call, and that thread waits. Should the GUI thread not take the end over
// within 3 s, the thread that met the loss ends the run itself (the note
// says the recordings could not be finished); should finishing them take
// more than 30 s, the run ends all the same. After the object is gone (the
// run's objects are being destroyed) a loss still ends the process with
// kExitCode, without the recordings' lines.
#pragma once

class EventHub;
class ScreenSteps;

class DisplayLoss
{
public:
    /// Exit status of a run whose display went away.
    static constexpr int kExitCode = 3;

    /// Installs the Qt message handler and the Xlib I/O error handler. Make it
    /// after the application object (Qt's X11 platform sets its own Xlib
    /// handler while the application object is built).
    DisplayLoss(ScreenSteps& screens, EventHub& hub);
    ~DisplayLoss();
    DisplayLoss(const DisplayLoss&) = delete;
    DisplayLoss& operator=(const DisplayLoss&) = delete;
};
