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
    enum class Vsync { Auto, On, Off };

    QString showPath;              ///< the show file; empty when none
    bool readStdin = false;        ///< steps from standard input ("-" or --stdin)
    int listenPort = -1;           ///< TCP port for live control; -1: none, 0: any free port
    QString listenAddress = QStringLiteral("127.0.0.1");
    QString token;                 ///< live-control token (--token); empty: generated beyond loopback
    int httpPort = -1;             ///< operator console (--http PORT); -1: none, 0: any free port
    QString httpAddress = QStringLiteral("127.0.0.1"); ///< --http-address: the console's address
    int oscPort = -1;              ///< OSC control over UDP (--osc-port); -1: none, 0: any free port
    QString oscAddress = QStringLiteral("127.0.0.1"); ///< --osc-address: where OSC is taken
    QStringList oscAllow;          ///< --osc-allow ADDRESS/PREFIX (repeatable): senders beyond loopback
    QStringList oscSend;           ///< --osc-send HOST:PORT (repeatable): where events go as OSC
    QString ltcInput;              ///< --ltc-input SOURCE: LTC timecode from this audio input; empty: none
    int ltcChannel = 1;            ///< --ltc-channel N: the input's channel carrying LTC (1 = first)
    int ltcFreewheel = 10;         ///< --ltc-freewheel FRAMES: chased layers play on this long after LTC stops
    bool keepRunning = false;      ///< keep serving after the show file / stdin ends
    bool strict = false;           ///< the first error of the show ends the runner (exit 2)
    QString audioOutput;           ///< libmpv "ao"; empty: libmpv's choice
    QString audioDevice;           ///< libmpv "audio-device"; empty: the output's default
    ScreenMode screenMode = ScreenMode::Auto;
    Vsync vsync = Vsync::Auto;     ///< --vsync auto|on|off: how windows are presented
    bool renderThread = true;      ///< output frames drawn on a thread of their own (--no-render-thread: off)
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

/// Why these options give the runner nothing to run: empty when they name a
/// step source (a show file, standard input, --listen, --osc-port or
/// --http). Layers, and the chase steps that tie them to --ltc-input's
/// timecode, only ever come as steps, so a timecode input alone is refused
/// too, with a message that says so.
QString nothingToRunReason(const RunnerOptions& options);
