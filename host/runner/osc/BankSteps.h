// BankSteps: host steps that act on every layer of a bank at once, in one
// step (so in one GUI-thread turn):
//
//   {"op": "readyBank", "bank": B, "ms": 0}   arms the bank's play-ready
//        count (setCurPlayerCount) and prepares each layer paused at ms
//        (playReady); sPlayReady(B) follows when every layer is ready.
//   {"op": "playBank", "bank": B}             play on each layer.
//   {"op": "stopBank", "bank": B}             stop on each layer.
//
// Layers go in ascending layer id. Starting them all within one turn makes
// them one group at the engine's start gate, so their first new frames
// appear in the same output frame. The ok line lists the layers
// ("layers": [ids]); a bank with no layers is an error line.
//
// Threading: GUI thread.
#pragma once

class HostSteps;

namespace banksteps {

/// Adds the three steps to `host`; false when a name was taken already.
bool install(HostSteps& host);

} // namespace banksteps
