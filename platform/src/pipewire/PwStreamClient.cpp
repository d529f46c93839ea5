#include "pipewire/PwStreamClient.h"

namespace kelmor::pipewire {

bool destroyListenedStream(pw_stream*& stream, StreamHooks& hooks)
{
    if (!stream)
        return false;
    spa_hook_remove(&hooks.stream);
    pw_stream_destroy(stream);
    stream = nullptr;
    return true;
}

void leaveSession(std::shared_ptr<PwSession>& session, PwSession::Client* client,
                  const std::function<void()>& teardown)
{
    if (!session)
        return;
    session->lock();
    teardown();
    session->unlock();
    session->removeClient(client);
    session.reset(); // the last holder stops the session's thread
}

} // namespace kelmor::pipewire
