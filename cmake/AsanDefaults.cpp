// Options every program of an AddressSanitizer build starts with; ASAN_OPTIONS
// from the environment still overrides each of them.
//
// intercept_tls_get_addr=0: the sanitizer runtime of GCC up to 13 and LLVM up
// to 16 takes a dynamic TLS block that happens to start 16 bytes into a page
// for the header glibc gave such blocks before 2.25, and reads a range from the
// words before it. The leak check's tracer then dies at exit ("Tracer caught
// signal 11", "LeakSanitizer has encountered a fatal error") in a program that
// leaked nothing. The GL driver, libmpv and Qt's plugins are loaded with dlopen
// and have such blocks, so runs failed at random. Without the interceptor the
// leak check does not scan dynamic TLS: a pointer kept only there would be
// reported as a leak, never hidden.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options()
{
    return "intercept_tls_get_addr=0";
}
