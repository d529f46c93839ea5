// RunnerOptions: the command line of kelmor-show.
//
// Parsed from argv before the Qt application exists, so that --help and
// usage errors work on a machine without a display.
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

struct RunnerOptions
{
    enum class ScreenMode { Auto, Offscreen, Windowed };

    QString showPath;              ///< the show file; empty when none
    bool readStdin = false;        ///< steps from standard input ("-" or --stdin)
    int listenPort = -1;           ///< TCP port for live control; -1: none, 0: any free port
    QString listenAddress = QStringLiteral("127.0.0.1");
    QString token;                 ///< live-control token (--token); empty: generated beyond loopback
    bool keepRunning = false;      ///< keep serving after the show file / stdin ends
    bool strict = false;           ///< the first error of the show ends the runner (exit 2)
    QString audioOutput;           ///< libmpv "ao"; empty: libmpv's choice
    QString audioDevice;           ///< libmpv "audio-device"; empty: the output's default
    ScreenMode screenMode = ScreenMode::Auto;
    QString outDir = QStringLiteral(".");
    QStringList mediaRoots;        ///< --media-root DIR (repeatable): folders media may come from
    int positionIntervalMs = 0;    ///< thinning of sPositionChanged per layer; 0: every one
    int stepsPerTurn = 64;         ///< most steps run per event-loop turn, all sources together
    bool progress = true;          ///< the once-a-second progress line on stderr
    QMap<QString, QString> variables; ///< --set NAME=VALUE, expanded as ${NAME} in steps
    bool help = false;
    bool version = false;
};

/// Parses argv[1..]. On a usage error returns false and sets `error`.
bool parseRunnerOptions(const QStringList& args, RunnerOptions& options, QString& error);
