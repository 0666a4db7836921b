#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/FilePaths.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/text.h"

// The meeting clients beside the launcher: folders such as FM_44.6.0.29928, each with an application of its own.

namespace {

constexpr std::string_view kFolderMark = "FM_";

/// What follows the last separator; the whole name when there is none.
std::string_view versionOf(std::string_view folderName) {
  const std::size_t separator = folderName.rfind(TKSVersionKeySeparator);
  return separator == std::string_view::npos ? folderName
                                             : folderName.substr(separator + TKSVersionKeySeparator.size());
}

/// Whether an entry of the Kovra Folder is a version folder that holds the application.
bool holdsClient(const std::string& kovraFolder, const std::string& name) {
  if (name.find(kFolderMark) == std::string::npos || versionOf(name).empty()) return false;
  tks::platform::Files& files = tks::platform::files();
  const std::string path = tks::joinedPath(kovraFolder, name);
  return files.isDirectory(path) && files.exists(tks::joinedPath(path, TKSForumName));
}

bool isNewer(std::string_view left, std::string_view right) {
  return tks::platform::text().compareNumerically(versionOf(left), versionOf(right)) > 0;
}

/// Name of the folder that holds an item.
std::string_view nameOfFolderAround(std::string_view path) {
  const std::string_view item = tks::lastPathComponent(path);
  return tks::lastPathComponent(path.substr(0, static_cast<std::size_t>(item.data() - path.data())));
}

}  // namespace

std::optional<std::vector<std::string>> TKSUtilBase::sortedLocalFMFolders() {
  const std::string kovraFolder = getKovraFolderPath();
  TKSError error;
  std::optional<std::vector<std::string>> names = tks::platform::files().list(kovraFolder, &error);
  if (!names) {
    const std::string reason = error.description();
    TKSILog::logWithLevel(TKSILogLevelError, "Get kovra folder content failed: %@", tks::masked(reason));
    return std::nullopt;
  }
  std::erase_if(*names, [&](const std::string& name) { return !holdsClient(kovraFolder, name); });
  std::stable_sort(names->begin(), names->end(), isNewer);
  return names;
}

std::optional<std::vector<std::string>> TKSUtilBase::sortedLocalFMVersions() {
  std::optional<std::vector<std::string>> names = sortedLocalFMFolders();
  if (!names) return std::nullopt;
  for (std::string& name : *names) name = std::string(versionOf(name));
  return names;
}

std::optional<std::string> TKSUtilBase::forumPathWithVersion(std::string_view version) {
  const std::string kovraFolder = getKovraFolderPath();
  const std::optional<std::vector<std::string>> names = tks::platform::files().list(kovraFolder, nullptr);
  if (!names) return std::nullopt;
  for (const std::string& name : *names) {
    if (versionOf(name) == version) return tks::formatted("%@/%@/%@", kovraFolder, name, TKSForumName);
  }
  return std::nullopt;
}

std::string TKSUtilBase::getClientBuildVersionOfFMPath(std::string_view forumPath) {
  const TKSValue value = getValueInInfoPlist(forumPath, TKSPlistKeyClientBuildVersion);
  std::string version = value.isNothing() ? std::string() : value.description();
  if (!version.empty()) return version;
  const std::string_view folderName = nameOfFolderAround(forumPath);
  if (folderName.find(TKSVersionKeySeparator) == std::string_view::npos) return {};
  return std::string(versionOf(folderName));
}
