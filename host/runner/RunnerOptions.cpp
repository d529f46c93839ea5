#include "RunnerOptions.h"

#include "AccessToken.h"

#include <QRegularExpression>

namespace {

bool toInt(const QString& text, int low, int high, int& out)
{
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok);
    if (!ok || value < low || value > high)
        return false;
    out = static_cast<int>(value);
    return true;
}

} // namespace

bool parseRunnerOptions(const QStringList& args, RunnerOptions& o, QString& error)
{
    // Options that take a value accept "--name VALUE" and "--name=VALUE".
    for (int i = 0; i < args.size(); ++i) {
        QString arg = args.at(i);
        QString inlineValue;
        bool hasInline = false;
        if (arg.startsWith(QLatin1String("--")) && arg.contains(QLatin1Char('='))) {
            const int eq = arg.indexOf(QLatin1Char('='));
            inlineValue = arg.mid(eq + 1);
            arg = arg.left(eq);
            hasInline = true;
        }
        auto value = [&](QString& out) {
            if (hasInline) {
                out = inlineValue;
                return true;
            }
            if (i + 1 >= args.size()) {
                error = QStringLiteral("option %1 needs a value").arg(arg);
                return false;
            }
            out = args.at(++i);
            return true;
        };
        QString v;
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            o.help = true;
        } else if (arg == QLatin1String("--version")) {
            o.version = true;
        } else if (arg == QLatin1String("-") || arg == QLatin1String("--stdin")) {
            o.readStdin = true;
        } else if (arg == QLatin1String("--listen")) {
            if (!value(v))
                return false;
            if (!toInt(v, 0, 65535, o.listenPort)) {
                error = QStringLiteral("--listen: not a port number: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--listen-address")) {
            if (!value(o.listenAddress))
                return false;
        } else if (arg == QLatin1String("--http")) {
            if (!value(v))
                return false;
            if (!toInt(v, 0, 65535, o.httpPort)) {
                error = QStringLiteral("--http: not a port number: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--http-address")) {
            if (!value(o.httpAddress))
                return false;
        } else if (arg == QLatin1String("--osc-port")) {
            if (!value(v))
                return false;
            if (!toInt(v, 0, 65535, o.oscPort)) {
                error = QStringLiteral("--osc-port: not a port number: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--osc-address")) {
            if (!value(o.oscAddress))
                return false;
        } else if (arg == QLatin1String("--osc-allow")) {
            if (!value(v))
                return false;
            o.oscAllow << v; // checked when OSC starts
        } else if (arg == QLatin1String("--osc-send")) {
            if (!value(v))
                return false;
            o.oscSend << v; // checked when OSC starts
        } else if (arg == QLatin1String("--ltc-input")) {
            if (!value(o.ltcInput))
                return false;
            if (o.ltcInput.isEmpty() || o.ltcInput.size() > 4096) {
                error = QStringLiteral("--ltc-input: expected an audio input (a file, a URL or DEVICE:NAME)");
                return false;
            }
        } else if (arg == QLatin1String("--ltc-channel")) {
            if (!value(v))
                return false;
            if (!toInt(v, 1, 64, o.ltcChannel)) {
                error = QStringLiteral("--ltc-channel: not a channel number from 1 to 64: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--ltc-freewheel")) {
            if (!value(v))
                return false;
            if (!toInt(v, 0, 3000, o.ltcFreewheel)) {
                error = QStringLiteral("--ltc-freewheel: not a number of frames from 0 to 3000: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--token")) {
            if (!value(o.token))
                return false;
            AccessToken checked;
            if (!AccessToken::fromText(o.token, checked, error))
                return false;
        } else if (arg == QLatin1String("--keep-running")) {
            o.keepRunning = true;
        } else if (arg == QLatin1String("--strict")) {
            o.strict = true;
        } else if (arg == QLatin1String("--ao")) {
            if (!value(o.audioOutput))
                return false;
        } else if (arg == QLatin1String("--audio-device")) {
            if (!value(o.audioDevice))
                return false;
        } else if (arg == QLatin1String("--offscreen")) {
            o.screenMode = RunnerOptions::ScreenMode::Offscreen;
        } else if (arg == QLatin1String("--windowed")) {
            o.screenMode = RunnerOptions::ScreenMode::Windowed;
        } else if (arg == QLatin1String("--vsync")) {
            if (!value(v))
                return false;
            if (v == QLatin1String("auto")) {
                o.vsync = RunnerOptions::Vsync::Auto;
            } else if (v == QLatin1String("on")) {
                o.vsync = RunnerOptions::Vsync::On;
            } else if (v == QLatin1String("off")) {
                o.vsync = RunnerOptions::Vsync::Off;
            } else {
                error = QStringLiteral("--vsync: \"%1\" is not auto, on or off").arg(v.left(64));
                return false;
            }
        } else if (arg == QLatin1String("--render-thread")) {
            o.renderThread = true;
        } else if (arg == QLatin1String("--no-render-thread")) {
            o.renderThread = false;
        } else if (arg == QLatin1String("--out")) {
            if (!value(o.outDir))
                return false;
        } else if (arg == QLatin1String("--media-root")) {
            if (!value(v))
                return false;
            if (v.isEmpty() || o.mediaRoots.size() >= 64) {
                error = v.isEmpty() ? QStringLiteral("--media-root: empty folder name")
                                    : QStringLiteral("--media-root: more than 64 roots");
                return false;
            }
            o.mediaRoots << v;
        } else if (arg == QLatin1String("--position-interval")) {
            if (!value(v))
                return false;
            if (!toInt(v, 0, 3600000, o.positionIntervalMs)) {
                error = QStringLiteral("--position-interval: not a number of milliseconds: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--steps-per-turn")) {
            if (!value(v))
                return false;
            if (!toInt(v, 1, 100000, o.stepsPerTurn)) {
                error = QStringLiteral("--steps-per-turn: not a number from 1 to 100000: %1").arg(v);
                return false;
            }
        } else if (arg == QLatin1String("--no-progress")) {
            o.progress = false;
        } else if (arg == QLatin1String("--set")) {
            if (!value(v))
                return false;
            static const QRegularExpression kAssignment(QStringLiteral("^([A-Za-z_][A-Za-z0-9_]*)=(.*)$"),
                                                        QRegularExpression::DotMatchesEverythingOption);
            const QRegularExpressionMatch m = kAssignment.match(v);
            if (!m.hasMatch()) {
                error = QStringLiteral("--set: expected NAME=VALUE, got %1").arg(v);
                return false;
            }
            o.variables.insert(m.captured(1), m.captured(2));
        } else if (arg.startsWith(QLatin1Char('-')) && arg.size() > 1) {
            error = QStringLiteral("unknown option %1").arg(arg);
            return false;
        } else if (o.showPath.isEmpty()) {
            o.showPath = arg;
        } else {
            error = QStringLiteral("more than one show file: %1 and %2").arg(o.showPath, arg);
            return false;
        }
    }
    return true;
}

QString nothingToRunReason(const RunnerOptions& o)
{
    if (!o.showPath.isEmpty() || o.readStdin || o.listenPort >= 0 || o.oscPort >= 0 || o.httpPort >= 0)
        return QString();
    const QString sources =
        QStringLiteral("a show file, - (stdin), --listen PORT, --osc-port PORT or --http PORT");
    if (!o.ltcInput.isEmpty())
        return QStringLiteral("nothing to run: --ltc-input only gives the timecode; the layers and the "
                              "\"chase\" steps that make them follow it come from %1")
            .arg(sources);
    return QStringLiteral("nothing to run: give steps from %1").arg(sources);
}
