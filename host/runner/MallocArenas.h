// MallocArenas: keeps the runner's memory from creeping up over a long show.
//
// Every layer's libmpv core starts and ends a dozen threads of its own. glibc
// gives threads their own malloc arenas (up to 8 per core) and keeps what
// they free inside them, scattered, so that over thousands of layer
// lifecycles the resident size climbs by megabytes per thousand layers
// although nothing leaks. A few shared arenas hold the same allocations
// without that spread. MALLOC_ARENA_MAX in the environment still wins.
//
// Threading: call first thing in main, before any thread exists.
#pragma once

namespace malloc_arenas {

/// The arenas the runner allows when the environment names none.
constexpr int kRunnerArenas = 2;

/// Applies kRunnerArenas unless MALLOC_ARENA_MAX is set; false when glibc
/// refused (a debug line says so).
bool limit();

} // namespace malloc_arenas
