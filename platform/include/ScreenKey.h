// ScreenKey: the key of a layer's render object on one output screen.
//
// Keys are ordered and compared by screenId alone: two keys with the same
// screen number are the same key whatever their screenType and clientGuid, so
// a layer has at most one render object per screen number.
#pragma once

#include "KelmorPlatformExport.h"

#include <QString>

/// The key of a layer's render object on one output screen; ordered and
/// compared by screenId alone.
struct KELMOR_PLATFORM_EXPORT ScreenKey
{
    int screenId = 0;    ///< the screen number; the only field compared
    int screenType = 0;  ///< the kind of screen, passed through, not compared
    QString clientGuid;  ///< the client owning the screen, passed through, not compared

    ScreenKey() = default;
    /// The key of screen `id`, of kind `type`, owned by client `guid`.
    ScreenKey(int id, int type, QString guid)
        : screenId(id), screenType(type), clientGuid(std::move(guid)) {}

    /// Orders by screen number only.
    bool operator<(const ScreenKey& other) const { return screenId < other.screenId; }
    /// Equal when the screen numbers are, whatever the type and client guid.
    bool operator==(const ScreenKey& other) const { return screenId == other.screenId; }
};
