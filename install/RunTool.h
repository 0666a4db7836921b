#pragma once

#include "platform/system_tools.h"

namespace tks::install {

/// Runs one of the system's tools. A tool that is missing, cannot be started or is ended before it is done gets a line
/// of level 8 with its name, the place where it was looked for, and the reason. Waits for the tool. Any thread.
platform::ToolResult runTool(const platform::ToolRequest& request);

}  // namespace tks::install
