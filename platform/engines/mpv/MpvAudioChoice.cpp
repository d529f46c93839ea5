#include "MpvAudioChoice.h"

namespace QtAV {

QByteArray MpvAudioChoice::defaultOutputs()
{
    // Sound servers first (they mix several cores), then the sound card
    // directly, then silence. Left out on purpose: sdl, openal, jack (see the
    // header).
    return QByteArrayLiteral("pipewire,pulse,alsa,null");
}

QByteArray MpvAudioChoice::outputsFor(const QString& asked)
{
    const QString trimmed = asked.trimmed();
    return trimmed.isEmpty() ? defaultOutputs() : trimmed.toUtf8();
}

QString MpvAudioChoice::describe(const QString& currentAo, const QString& asked)
{
    const QString tried = QString::fromUtf8(outputsFor(asked));
    if (currentAo == QLatin1String("null") && tried != QLatin1String("null"))
        return QStringLiteral("mpv: no sound output could be opened (tried %1): audio goes to the "
                              "null output, pictures play on")
            .arg(tried);
    return QStringLiteral("mpv: audio output \"%1\" (tried %2)").arg(currentAo, tried);
}

} // namespace QtAV
