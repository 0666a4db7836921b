#include "messaging/ChannelChoice.h"

#include <optional>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSLaunchVocabulary.h>

#include "foundation/logging/Logging.h"
#include "messaging/TalksOverFiles.h"
#include "platform/platform.h"

namespace tks::messaging {
namespace {

std::string launchArgument(std::string_view name) { return std::string(platform::preferences().argument(name).text()); }

ChannelChoice chosenByLaunchArguments() {
  const std::string way = launchArgument(TKSLaunchArgNameCommunicate);
  if (!way.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Got ipc way from launch args: '-%@ %@'", TKSLaunchArgNameCommunicate, way);
  }
  ChannelChoice choice = {way == TKSLaunchArgValueCommunicateFile, launchArgument(TKSLaunchArgNameTempIPCFilePath)};
  if (!choice.folder.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Got ipcFileFolderPath from launch args: '-%@ %@'",
                          TKSLaunchArgNameTempIPCFilePath, masked(choice.folder));
  } else if (choice.byFile) {
    TKSILog::logWithLevel(TKSILogLevelError, "ipcFileFolderPath is nil or empty while ipc by file!");
  }
  return choice;
}

}  // namespace

ChannelChoice chooseChannel() {
  const std::optional<std::string> identifier = platform::bundles().mainBundleIdentifier();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Got bundleIdentifier:%@", identifier ? identifier->c_str() : nullptr);
  ChannelChoice choice =
      talksOverFiles(identifier.value_or("")) ? ChannelChoice{.byFile = true} : chosenByLaunchArguments();
  if (choice.byFile) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "TKSInterface communicates with TKS by FILE.");
  } else {
    // "standrad" is the line's spelling.
    TKSILog::logWithLevel(TKSILogLevelInfo,
                          "TKSInterface/Extension communicates with TKS by PIPE with standrad input and output.");
  }
  return choice;
}

}  // namespace tks::messaging
