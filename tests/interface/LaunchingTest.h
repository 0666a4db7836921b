#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/install/FakeSignatures.h"
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// Running applications that a test puts there, and what is asked of them.
class PlayedApplications final : public platform::RunningApplications {
 public:
  /// What `find` returns for a process, look by look; the last one stays.
  std::map<std::int32_t, std::vector<std::optional<TKSRunningApplication>>> looks;
  std::vector<TKSRunningApplication> listed;
  /// Processes that refuse to be terminated.
  std::vector<std::int32_t> refusing;
  /// What `launch` results in, call by call: an error's text, or "" for success.
  std::vector<std::string> launches;

  /// Nothing can be looked up.
  bool blind = false;
  std::function<void()> onLook;

  std::vector<std::int32_t> terminated;
  std::vector<std::vector<std::string>> launchedWith;

  bool canLookUp(TKSError* error) override {
    if (blind && error != nullptr) *error = TKSError{"NSPOSIXErrorDomain", 2, "no table"};
    return !blind;
  }
  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    if (onLook) onLook();
    const auto found = looks.find(pid);
    if (found == looks.end()) return std::nullopt;
    const std::optional<TKSRunningApplication> answer = found->second.front();
    if (found->second.size() > 1) found->second.erase(found->second.begin());
    return answer;
  }
  std::vector<TKSRunningApplication> list() override { return listed; }
  bool forceTerminate(const TKSRunningApplication& application) override {
    terminated.push_back(application.processIdentifier);
    return std::find(refusing.begin(), refusing.end(), application.processIdentifier) == refusing.end();
  }
  bool terminate(const TKSRunningApplication&) override { return false; }
  std::optional<TKSRunningApplication> launch(std::string_view bundlePath, const std::vector<std::string>& arguments,
                                              TKSError* error) override {
    const std::string failure = launches.at(launchedWith.size());
    launchedWith.push_back(arguments);
    if (failure.empty()) return TKSRunningApplication{77, "id", "Name", std::string(bundlePath), 1};
    if (error != nullptr) *error = TKSError{"Workspace", 5, failure};
    return std::nullopt;
  }
  bool hasLastUsedDate(std::string_view) override { return false; }
  void terminateThisApplication() override {}

 private:
  platform::Replaced<platform::RunningApplications> replaced_{*this};
};

/// A test on a lab device whose clock does not wait and whose log is recorded.
class LaunchingTest : public ::testing::Test {
 protected:
  LaunchingTest() {
    writeFile(executable, "#!/bin/false\n");
    std::filesystem::permissions(executable, std::filesystem::perms(0755));
  }

  /// The lines of the log without those that the trust check writes itself.
  std::vector<LogLine> lines() const {
    std::vector<LogLine> found;
    bool checking = false;
    for (const LogLine& line : log.lines()) {
      if (line.text.starts_with("Check app done")) checking = false;
      if (!checking) found.push_back(line);
      if (line.text == "Check app begin.") checking = true;
    }
    return found;
  }

  TemporaryFolder folder;
  const std::string bundle = folder / "Launcher.app";
  const std::string executable = bundle + "/Contents/MacOS/Launcher";
  FakeHome home;
  FakePreferences preferences{{{"IsLabDevice", true}}};
  FakeClock clock;
  LogRecorder log;
  TKSError error;
};

inline LogLine info(const std::string& text) { return {2, text}; }
inline LogLine warning(const std::string& text) { return {4, text}; }
inline LogLine failure(const std::string& text) { return {8, text}; }

}  // namespace tks::test
