// Symbol visibility for the layer-player module (libKelmorPlayer).
#pragma once

#define KELMOR_PLAYER_EXPORT __attribute__((visibility("default")))
