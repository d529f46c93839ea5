#include "HostOptions.h"

#include <QCommandLineParser>
#include <QRegularExpression>

namespace {

constexpr int kMaxScreenSide = 16384;
constexpr int kMaxAfterMs = 10 * 60 * 1000;
constexpr int kMaxPathLength = 4096;

bool parseGeometry(const QString& text, QRect& geometry, QString& error)
{
    static const QRegularExpression pattern(
        QStringLiteral("^(\\d{1,5})x(\\d{1,5})([+-]\\d{1,5})([+-]\\d{1,5})$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        error = QStringLiteral("--screen: \"%1\" is not WIDTHxHEIGHT+X+Y").arg(text.left(64));
        return false;
    }
    const int width = match.captured(1).toInt();
    const int height = match.captured(2).toInt();
    const int x = match.captured(3).toInt();
    const int y = match.captured(4).toInt();
    if (width < 1 || height < 1 || width > kMaxScreenSide || height > kMaxScreenSide
        || qAbs(x) > kMaxScreenSide || qAbs(y) > kMaxScreenSide) {
        error = QStringLiteral("--screen: sizes 1..%1 and positions within +-%1 only").arg(kMaxScreenSide);
        return false;
    }
    geometry = QRect(x, y, width, height);
    return true;
}

bool checkPath(const char* option, const QString& path, QString& error)
{
    if (path.isEmpty() || path.size() > kMaxPathLength) {
        error = QStringLiteral("%1: a path of 1..%2 characters").arg(QLatin1String(option)).arg(kMaxPathLength);
        return false;
    }
    return true;
}

// Written out here: QCommandLineParser's own help text needs the
// application object, and the options are read before it is made.
QString usageText()
{
    return QStringLiteral(
        "Usage: kelmor-host-app [options]\n"
        "Example host of the kelmor layer player: one output screen, one layer.\n"
        "\n"
        "  --file PATH         load PATH at start\n"
        "  --play              play it as soon as it is ready (needs --file)\n"
        "  --offscreen         draw the output screen offscreen (no window)\n"
        "  --screen WxH+X+Y    the output screen's size and position (default 640x360+100+100)\n"
        "  --snapshot PATH     save the output screen as PNG after --after-ms ms of playing,\n"
        "  --after-ms N        then quit (needs --file and --play)\n"
        "  -h, --help          show this help\n"
        "\n"
        "Exit codes: 0 done, 1 bad command line, 2 a scripted run failed.\n");
}

} // namespace

bool parseHostOptions(const QStringList& arguments, HostOptions& options, QString& error)
{
    QCommandLineParser parser;
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Show this help and exit."));
    const QCommandLineOption file(QStringLiteral("file"), QStringLiteral("Load <path> at start."),
                                  QStringLiteral("path"));
    const QCommandLineOption play(QStringLiteral("play"),
                                  QStringLiteral("Play the file as soon as it is ready."));
    const QCommandLineOption offscreen(QStringLiteral("offscreen"),
                                       QStringLiteral("Draw the output screen offscreen (no window)."));
    const QCommandLineOption screen(QStringLiteral("screen"),
                                    QStringLiteral("The output screen's geometry (default 640x360+100+100)."),
                                    QStringLiteral("WxH+X+Y"));
    const QCommandLineOption snapshot(QStringLiteral("snapshot"),
                                      QStringLiteral("Save the output screen as PNG to <path> after "
                                                     "--after-ms of playing, then quit."),
                                      QStringLiteral("path"));
    const QCommandLineOption afterMs(QStringLiteral("after-ms"),
                                     QStringLiteral("Milliseconds of playing before the snapshot."),
                                     QStringLiteral("ms"));
    parser.addOptions({helpOption, file, play, offscreen, screen, snapshot, afterMs});
    options.helpText = usageText();

    if (!parser.parse(arguments)) {
        error = parser.errorText();
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        error = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first().left(64));
        return false;
    }
    options.help = parser.isSet(helpOption);
    options.play = parser.isSet(play);
    options.offscreen = parser.isSet(offscreen);
    if (parser.isSet(file)) {
        options.file = parser.value(file);
        if (!checkPath("--file", options.file, error))
            return false;
    }
    if (parser.isSet(screen) && !parseGeometry(parser.value(screen), options.screen, error))
        return false;
    if (parser.isSet(snapshot)) {
        options.snapshot = parser.value(snapshot);
        if (!checkPath("--snapshot", options.snapshot, error))
            return false;
    }
    if (parser.isSet(afterMs)) {
        bool ok = false;
        options.afterMs = parser.value(afterMs).toInt(&ok);
        if (!ok || options.afterMs < 0 || options.afterMs > kMaxAfterMs) {
            error = QStringLiteral("--after-ms: a whole number of ms, 0..%1").arg(kMaxAfterMs);
            return false;
        }
    }

    // A scripted snapshot is taken of something playing.
    if (!options.snapshot.isEmpty()) {
        if (options.file.isEmpty() || !options.play || options.afterMs < 0) {
            error = QStringLiteral("--snapshot needs --file, --play and --after-ms");
            return false;
        }
    } else if (options.afterMs >= 0) {
        error = QStringLiteral("--after-ms is only meaningful with --snapshot");
        return false;
    }
    if (options.play && options.file.isEmpty()) {
        error = QStringLiteral("--play needs --file");
        return false;
    }
    return true;
}
