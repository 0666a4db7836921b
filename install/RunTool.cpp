#include "install/RunTool.h"

#include <string>

#include "foundation/LimitedTools.h"
#include "foundation/logging/Logging.h"

tks::platform::ToolResult tks::install::runTool(const platform::ToolRequest& request) {
  platform::ToolResult result = runWithinLimit(request);
  if (!result.started || result.cutShort) {
    TKSILog::logWithLevel(TKSILogLevelError, "System tool failed: %@", masked(result.error));
  }
  return result;
}
