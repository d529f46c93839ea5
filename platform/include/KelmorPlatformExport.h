// Symbol visibility for the platform library (libKelmorPlatform). The
// libraries are built with hidden visibility; what carries this macro is the
// library's interface.
#pragma once

#define KELMOR_PLATFORM_EXPORT __attribute__((visibility("default")))
