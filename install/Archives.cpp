#include <string_view>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/Characters.h"
#include "foundation/Logging.h"
#include "platform/platform.h"

// Unpacking with the system's tools. Nobody looks at their exit status: callers judge by what is there afterwards.

namespace {

/// How much of a tool's output a log line shows, in characters.
constexpr std::size_t kShownOutput = 500;

}  // namespace

void TKSUtilBase::unzip(std::string_view zipPath, std::string_view to) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Begin");
  tks::platform::ToolRequest request;
  request.tool = tks::platform::Tool::unzip;
  // "-u": update what is there and create what is not.
  request.arguments = {"-u", "-d", std::string(to), std::string(zipPath)};
  const std::string output = tks::platform::systemTools().run(request).output;
  const std::string_view shown = tks::firstCharacters(output, kShownOutput);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", tks::masked(zipPath));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip to: %@", tks::masked(to));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip Output: %@", tks::masked(shown));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip End");
}

void TKSUtilBase::untar(std::string_view archivePath, std::string_view to) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "untar Begin");
  tks::platform::ToolRequest request;
  request.tool = tks::platform::Tool::tar;
  request.arguments = {"-xvf", std::string(archivePath), "-C", std::string(to)};
  tks::platform::systemTools().run(request);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Archive: %@", tks::masked(archivePath));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar to: %@", tks::masked(to));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Untar End");
}
