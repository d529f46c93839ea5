// Non-blocking requests to a libmpv core, and the tags that tell their
// replies apart.
//
// Every request here is asynchronous (mpv_command_async and
// mpv_set_property_async copy their arguments and return at once), so any
// thread may make them, and the GUI thread never waits on the core. libmpv
// runs the requests of one client in the order they were made.
//
// A reply's userdata carries a tag (what the request was) and a serial (which
// load or which seek it belongs to), so that replies to requests made for an
// earlier source are recognised and dropped.
#pragma once

#include <QByteArray>
#include <cstdint>
#include <initializer_list>
#include <mpv/client.h>

namespace QtAV {
namespace mpvasync {

enum class Tag : std::uint8_t {
    None = 0,
    Load,      // loadfile; serial = the backend's load serial
    ReadySeek, // the seek of a play-ready; serial = the ready serial
    Stat,      // a figure read when a source is loaded; serial = load serial
    StatLast,  // the last of those: the source counts as loaded after it
    Probe,     // whether a picture or sound was decoded; serial = load serial
    ProbeLast, // the last of those: the source is judged after it
    Set,       // a property change; serial = the Prop
    Command,   // any other command; serial unused
};

/// The properties the engine changes, named so a refused change can say which.
enum class Prop : std::uint8_t {
    Pause, Volume, Af, Aid, Start, End, LoopFile, Hwdec, Speed, AudioChannels, Ao, AudioDevice,
};
const char* propName(Prop prop);

inline std::uint64_t tag(Tag t, std::uint64_t serial = 0)
{
    return (serial << 8) | static_cast<std::uint64_t>(t);
}
inline Tag tagOf(std::uint64_t userdata) { return static_cast<Tag>(userdata & 0xff); }
inline std::uint64_t serialOf(std::uint64_t userdata) { return userdata >> 8; }

/// mpv_command_async with the given arguments (null handle: nothing).
void command(mpv_handle* mpv, std::uint64_t userdata, std::initializer_list<const char*> args);
void setString(mpv_handle* mpv, Prop prop, const QByteArray& value);
void setFlag(mpv_handle* mpv, Prop prop, bool value);
void setDouble(mpv_handle* mpv, Prop prop, double value);
/// An exact seek to an absolute position in milliseconds.
void seekExact(mpv_handle* mpv, std::uint64_t userdata, qint64 msec);
/// Milliseconds as the seconds string libmpv's time options take; a negative
/// value gives "none".
QByteArray seconds(qint64 msec);

} // namespace mpvasync
} // namespace QtAV
