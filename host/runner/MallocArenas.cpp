#include "MallocArenas.h"

#include "Console.h"

#include <cstdlib>
#include <malloc.h>

namespace malloc_arenas {

bool limit()
{
    const char* fromEnvironment = std::getenv("MALLOC_ARENA_MAX");
    if (fromEnvironment && *fromEnvironment)
        return true; // glibc has applied it already
    if (mallopt(M_ARENA_MAX, kRunnerArenas) == 1)
        return true;
    console::note(QStringLiteral("malloc arenas: mallopt(M_ARENA_MAX, %1) refused; memory may creep up over a long show")
                      .arg(kRunnerArenas));
    return false;
}

} // namespace malloc_arenas
