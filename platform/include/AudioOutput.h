// QtAV::AudioOutput: a player's audio output: its volume, whether it is open,
// and its format (channel layout).
//
// Volume: 0.0 is silence, 1.0 unity gain; the fades of the player multiply it.
//
// Threading: every operation may be called from any thread (the layer
// service changes volume and sound track on its worker threads); the state is
// guarded by the output's own mutex, and each change is handed to the
// player's engine outside that mutex.
// Ownership: the player owns its audio output; audio() never returns null for
// a live player.
#pragma once

#include "AudioFormat.h"
#include "KelmorPlatformExport.h"

#include <QMutex>

namespace QtAV {

class PlayerBackend;

/// A player's audio output: volume, open or closed, and format. Any thread
/// (own mutex); owned by its player (AVPlayer::audio()).
class KELMOR_PLATFORM_EXPORT AudioOutput
{
public:
    /// An open output at volume 1.0, stereo, with no engine attached.
    AudioOutput();
    ~AudioOutput();
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    /// The volume as last set (1.0 until then).
    double volume() const;
    /// Sets the volume (0.0 silence, 1.0 unity gain) and hands it to the
    /// engine, which may clamp it (the libmpv engine keeps it in 0..1).
    void setVolume(double volume);

    /// Closes the output; false when it was not open or the engine could not
    /// close it (the output then stays open).
    bool close();
    /// Opens the output (with the current format); true when it is open after.
    bool open();
    /// Whether the output is open (it starts open).
    bool isOpen() const;

    /// A copy of the output's format.
    AudioFormat audioFormat() const;
    /// Applies a format; takes effect at the next open().
    void setAudioFormat(const AudioFormat& format);

    /// Counts of the engine-facing operations, for diagnostics and tests:
    /// how many times setVolume() was called.
    int setVolumeCount() const;
    /// How many times setAudioFormat() was called.
    int setAudioFormatCount() const;

    /// Connects the output to its player's engine (null: keep state only).
    /// Called by the player on its own thread, never while other threads use it.
    void attachBackend(PlayerBackend* backend);

private:
    mutable QMutex m_mutex;        // guards every field below
    PlayerBackend* m_backend = nullptr;
    double m_volume = 1.0;
    bool m_open = true;
    AudioFormat m_format;
    int m_setVolumeCount = 0;
    int m_setFormatCount = 0;
};

} // namespace QtAV
