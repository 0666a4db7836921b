#include "install/ReplaceBundle.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>

#include "foundation/Options.h"
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

std::string previousBundleOf(std::string_view target) {
  return joinedPath(folderOf(target), "." + std::string(lastPathComponent(target)) + ".previous");
}

bool putPreviousBack(const std::string& target, TKSError* error) {
  const std::string kept = previousBundleOf(target);
  if (!platform::files().exists(target)) return platform::files().move(kept, target, error);
  if (!platform::files().exchange(kept, target, error)) return false;
  removeHidden(kept);
  return true;
}

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
  const std::string previous = previousBundleOf(target_);
  const std::string_view kept = lastPathComponent(previous);
  for (const std::string& name : *names) {
    // A copy that was not completed has a hidden name of its own around that of the bundle.
    const bool isUnwanted = name == kept && !options().keepPreviousLauncher;
    const bool isLeft = name.starts_with('.') && name.find(prefix_) != std::string::npos;
    if (isLeft || isUnwanted) removeHidden(joinedPath(folder_, name));
  }
}

bool BundleReplacement::stage(const std::string& bundle, TKSError* error) {
  removeLeftOvers();
  const std::string staged = joinedPath(folder_, prefix_ + platform::thisProcess().randomUUID());
  if (!platform::files().move(bundle, staged, error)) return false;
  staged_ = staged;
  return true;
}

void BundleReplacement::keepOld() {
  if (staged_.empty() || !platform::files().isDirectory(staged_)) return;
  const std::string kept = previousBundleOf(target_);
  const bool isTaken = platform::files().exists(kept) || platform::files().attributes(kept, nullptr);
  TKSError error;
  // One of them is always there: with both exchanged, the older one goes with this object.
  const bool done =
      isTaken ? platform::files().exchange(staged_, kept, &error) : platform::files().move(staged_, kept, &error);
  if (done && !isTaken) staged_.clear();
  if (done) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "The previous launcher is not kept: %@, error: %@", masked(kept),
                        masked(error));
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
