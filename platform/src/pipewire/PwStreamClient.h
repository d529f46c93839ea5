// What every PipeWire session client with a stream of its own (a "spout"
// receiver, a published screen) does the same way: the stream's listener,
// the stream's destruction and the client's end of the session.
//
// Threading: destroyListenedStream() with the session's lock held (loop
// thread, or the owner's thread inside leaveSession()); leaveSession() on
// the owner's thread, never on the loop thread (as PwSession's lock()).
#pragma once

#include "pipewire/PwSession.h"

#include <pipewire/stream.h>

#include <functional>
#include <memory>

namespace kelmor::pipewire {

/// A stream's listener: the hook the stream holds while it exists and the
/// table of the client's handlers it was added with. Owned by the client;
/// both fields: the session's lock held (the table is filled once, before
/// any stream exists).
struct StreamHooks
{
    spa_hook stream{};
    pw_stream_events events{};
};

/// Removes the client's listener from `stream` and destroys the stream;
/// `stream` is null afterwards. false (and nothing done) when there was no
/// stream. The session's lock held.
bool destroyListenedStream(pw_stream*& stream, StreamHooks& hooks);

/// The client's end of the session, from its destructor: `teardown` runs
/// with the session's lock held (it destroys the client's stream and timers
/// and marks the client as closing, so that what the loop thread still
/// tells it before it is removed reaches nobody), then the client is
/// removed from the session and `session` lets go of it (the last holder
/// stops the session's thread). Nothing when `session` is null: the client
/// never started.
void leaveSession(std::shared_ptr<PwSession>& session, PwSession::Client* client,
                  const std::function<void()>& teardown);

} // namespace kelmor::pipewire
