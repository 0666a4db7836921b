#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

#include "platform/platform.h"
#include "platform/running_applications.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// What the tests of running applications share, those of one system's own ways included.

namespace tks::test {

/// A launcher that was started by somebody, has read all that it reads of its bundle, and waits.
class Started {
 public:
  explicit Started(const FakeLauncher& launcher) : process_(begin(launcher)) {
    const std::string told = launcher.file("waits");
    // On macOS it still has to check in then.
    waitUntil([&] { return std::filesystem::exists(told) && platform::runningApplications().find(pid()).has_value(); });
  }
  std::int32_t pid() const { return process_.pid(); }
  /// The code that it ended with.
  int wait() { return process_.wait(); }

 private:
  static ChildProcess begin(const FakeLauncher& launcher) {
    std::filesystem::remove(launcher.file("waits"));  // of one before it
    writeFile(launcher.file("script"), "tell waits\nsleep 100s\n");
    return ChildProcess::run(launcher.executable(), {}, {"TKS_FAKE_LAUNCHER=--script script"});
  }

  ChildProcess process_;
};

class RunningApplications : public ::testing::Test {
 protected:
  RunningApplications() { writeFile(launcher.file("wait"), "sleep 100s\n"); }
  void writeInformation(const std::string& keys) {
    writeFile(launcher.bundle() + "/Contents/Info.plist", "<plist version=\"1.0\"><dict>" + keys + "</dict></plist>");
  }
  /// All that run from a launcher's bundle. Other tests may be running launchers of their own.
  static std::vector<TKSRunningApplication> listed(const FakeLauncher& one) {
    std::vector<TKSRunningApplication> found = platform::runningApplications().list();
    std::erase_if(found, [&](const TKSRunningApplication& each) { return each.bundlePath != one.bundle(); });
    return found;
  }
  FakeLauncher launcher;
  TKSError error;
};

}  // namespace tks::test
