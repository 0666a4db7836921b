#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>

#include "platform/platform.h"

namespace tks::ctl {

/// As long as it lives this program has the identifier of a host that talks to the launcher over files.
class ActsAsFileHost final : public platform::Bundles {
 public:
  std::optional<std::string> mainBundleIdentifier() override { return std::string(TKSIBundleIDHuddle); }
  std::string libraryVersion() override { return replaced_.before().libraryVersion(); }
  std::optional<platform::Bundle> open(std::string_view path) override { return replaced_.before().open(path); }

 private:
  platform::Replaced<platform::Bundles> replaced_{*this};
};

}  // namespace tks::ctl
