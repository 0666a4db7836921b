#pragma once

#include <sys/types.h>

#include "platform/channels.h"

namespace tks::platform::apple {

/// Whether a process has a file open for writing; false too when this user may not know it. Any thread.
bool hasOpenForWriting(pid_t process, const ChannelIdentity& file);

}  // namespace tks::platform::apple
