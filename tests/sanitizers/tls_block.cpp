// A module with a small thread-local block, loaded with dlopen: glibc gives
// each thread that touches it a dynamic TLS block of its own, from malloc.
extern "C" __attribute__((visibility("default"))) char* kelmor_touch_tls_block()
{
    static thread_local char block[16];
    block[0] = 1;
    return block;
}
