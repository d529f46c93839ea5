// What the LTC reader thread hands to the GUI thread: a decoded LTC frame
// with the time its first sample was heard, or a note about the input (the
// LTC fell silent, the input opened, ended or failed).
//
// Threading: a value type, copied through LtcQueue.
#pragma once

#include <QString>
#include <QtGlobal>

struct LtcReading
{
    enum class Kind {
        Frame,   ///< a decoded frame
        Silence, ///< audio goes on but no LTC frame came for 2.5 frames' time
        Opened,  ///< the input opened; `text` describes it
        Ended,   ///< the input ended (a file's end); `text` says why
        Failed,  ///< the input could not be opened or read; `text` says why
    };
    Kind kind = Kind::Frame;

    // Frame: the label as it came (BCD fields of the LTC word).
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
    bool dropFlag = false;  ///< the word's drop-frame bit
    bool reverse = false;   ///< the word was read backwards (tape played in reverse)
    float volumeDb = 0.0f;  ///< the signal's level in dBFS

    /// Frame: monotonic time (steady clock, ns) of the frame's first
    /// sample; Silence: of the end of the last frame heard.
    qint64 startNs = 0;
    /// Frame: the frame's duration as heard (its samples over the rate).
    qint64 lengthNs = 0;

    QString text; ///< Opened, Ended, Failed
};
