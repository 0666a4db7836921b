#pragma once

#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/end_to_end/HostProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/ProcessState.h"

namespace tks::test {

constexpr int kUnconnected = 1;
constexpr int kStarting = 2;
constexpr int kConnected = 3;
constexpr int kLaunching = 4;

inline std::string nameOf(const testing::TestParamInfo<HostKind>& tested) {
  constexpr const char* kNames[] = {"OverPipes", "OverFiles", "OverFilesOfTheDebugHost"};
  return kNames[static_cast<int>(tested.param)];
}

/// A host and the launcher that it is going to start.
struct Pair {
  explicit Pair(const std::vector<std::string>& switches, const HostOptions& options = {})
      : launcher(switches), host(options) {
    host.command("path " + launcher.bundle());
  }

  FakeLauncher launcher;
  HostProcess host;

  /// What the host's callbacks were told, in order.
  std::vector<std::string> told() const {
    std::vector<std::string> found;
    for (const std::string& event : host.events()) {
      if (event.starts_with("finish ") || event.starts_with("error ")) found.push_back(event);
    }
    return found;
  }
  bool waitUntilTold(std::size_t count = 1) const {
    return tks::test::waitUntil([&] { return told().size() >= count || !host.isAlive(); }, std::chrono::seconds(60));
  }
  /// The launcher's process identifier, once it was started.
  pid_t launcherPid() const {
    const std::optional<std::string> event = host.waitFor("pid ");
    return event ? std::atoi(event->c_str() + 4) : -1;
  }

  /// Everything of the conversation is gone: no child left uncollected, no launcher, no folder, and status 1. What the
  /// host said of it on its main thread has arrived afterwards.
  void expectNothingLeft() {
    EXPECT_TRUE(host.waitForStatus(kUnconnected));
    EXPECT_TRUE(tks::test::waitUntil([&] { return host.children().empty(); })) << "a child is not collected";
    EXPECT_TRUE(tks::test::waitUntil([&] { return launcher.processes().empty(); })) << "a launcher runs on";
    EXPECT_TRUE(tks::test::waitUntil([&] { return host.temporaryFiles().empty(); })) << "a folder is left";
    host.status();
  }
};

}  // namespace tks::test
