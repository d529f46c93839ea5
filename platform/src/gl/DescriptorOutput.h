// An FFmpeg output on a file descriptor the caller opened, for recordings
// whose file was opened (and checked) by the host rather than by name: the
// encoder then writes exactly the file the host vetted, never whatever the
// name may point to later. Seekable, so every container (mp4's index
// included) can be finished.
//
// Threading: the context belongs to whoever writes through it (the recorder's
// encoder thread); open and close are not called concurrently with writes.
#pragma once

struct AVIOContext;

namespace kelmor::gl {

/// A write context on `fd`, which it takes over (closed by
/// closeDescriptorOutput, or at once when this fails). Null on failure.
AVIOContext* openDescriptorOutput(int fd);
/// Flushes, frees the context and closes its descriptor; sets *io to null.
void closeDescriptorOutput(AVIOContext** io);

} // namespace kelmor::gl
