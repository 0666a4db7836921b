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
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

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
