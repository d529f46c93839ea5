// SMPTE timecode values: the frame rates the runner chases (24, 25, 29.97
// drop-frame and 30 frames per second), labels ("01:00:10:05") and their
// frame counts since 00:00:00:00, and the time a frame count stands for.
//
// Drop-frame labels leave out frames 0 and 1 at the start of every minute
// but each tenth, so that the label keeps to the clock at 30000/1001 frames
// per second; they are written with ';' before the frames ("01:00:10;05").
// Counts wrap at 24 hours.
//
// Threading: any (value types and pure functions).
#pragma once

#include <QString>
#include <QtGlobal>

namespace timecode {

enum class Rate { Fps24, Fps25, Fps2997Drop, Fps30 };

/// Frames per second as counted in labels (24, 25, 30, 30).
int nominalFps(Rate rate);
bool isDropFrame(Rate rate);
/// The real rate: 24, 25, 30000/1001 or 30.
double realFps(Rate rate);
/// One frame's duration in nanoseconds (real rate).
double frameNs(Rate rate);
/// The rate as printed: 24, 25, 29.97 or 30.
double printedFps(Rate rate);
/// Frames in 24 hours.
qint64 framesPerDay(Rate rate);

struct Label
{
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
};

/// Whether the label exists at this rate (fields in range, and no dropped
/// frame number for drop-frame).
bool isValid(const Label& label, Rate rate);
/// The frame count of a valid label; -1 for an invalid one.
qint64 toCount(const Label& label, Rate rate);
/// The label of a count (taken modulo 24 hours).
Label fromCount(qint64 count, Rate rate);
/// The count after `count`, wrapping at 24 hours.
qint64 nextCount(qint64 count, Rate rate);
/// Nanoseconds from 00:00:00:00 to the start of frame `count`.
double countToNs(qint64 count, Rate rate);

/// "HH:MM:SS:FF", with ';' before the frames for drop-frame.
QString format(const Label& label, Rate rate);
/// Reads "HH:MM:SS:FF" (also with ';' or '.' before the frames): hours
/// below 24, minutes and seconds below 60, frames below 30. false and
/// `problem` otherwise. Whether the frame exists at a rate is checked when
/// the rate is known (isValid).
bool parse(const QString& text, Label& label, QString& problem);

} // namespace timecode
