#pragma once

#ifdef __APPLE__
#include "platform/apple/tool_runner.h"
#else
#include "platform/linux/processes/tool_runner.h"
#endif

namespace tks::test {

// The back end that runs tools, over tools of a test's own; and where the system's stand.
#ifdef __APPLE__
using platform::apple::makeSystemTools;
using platform::apple::standardToolPath;
#else
using gnulinux::makeSystemTools;
using gnulinux::standardToolPath;
#endif

}  // namespace tks::test
