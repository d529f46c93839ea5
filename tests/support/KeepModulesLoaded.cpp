// Linked into the AddressSanitizer builds of the programs that draw with
// OpenGL (the screen tests and kelmor-show), never into a release build.
//
// Mesa loads its driver with dlopen and unloads it when the last display
// closes, before LeakSanitizer runs at exit. Memory that the driver's
// globals still pointed to then looks leaked, and its allocation stacks
// point into a module that no longer exists ("<unknown module>"), so no
// suppression can name it. Keeping every dlopen'ed module mapped until the
// process ends leaves those pointers visible to the leak check, which then
// judges only memory nobody points to, ours included.
#include <dlfcn.h>

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int mode)
{
    using Open = void* (*)(const char*, int);
    static const Open real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "dlopen"));
    return real(file, file ? (mode | RTLD_NODELETE) : mode);
}
