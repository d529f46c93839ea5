// The leak check at the exit of an AddressSanitizer program whose threads
// hold dynamic TLS blocks of a dlopen'ed module, as the GL driver's and
// libmpv's threads do. Each round forks a child that loads the module, starts
// threads that touch its block and exits while they still run; the child must
// exit 0. With the runtime's __tls_get_addr interceptor on, such exits end in
// "Tracer caught signal 11" (every one with this 16-byte block; about half in a
// plain C program): cmake/AsanDefaults.cpp.
//
// Usage: kelmor_leak_check_at_exit <module> [rounds]
#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

using Touch = char* (*)();
Touch g_touch = nullptr;

void* holdBlock(void* barrier)
{
    g_touch();
    pthread_barrier_wait(static_cast<pthread_barrier_t*>(barrier));
    pause(); // still running when the process exits
    return nullptr;
}

[[noreturn]] void child(const char* module)
{
    void* handle = dlopen(module, RTLD_NOW);
    if (!handle) {
        std::fprintf(stderr, "dlopen: %s\n", dlerror());
        std::_Exit(2);
    }
    g_touch = reinterpret_cast<Touch>(dlsym(handle, "kelmor_touch_tls_block"));
    if (!g_touch) {
        std::fprintf(stderr, "dlsym: %s\n", dlerror());
        std::_Exit(2);
    }
    constexpr int kThreads = 8;
    pthread_barrier_t barrier;
    pthread_barrier_init(&barrier, nullptr, kThreads + 1);
    pthread_t threads[kThreads];
    for (pthread_t& t : threads)
        pthread_create(&t, nullptr, holdBlock, &barrier);
    pthread_barrier_wait(&barrier);
    g_touch();
    std::exit(0); // the leak check runs here
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <module> [rounds]\n", argv[0]);
        return 2;
    }
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 12;
    int failed = 0;
    for (int i = 0; i < rounds; ++i) {
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid < 0)
            return 2;
        if (pid == 0)
            child(argv[1]);
        int status = 0;
        waitpid(pid, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "round %d: the child's exit failed (status %d)\n", i, status);
            ++failed;
        }
    }
    std::printf("%d of %d exits failed\n", failed, rounds);
    return failed == 0 ? 0 : 1;
}
