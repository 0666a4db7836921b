#include "foundation/Trace.h"

#include <tksinterface/TKSILog.h>

#include "platform/platform.h"

namespace tks {

void trace(std::string_view className, std::string_view method, int line) {
  if (!TKSILog::isListening()) return;
  platform::ThisProcess& process = platform::thisProcess();
  TKSILog::logWithLevel(TKSILogLevelTrace, "[%u:%u][%@: %@] line:%d", process.identifier(), process.threadNumber(),
                        className, method, line);
}

}  // namespace tks
