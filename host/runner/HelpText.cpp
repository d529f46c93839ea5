#include "HelpText.h"

#include "OperationTable.h"

namespace {

const char* const kHead = R"(NAME
    kelmor-show - run a show on the Kelmor layer player, from a show file,
    standard input or a loopback TCP port

SYNOPSIS
    kelmor-show [OPTIONS] SHOW.show
    kelmor-show [OPTIONS] -            (steps from standard input)
    kelmor-show [OPTIONS] --listen PORT [SHOW.show] [--keep-running]

DESCRIPTION
    kelmor-show loads the layer-player module the way a host application
    does: it creates the Qt GUI application (with shared OpenGL contexts),
    installs the libmpv media engine, takes the module's service and registry
    singletons, and then runs show steps, one JSON object per line.

    Output screens are windows when a display is available (DISPLAY or
    WAYLAND_DISPLAY set and the Qt platform is not "offscreen"), offscreen
    otherwise; --offscreen, --windowed and the openScreen step override this.
    OpenGL needs an X server even for offscreen screens: on a machine without
    a display run under xvfb-run -a.

    Steps of one source run in order. "wait" and "waitFor" suspend their
    source only; the event loop never blocks. The show file, standard input
    and every TCP connection are separate sources. At most --steps-per-turn
    steps run per event-loop turn, so a flood of steps cannot starve the
    screens. A bad step (malformed JSON, unknown op, wrong argument count or
    type, a number out of range, an unknown layer or screen) is answered with
    an error line naming its line number and the problem; the show goes on.

    The run ends when the show file (or standard input) has ended and every
    running recording has finished, unless --keep-running is given or only
    --listen is; a "quit" step, SIGINT or SIGTERM end it at any time. At the
    end every layer is ended (clearAllPlayer) and every screen closed.

OPTIONS
    SHOW.show            The show file (JSON Lines, see STEPS).
    -, --stdin           Read steps from standard input (with or without a
                         show file; both run side by side).
    --listen PORT        Serve steps on a TCP port (0: any free port; the
                         port is printed as a "listening" host line).
    --listen-address A   Address to listen on (default 127.0.0.1; nothing
                         beyond loopback unless named here). Beyond loopback
                         a token is always required: --token, or else one
                         generated and printed once on stderr.
    --token TOKEN        Live-control token (16 to 256 characters of
                         A-Z a-z 0-9 . _ ~ + / = -); required of every
                         connection, on loopback too. Each connection's
                         first step must then be
                         {"op": "auth", "token": "TOKEN"}; before it nothing
                         runs and no events are sent; a wrong token closes
                         the connection.
    --osc-port PORT      Take OSC messages on a UDP port (0: any free port;
                         printed as an "oscListening" host line) and send
                         events as OSC (docs/osc.md).
    --osc-address A      Address for OSC (default 127.0.0.1). Beyond
                         loopback --osc-allow is required.
    --osc-allow NET      ADDRESS/PREFIX (repeatable) whose senders may drive
                         the show over OSC; loopback always may.
    --osc-send HOST:PORT Send every event and host line there as OSC
                         (repeatable).
    --http PORT          Serve the operator console, a web page that shows
                         the layers, screens and events and drives the show
                         with ordinary steps, on PORT (0: any free port; the
                         URL is printed as a "console" host line).
    --http-address A     Address of the console (default 127.0.0.1). Beyond
                         loopback, and on loopback with --token, every
                         request needs the runner's token: open
                         http://A:PORT/?token=TOKEN (--token, or the one
                         generated and printed once on stderr).
    --ltc-input SOURCE   Read LTC timecode from an audio input: DEVICE:NAME
                         of FFmpeg's input devices (alsa:hw:1,0,
                         pulse:default), a URL, or a file (read at real-time
                         pace, for tests and rehearsals). Layers follow it
                         with the "chase" step (docs/timecode.md).
    --ltc-channel N      The input's channel that carries the LTC (default 1).
    --ltc-freewheel F    Chased layers play on for F frames after the LTC
                         stops, then pause (default 10).
    --keep-running       Keep serving after the show file / stdin has ended.
    --strict             The first error line of the show file or stdin
                         (a failed waitFor included) ends the run, exit 2.
    --ao AO              libmpv audio output, or a list tried in order
                         ("null" for machines without sound); default:
                         pipewire,pulse,alsa,null.
    --audio-device DEV   libmpv audio device (e.g. alsa/default).
    --offscreen          Open screens offscreen by default.
    --windowed           Open screens as windows by default.
    --vsync MODE         How windows show their pictures: "on" (each window
                         swaps on a thread of its own, in step with its
                         display's refresh: no tearing, and no window waits
                         for another), "off" (the compositor swaps every
                         window itself without waiting: may tear), "auto"
                         (default: on where the GL platform allows drawing
                         from threads, as Qt's xcb GLX does).
    --render-thread      Draw output frames on a thread of their own
                         (default, where the GL platform allows drawing
                         from threads): the GUI thread only gathers what
                         to draw and goes on with commands while a frame
                         is drawn, and frames go on while it is busy.
    --no-render-thread   Draw output frames on the GUI thread.
    --out DIR            Directory for snapshots and recordings (default:
                         the current directory). Their paths are relative
                         to it and must stay inside it: absolute paths
                         elsewhere, ".." out of it and symbolic links below
                         it are refused; missing folders below it are made;
                         an existing file is replaced only with
                         "overwrite": true in the step.
    --media-root DIR     Layers may open media only from existing local
                         files inside DIR (repeatable; links and ".."
                         resolved). With it, URLs, devices, stream names and
                         files elsewhere are refused with an error line and
                         the step is not run. Without it, any source opens.
    --set NAME=VALUE     Define ${NAME} for string values of steps. Always
                         defined: ${out} (the --out directory) and
                         ${show_dir} (the show file's directory). "$$" is "$".
    --position-interval MS
                         Print at most one sPositionChanged per layer every
                         MS milliseconds (0: every one; waitFor sees all).
    --steps-per-turn N   Steps run per event-loop turn (default 64).
    --no-progress        No progress line on stderr.
    -h, --help           This text.
    --version            The version: the packages' version, with the
                         commit's date and hash when built from a git
                         checkout.

STEPS
    A step is {"op": NAME, ...} on one line; blank lines and lines starting
    with '#' are skipped. A key may appear once per object; objects and
    arrays nest at most 32 deep; a line is at most 1 MiB.

  Host steps
    openScreen  {"id", "type"=0, "guid"="", "x"=0, "y"=0, "width"=1920,
                 "height"=1080, "monitor"=-1, "offscreen" | "windowed"}
    closeScreen {"id", "type"=0, "guid"=""}
    wait        {"ms"}
    waitFor     {"signal", "args"={name: value, ...}, "timeoutMs"=10000}
                Waits for an event of the service (matching the named
                arguments). Events since the source's previous waitFor
                matched count, so an event that came just before is still
                found. On timeout: an error line (nothing is used up), and
                the show goes on.
    snapshot    {"screen", "path", "overwrite"=false}   PNG of the screen's picture
    record      {"screen", "path", "ms", "fps"=30, "overwrite"=false}
                Records for ms, then stops; the show goes on meanwhile.
    audio       {"ao", "device"}           libmpv audio output from now on
    log         {"text"}                   a line on stderr
    quit        {"code"=0}
    state       {}   layers by bank (type, path, state, position, duration,
                     volume, repeat, fade), screens (test pattern,
                     brightness) and sources (step counts, waits): read-only
    readyBank   {"bank", "ms"=0}   every layer of the bank ready (paused)
    playBank    {"bank"}           every layer of the bank plays, started
                                   together (same output frame)
    stopBank    {"bank"}
    chase       {"layer", "at": "HH:MM:SS:FF"}   the layer follows the
                timecode (--ltc-input): its media time is the timecode
                minus "at"; a video through the external clock, a still
                through its timer. Errors: no such layer, audio or live
                content, no timecode input.
    unchase     {"layer"}          the layer plays on its own clock again
    publishScreen   {"screen", "name"}   the screen's picture as a PipeWire
                    video source named "name" (OBS, GStreamer, a "spout"
                    layer); sent while a consumer reads it
    unpublishScreen {"screen"}

  Module operations
    {"op": NAME, "args": [ ... ]} calls the module's operation NAME with its
    arguments in order. Kinds: int (integer in 32-bit range), int64, number,
    float, bool, string, record (a JSON object: the command record; an
    object of exactly {"x", "y"} is a point), player and layer (a layer
    {"bank": b, "layer": l}, found through the registry; null passes a null
    player). Timer operations are "timer.NAME" with the layer first.
    Queries answer with "result" in their ok line.

)";

const char* const kTail = R"(
EVENTS
    Every signal of the service is one line on stdout:
      {"t": MS, "event": "sendPlayerIndex", "layerId": L, "bankId": B}
      {"t": MS, "event": "sendLoadAllComple", "layerId": L}
      {"t": MS, "event": "sFadeoutFinished"}
      {"t": MS, "event": "sFadeinFinished"}
      {"t": MS, "event": "sPositionChanged", "layerId": L, "bankId": B, "position": P}
      {"t": MS, "event": "sPlayReady", "bankId": B}
    "t" is milliseconds since the runner started. Steps are answered with
      {"t": MS, "ok": OP, "line": N, ...}  or
      {"t": MS, "error": PROBLEM, "line": N, "op": OP}
    Host lines: {"t", "host": "listening", "address", "port"},
    {"t", "host": "console", "url", "address", "port", "token"},
    {"t", "host": "recordFinished", "screen", "path"}, for a layer whose
    source cannot be played {"t", "host": "mediaError", "bankId", "layerId",
    "path", "reason"}, with --ltc-input {"t", "host": "timecode", "tc",
    "fps", "running", "tcMs", "change"} (on start, stop and jump; at most
    once a second while it runs) and {"t", "host": "timecodeInput",
    "state", "text"}, once a second while layers drop frames (due on a
    screen, never shown: an overloaded machine) {"t", "host": "drops",
    "layers": [{"bankId", "layerId", "dropped", "total"}, ...]} and, when the
    X server goes away, {"t", "host": "displayLost", "code": 3, "reason"}.
    TCP clients get their own steps' replies and every event and host line
    (once authenticated, when a token is in force). A client may shut down
    its sending side after its last step: the replies still come, then the
    connection closes. Each source holds at most 4 MiB of waiting lines (plus
    the line being read); all connections together at most 32 MiB, past
    which the one holding the most is disconnected ("input queue full").
    The module's debug lines and the runner's notes go to stderr.

OSC
    With --osc-port, /kelmor/step <json> runs any step (the reply comes back
    as /kelmor/reply <json>); /kelmor/layer/B/L/{play,pause,stop,ready,seek,
    volume,fadein,fadeout,repeat,opacity,visible} and /kelmor/bank/B/{ready,
    play,stop} need no JSON; /kelmor/subscribe [port] [intervalMs] sends
    events as /kelmor/event/NAME. Refused input: /kelmor/error <json>.

EXIT STATUS
    0    the show ended (or "quit" without a code)
    1    usage error, or the show file / port could not be opened
    2    --strict and a step failed
    3    the connection to the X server broke (running recordings are
         finished first)
    N    "quit" {"code": N}
    130, 143  ended by SIGINT, SIGTERM

ENVIRONMENT
    MALLOC_ARENA_MAX  glibc's malloc arenas; the runner uses 2 when it is
                      unset, so that memory does not creep up over thousands
                      of layer lifecycles

EXAMPLES
    xvfb-run -a kelmor-show --ao null --out out --set media=$PWD/media examples/demo.show
    echo '{"op": "setCurPlayerCount", "args": [1]}' | kelmor-show --ao null -
    kelmor-show --ao null --listen 7070 &
      printf '%s\n' '{"op": "getTP", "args": [{}]}' | nc -N 127.0.0.1 7070
)";

} // namespace

QString helpText()
{
    QString text = QString::fromUtf8(kHead);
    QString owner;
    for (const Operation& op : operationTable()) {
        if (op.owner != owner) {
            owner = op.owner;
            text += QStringLiteral("    (%1)\n").arg(owner);
        }
        text += QStringLiteral("      %1%2\n")
                    .arg(op.signature(), op.refusal.isEmpty() ? QString() : QStringLiteral("  [not from a show]"));
    }
    text += QString::fromUtf8(kTail);
    return text;
}
