#pragma once

#include <sys/types.h>

#include <functional>

#include "platform/child_processes.h"
#include "platform/posix/spawn_request.h"

namespace tks::posix {

/// Starts a child the way platform::ChildProcesses::start says, and so that nothing of a failure stays: with the
/// standard handles joined to it, or shared with it, but never the pipes to another child. `spawn` starts the process
/// with the standard handles that `handles` has by then; it returns the identifier, or 0 and errno. Returns the same.
/// Afterwards `ended` is what has to be called when the child ends.
pid_t startChild(const platform::ChildRequest& request, SpawnRequest& handles,
                 std::function<void(platform::ChildEnd)>& ended, const std::function<pid_t()>& spawn);

}  // namespace tks::posix
