#include "install/RunTool.h"

#include <string>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

tks::platform::ToolResult tks::install::runTool(const platform::ToolRequest& request) {
  platform::ToolResult result = platform::systemTools().run(request);
  if (!result.started || result.cutShort) {
    TKSILog::logWithLevel(TKSILogLevelError, "System tool failed: %@", masked(result.error));
  }
  return result;
}
