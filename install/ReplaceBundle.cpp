#include "install/ReplaceBundle.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/OutOfMemory.h"
#include "install/RemoveWhole.h"
#include "platform/platform.h"

namespace tks::install {

namespace {

void removeHidden(const std::string& path) {
  TKSError error;
  if (removeWhole(path, &error)) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Cannot remove what an installation left: %@", masked(error));
}

}  // namespace

BundleReplacement::BundleReplacement(std::string target) : target_(std::move(target)) {
  while (target_.size() > 1 && target_.ends_with('/')) target_.pop_back();
  folder_ = folderOf(target_);
  prefix_ = "." + std::string(lastPathComponent(target_)) + ".replacement-";
}

BundleReplacement::~BundleReplacement() {
  // If memory runs out here, the next installation cleans up.
  unlessOutOfMemory([this] {
    if (!staged_.empty()) removeHidden(staged_);
    return true;
  });
}

void BundleReplacement::removeLeftOvers() const {
  const std::optional<std::vector<std::string>> names = platform::files().list(folder_, nullptr);
  if (!names) return;
  for (const std::string& name : *names) {
    // A copy that was not completed has a hidden name of its own around that of the bundle.
    if (name.starts_with('.') && name.find(prefix_) != std::string::npos) removeHidden(joinedPath(folder_, name));
  }
}

bool BundleReplacement::stage(const std::string& bundle, TKSError* error) {
  removeLeftOvers();
  const std::string staged = joinedPath(folder_, prefix_ + platform::thisProcess().randomUUID());
  if (!platform::files().move(bundle, staged, error)) return false;
  staged_ = staged;
  return true;
}

bool BundleReplacement::putInPlace(TKSError* error) {
  // A link that leads nowhere takes the place as well.
  const bool isTaken = platform::files().exists(target_) || platform::files().attributes(target_, nullptr);
  if (isTaken) return platform::files().exchange(staged_, target_, error);
  if (!platform::files().move(staged_, target_, error)) return false;
  staged_.clear();
  return true;
}

}  // namespace tks::install
