#include "install/ReplaceBundle.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {

BundleReplacement::BundleReplacement(std::string target) : target_(std::move(target)) {
  while (target_.size() > 1 && target_.ends_with('/')) target_.pop_back();
  const std::string_view name = lastPathComponent(target_);
  folder_ = target_.substr(0, target_.size() - name.size());
  prefix_ = "." + std::string(name) + ".replacement-";
}

BundleReplacement::~BundleReplacement() {
  if (!staged_.empty()) platform::files().remove(staged_, nullptr);
}

void BundleReplacement::removeLeftOvers() const {
  const std::optional<std::vector<std::string>> names = platform::files().list(folder_, nullptr);
  if (!names) return;
  for (const std::string& name : *names) {
    if (name.starts_with(prefix_)) platform::files().remove(joinedPath(folder_, name), nullptr);
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
  if (platform::files().exists(target_)) return platform::files().exchange(staged_, target_, error);
  if (!platform::files().move(staged_, target_, error)) return false;
  staged_.clear();
  return true;
}

}  // namespace tks::install
