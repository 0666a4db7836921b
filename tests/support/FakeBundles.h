#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace tks::test {

/// The double of bundles, for a scope: a host's own one, and what bundles declare that are not on disk like that.
class PlayedBundles final : public platform::Bundles {
 public:
  std::optional<std::string> identifier;
  /// What a bundle at a path declares, before what is on disk.
  std::map<std::string, platform::Bundle> declared;

  /// The path of the bundle that was asked for last, by any thread.
  std::string opened() const {
    const std::scoped_lock lock(mutex_);
    return opened_;
  }

  std::optional<std::string> mainBundleIdentifier() override { return identifier; }
  std::string libraryVersion() override { return "7.8.9"; }
  std::optional<platform::Bundle> open(std::string_view path) override {
    {
      const std::scoped_lock lock(mutex_);
      opened_ = path;
    }
    const auto found = declared.find(std::string(path));
    return found != declared.end() ? found->second : replaced_.before().open(path);
  }

 private:
  mutable std::mutex mutex_;
  std::string opened_;
  platform::Replaced<platform::Bundles> replaced_{*this};
};

}  // namespace tks::test
