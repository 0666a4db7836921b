#include "foundation/LimitedTools.h"

#include <algorithm>
#include <chrono>

#include "foundation/Options.h"
#include "platform/platform.h"

tks::platform::ToolResult tks::runWithinLimit(platform::ToolRequest request) {
  const std::chrono::milliseconds limit(options().toolLimit);
  if (limit.count() > 0) request.timeLimit = std::min(request.timeLimit, limit);
  return platform::systemTools().run(request);
}
