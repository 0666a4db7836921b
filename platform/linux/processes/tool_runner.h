#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/system_tools.h"

namespace tks::gnulinux {

/// Absolute path of a tool; empty when the system has none.
using ToolPath = std::function<std::string(platform::Tool)>;

/// Where the tools stand on this system.
std::string standardToolPath(platform::Tool tool);

/// Where a tool is looked for on this system, for those who have to install it: "/usr/bin/lsof or /usr/sbin/lsof". The
/// name alone of a tool that no system of this kind has.
std::string placesOf(platform::Tool tool);

/// Runs the tools that stand at these paths.
std::unique_ptr<platform::SystemTools> makeSystemTools(ToolPath path);

}  // namespace tks::gnulinux
