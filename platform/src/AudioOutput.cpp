// Audio output state; each change is handed to the engine outside the mutex
// so that a slow engine call never blocks readers of the state.
#include "AudioOutput.h"

#include "MediaEngine.h"

namespace QtAV {

AudioOutput::AudioOutput() = default;
AudioOutput::~AudioOutput() = default;

void AudioOutput::attachBackend(PlayerBackend* backend)
{
    QMutexLocker lock(&m_mutex);
    m_backend = backend;
}

double AudioOutput::volume() const
{
    QMutexLocker lock(&m_mutex);
    return m_volume;
}

void AudioOutput::setVolume(double volume)
{
    PlayerBackend* backend;
    {
        QMutexLocker lock(&m_mutex);
        m_volume = volume;
        ++m_setVolumeCount;
        backend = m_backend;
    }
    if (backend)
        backend->setVolume(volume);
}

bool AudioOutput::close()
{
    PlayerBackend* backend;
    {
        QMutexLocker lock(&m_mutex);
        if (!m_open)
            return false;
        backend = m_backend;
    }
    if (backend && !backend->closeAudio())
        return false;
    QMutexLocker lock(&m_mutex);
    m_open = false;
    return true;
}

bool AudioOutput::open()
{
    PlayerBackend* backend;
    int layout;
    {
        QMutexLocker lock(&m_mutex);
        backend = m_backend;
        layout = m_format.channelLayout();
    }
    if (backend) {
        backend->setChannelLayout(layout);
        if (!backend->openAudio())
            return false;
    }
    QMutexLocker lock(&m_mutex);
    m_open = true;
    return true;
}

bool AudioOutput::isOpen() const
{
    QMutexLocker lock(&m_mutex);
    return m_open;
}

AudioFormat AudioOutput::audioFormat() const
{
    QMutexLocker lock(&m_mutex);
    return m_format;
}

void AudioOutput::setAudioFormat(const AudioFormat& format)
{
    QMutexLocker lock(&m_mutex);
    m_format = format;
    ++m_setFormatCount;
}

int AudioOutput::setVolumeCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_setVolumeCount;
}

int AudioOutput::setAudioFormatCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_setFormatCount;
}

} // namespace QtAV
