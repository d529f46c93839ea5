// HostOptions: the example host's command line.
//
//   --file PATH          load PATH at start
//   --play               play it as soon as it is ready
//   --offscreen          draw the output screen offscreen (no window)
//   --screen WxH+X+Y     the output screen's size and position
//   --snapshot PATH      save the output screen as PNG after --after-ms ms
//   --after-ms N         of playing, then quit (exit 0; non-zero on failure)
#pragma once

#include <QRect>
#include <QString>
#include <QStringList>

/// What the command line asked for. Filled once in main(), read-only after.
struct HostOptions
{
    QString file;                      ///< media to load at start; empty: none
    bool play = false;                 ///< play once the media is ready
    bool offscreen = false;            ///< the output screen has no window
    QRect screen{100, 100, 640, 360};  ///< the output screen's geometry
    QString snapshot;                  ///< PNG to save; empty: no scripted snapshot
    int afterMs = -1;                  ///< ms of playing before the snapshot
    bool help = false;                 ///< --help: print the usage and exit 0
    QString helpText;                  ///< the usage text
};

/// Parses `arguments` (argv[0] first). False with `error` set when an option
/// is unknown, malformed, out of range or contradicts another.
bool parseHostOptions(const QStringList& arguments, HostOptions& options, QString& error);
