#include "gl/DescriptorOutput.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avio.h>
#include <libavformat/version.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace kelmor::gl {

namespace {

constexpr int kBufferSize = 64 * 1024;

struct Descriptor {
    int fd = -1;
};

// FFmpeg 6.1 made the buffer of write callbacks const.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using WriteBuffer = const uint8_t*;
#else
using WriteBuffer = uint8_t*;
#endif

int writePacket(void* opaque, WriteBuffer data, int size)
{
    const int fd = static_cast<Descriptor*>(opaque)->fd;
    int done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, data + done, static_cast<size_t>(size - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? AVERROR(errno) : AVERROR(EIO);
        done += int(n);
    }
    return done;
}

int64_t seekTo(void* opaque, int64_t offset, int whence)
{
    const int fd = static_cast<Descriptor*>(opaque)->fd;
    if (whence & AVSEEK_SIZE) {
        struct stat st = {};
        return ::fstat(fd, &st) == 0 ? int64_t(st.st_size) : AVERROR(errno);
    }
    whence &= ~AVSEEK_FORCE;
    if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END)
        return AVERROR(EINVAL);
    const off_t at = ::lseek(fd, off_t(offset), whence);
    return at < 0 ? AVERROR(errno) : int64_t(at);
}

} // namespace

AVIOContext* openDescriptorOutput(int fd)
{
    if (fd < 0)
        return nullptr;
    auto* descriptor = new Descriptor{fd};
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    AVIOContext* io = buffer ? avio_alloc_context(buffer, kBufferSize, 1, descriptor, nullptr,
                                                  writePacket, seekTo)
                             : nullptr;
    if (!io) {
        av_free(buffer);
        delete descriptor;
        ::close(fd);
    }
    return io;
}

void closeDescriptorOutput(AVIOContext** io)
{
    if (!io || !*io)
        return;
    avio_flush(*io);
    auto* descriptor = static_cast<Descriptor*>((*io)->opaque);
    av_freep(&(*io)->buffer);
    avio_context_free(io);
    if (descriptor) {
        ::close(descriptor->fd);
        delete descriptor;
    }
}

} // namespace kelmor::gl
