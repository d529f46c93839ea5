// Which audio outputs a libmpv core tries, and the one line per process that
// says what it got.
//
// When the host names no output, libmpv's own order ends with outputs that
// are not safe with several cores in one process: after pipewire, pulse and
// alsa fail (a machine without a sound card or sound server), libmpv goes on
// to "jack" and "sdl". SDL keeps process-wide state that two cores opening
// their audio at the same time corrupt (a crash or a hang inside libSDL2);
// OpenAL has one current context per process, so two cores fight over it;
// JACK may start a server of its own and registers one client per core.
// The engine therefore tries its own list, each entry an output that opens
// per core with no process-wide state of its own, and ends with "null": with
// no sound device the players play on in silence. libmpv skips names it was
// built without, so the list holds for every build.
//
// An output the host names (MpvEngineOptions::audioOutput, kelmor-show's
// --ao) is used as it is, even one of those left out here.
//
// Threading: pure functions (any thread).
#pragma once

#include "MpvEngine.h" // export macro

#include <QByteArray>
#include <QString>

namespace QtAV {
namespace MpvAudioChoice {

/// The outputs tried, in order, when the host names none ("ao" syntax).
KELMOR_ENGINE_MPV_EXPORT QByteArray defaultOutputs();
/// The "ao" value for what the host asked for (empty: defaultOutputs()).
KELMOR_ENGINE_MPV_EXPORT QByteArray outputsFor(const QString& asked);
/// The line that says which output a core opened ("current-ao"), given what
/// the host asked for; "null" without having asked for it means that no
/// sound device could be opened.
KELMOR_ENGINE_MPV_EXPORT QString describe(const QString& currentAo, const QString& asked);

} // namespace MpvAudioChoice
} // namespace QtAV
