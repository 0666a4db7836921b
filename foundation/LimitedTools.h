#pragma once

#include "platform/system_tools.h"

namespace tks {

/// Runs one of the system's tools, no longer than the option `toolLimit` allows. Waits for it. Any thread.
platform::ToolResult runWithinLimit(platform::ToolRequest request);

}  // namespace tks
