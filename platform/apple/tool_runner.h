#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/system_tools.h"

namespace tks::platform::apple {

/// Absolute path of a tool; empty when the system has none.
using ToolPath = std::function<std::string(Tool)>;

/// Where the tools stand on this system.
std::string standardToolPath(Tool tool);

/// Runs the tools that stand at these paths.
std::unique_ptr<SystemTools> makeSystemTools(ToolPath path);

}  // namespace tks::platform::apple
