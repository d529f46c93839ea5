// The default media engine, loaded on first use when the host installed
// none: libKelmorEngineMpv, opened with dlopen from the folder that holds
// libKelmorPlatform (so an installed prefix works wherever it is moved),
// and made through its C entry point kelmor_create_media_engine.
//
// The platform library cannot link the engine (the engine links the
// platform), and a host that never plays media should not need libmpv to
// start: both are why the engine is loaded rather than linked.
//
// Threading: called with the engine choice's mutex held (MediaEngine.cpp).
#pragma once

#include "MediaEngine.h"

#include <QString>
#include <memory>

namespace QtAV {

/// The C entry point every loadable engine library exports: returns a new
/// engine (owned by the caller) or null.
using CreateMediaEngineFn = MediaEngine* (*)();
constexpr const char* kCreateMediaEngineSymbol = "kelmor_create_media_engine";

/// Loads the default engine; null (and `problem`) when it cannot.
std::unique_ptr<MediaEngine> loadDefaultEngine(QString& problem);

} // namespace QtAV
