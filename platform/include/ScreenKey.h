// ScreenKey: the key of a layer's render object on one output screen.
//
// Keys are ordered and compared by screenId alone: two keys with the same
// screen number are the same key whatever their screenType and clientGuid, so
// a layer has at most one render object per screen number.
#pragma once

#include "KelmorPlatformExport.h"

#include <QString>

struct KELMOR_PLATFORM_EXPORT ScreenKey
{
    int screenId = 0;
    int screenType = 0;
    QString clientGuid;

    ScreenKey() = default;
    ScreenKey(int id, int type, QString guid)
        : screenId(id), screenType(type), clientGuid(std::move(guid)) {}

    bool operator<(const ScreenKey& other) const { return screenId < other.screenId; }
    bool operator==(const ScreenKey& other) const { return screenId == other.screenId; }
};
