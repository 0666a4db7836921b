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

/// Runs the tools that stand at these paths.
std::unique_ptr<platform::SystemTools> makeSystemTools(ToolPath path);

}  // namespace tks::gnulinux
