#pragma once

#include <sys/types.h>

#include "platform/posix/spawn_request.h"

namespace tks::platform::apple {

/// Starts a process that has descriptors 0 to 2 and no other, an empty signal mask and default handling of all signals,
/// whatever this process and the calling thread do with them. Returns its identifier once the executable runs; 0, and
/// errno, when it does not. The caller collects the process, see ChildWatch. Any thread.
pid_t spawn(const posix::SpawnRequest& request);

}  // namespace tks::platform::apple
