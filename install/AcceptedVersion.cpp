#include "install/AcceptedVersion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/Versions.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/IntegerValue.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

/// No version is longer.
constexpr std::size_t kLongest = 256;

/// Part by part; parts that are missing count as 0.
bool isOlder(std::string_view version, std::string_view than) {
  const std::vector<std::string> parts = versions::parts(version);
  const std::vector<std::string> others = versions::parts(than);
  const auto number = [](const std::vector<std::string>& list, std::size_t i) {
    return i < list.size() ? integerValue(std::string_view(list[i])) : 0;
  };
  for (std::size_t i = 0; i < std::max(parts.size(), others.size()); ++i) {
    if (number(parts, i) != number(others, i)) return number(parts, i) < number(others, i);
  }
  return false;
}

bool isVersion(std::string_view text) { return !versions::parts(text).empty(); }

}  // namespace

std::string acceptedVersionFile(std::string_view launcherPath) {
  return joinedPath(folderOf(launcherPath), formatted(".%@.accepted-version", lastPathComponent(launcherPath)));
}

std::optional<std::string> acceptedVersion(std::string_view launcherPath) {
  const std::string file = acceptedVersionFile(launcherPath);
  if (!platform::files().exists(file)) return std::nullopt;
  const std::optional<TKSData> content = platform::files().read(file, kLongest, nullptr);
  std::string version = content ? std::string(content->begin(), content->end()) : std::string();
  version = std::string(trimmed(version));
  if (isVersion(version)) return version;
  TKSILog::logWithLevel(TKSILogLevelError, "No version is kept in %@, any launcher counts as new.", masked(file));
  return std::nullopt;
}

bool isNotOlderThanAccepted(std::string_view launcherPath, std::string_view version, TKSError* error) {
  const std::optional<std::string> accepted = acceptedVersion(launcherPath);
  if (!accepted || (isVersion(version) && !isOlder(version, *accepted))) return true;
  if (error != nullptr) {
    *error = makeError(
        TKSErrorReason::wrongVersion, TKSUtilErrorDomain, 0,
        formatted("The launcher is older than one that was accepted before: %@, accepted: %@", version, *accepted));
  }
  return false;
}

void noteAcceptedVersion(std::string_view launcherPath, std::string_view version) {
  if (!isVersion(version)) return;
  const std::optional<std::string> accepted = acceptedVersion(launcherPath);
  if (accepted && !isOlder(*accepted, version)) return;
  const std::string file = acceptedVersionFile(launcherPath);
  const std::string text = std::string(version.substr(0, kLongest - 1)) + "\n";
  const std::span content(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  TKSError error;
  if (platform::files().writeAtomically(file, content, &error)) return;
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelWarning, "The accepted version can not be kept: %@, error: %@", masked(file),
                        masked(reason));
}

}  // namespace tks::install
