#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/running_applications.h"

namespace tks::test {

/// No application runs, none can be started and none ended. A test overrides what it plays.
class NoApplications : public platform::RunningApplications {
 public:
  std::optional<TKSRunningApplication> find(std::int32_t) override { return std::nullopt; }
  std::vector<TKSRunningApplication> list() override { return {}; }
  bool forceTerminate(const TKSRunningApplication&) override { return false; }
  bool terminate(const TKSRunningApplication&) override { return false; }
  std::optional<TKSRunningApplication> launch(std::string_view, const std::vector<std::string>&, TKSError*) override {
    return std::nullopt;
  }
  bool hasLastUsedDate(std::string_view) override { return false; }
  void terminateThisApplication() override {}
};

}  // namespace tks::test
