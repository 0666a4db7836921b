#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/NoApplications.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// A host's own bundle.
class PlayedBundles final : public platform::Bundles {
 public:
  std::optional<std::string> identifier;
  /// What a bundle at a path declares, before what is on disk.
  std::map<std::string, platform::Bundle> declared;

  std::optional<std::string> mainBundleIdentifier() override { return identifier; }
  std::string libraryVersion() override { return "7.8.9"; }
  std::optional<platform::Bundle> open(std::string_view path) override {
    const auto found = declared.find(std::string(path));
    return found != declared.end() ? found->second : replaced_.before().open(path);
  }

 private:
  platform::Replaced<platform::Bundles> replaced_{*this};
};

/// Launcher processes that are numbered and nothing else.
class PlayedProcesses final : public platform::ChildProcesses, public NoApplications {
 public:
  struct Process {
    platform::ChildRequest request;
    std::function<void(platform::ChildEnd)> ended;
    bool runs = true;
  };

  static constexpr std::int32_t kFirstPid = 4711;

  /// Called on the thread that starts a process, before it is there.
  std::function<void()> onStart;

  std::int32_t start(const platform::ChildRequest& request, std::function<void(platform::ChildEnd)> ended,
                     TKSError* error) override {
    if (onStart) onStart();
    const std::scoped_lock lock(mutex_);
    if (refuse_) {
      if (error != nullptr) *error = {"POSIX", 12, "No more processes"};
      return 0;
    }
    processes_.push_back({request, std::move(ended)});
    return kFirstPid + static_cast<std::int32_t>(processes_.size()) - 1;
  }
  /// Ends are told as soon as they are there.
  std::optional<platform::ChildEnd> untoldEnd(std::int32_t) override { return std::nullopt; }
  /// Notes whom it ends; nothing comes of that but what the test does.
  bool end(std::int32_t process, bool force) override {
    const std::scoped_lock lock(mutex_);
    ended_.push_back((force ? "kill " : "term ") + std::to_string(process));
    return true;
  }
  bool hasOpenForWriting(std::int32_t, const platform::ChannelIdentity&) override { return hasFileOpen; }
  /// Whether launchers have the message file open.
  std::atomic<bool> hasFileOpen = true;
  std::vector<std::string> ended() const {
    const std::scoped_lock lock(mutex_);
    return ended_;
  }
  int originalStandardInput() override { return 0; }
  int originalStandardOutput() override { return 1; }

  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    const std::scoped_lock lock(mutex_);
    ++looks_;
    if (looksUntilQuit_ > 0 && --looksUntilQuit_ == 0) others_.erase(pid);
    const auto index = static_cast<std::size_t>(pid - kFirstPid);
    const bool runs =
        others_.contains(pid) || (pid >= kFirstPid && index < processes_.size() && processes_[index].runs);
    if (!runs || hidden_) return std::nullopt;
    return TKSRunningApplication{pid, "com.tarvo.kovra.Tarvo-Kovra-Start", "Tarvo Kovra Start", "/Users/jane/A.app", 1};
  }

  // What the test does and sees.

  void refuseToStart(bool refuse = true) {
    const std::scoped_lock lock(mutex_);
    refuse_ = refuse;
  }
  /// No process is listed as a running application any more.
  void hide() {
    const std::scoped_lock lock(mutex_);
    hidden_ = true;
  }
  /// Another process that runs, until it was looked for `looks` times; 0: for ever.
  void addRunning(std::int32_t pid, int looks = 0) {
    const std::scoped_lock lock(mutex_);
    others_[pid] = true;
    looksUntilQuit_ = looks;
  }
  void end(std::size_t index, platform::ChildEnd end) {
    std::function<void(platform::ChildEnd)> ended;
    {
      const std::scoped_lock lock(mutex_);
      processes_.at(index).runs = false;
      ended = std::exchange(processes_.at(index).ended, nullptr);
    }
    if (ended) ended(end);
  }
  std::size_t count() const {
    const std::scoped_lock lock(mutex_);
    return processes_.size();
  }
  std::int32_t nextPid() const { return kFirstPid + static_cast<std::int32_t>(count()); }
  platform::ChildRequest request(std::size_t index) const {
    const std::scoped_lock lock(mutex_);
    return processes_.at(index).request;
  }
  int looks() const {
    const std::scoped_lock lock(mutex_);
    return looks_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Process> processes_;
  std::vector<std::string> ended_;
  std::map<std::int32_t, bool> others_;
  int looksUntilQuit_ = 0;
  int looks_ = 0;
  bool refuse_ = false;
  bool hidden_ = false;
  platform::Replaced<platform::ChildProcesses> replacedProcesses_{*this};
  platform::Replaced<platform::RunningApplications> replacedApplications_{*this};
};

/// Tools that answer what the test says; the assessment is the first one that is asked.
class PlayedTools final : public platform::SystemTools {
 public:
  std::string assessment = "rejected\n";
  /// The assessment's tool is not to be had.
  bool withoutAssessment = false;
  std::atomic<int> runs = 0;
  std::function<void()> onAssessment;
  platform::ToolResult run(const platform::ToolRequest& request) override {
    ++runs;
    if (request.tool == platform::Tool::spctl && onAssessment) onAssessment();
    if (request.tool == platform::Tool::spctl && withoutAssessment) return {};
    return {.started = true,
            .output = request.tool == platform::Tool::spctl ? assessment : "print\n",
            .exitCode = 0,
            .error = {}};
  }

 private:
  platform::Replaced<platform::SystemTools> replaced_{*this};
};

/// A world for a facade in which the test itself is the launcher: what is sent to it is heard here, and what it says
/// arrives over the pipe. Nothing is started, and nobody sleeps.
class FakeWorld {
 public:
  FakeHome home;
  FakeClock clock;
  PlayedBundles bundles;
  /// First of all, this is a lab device.
  FakePreferences preferences{{{"IsLabDevice", true}}};
  PlayedProcesses processes;
  PlayedTools tools;
  MemoryChannels channels;
  TemporaryFolder folder;

  FakeWorld() {
    writeFile(executable(), "#!/bin/false\n");
    std::filesystem::permissions(executable(), std::filesystem::perms::owner_all);
  }

  /// Lets the bundle name the launcher's identifier.
  void makeALauncherOfIt() const {
    writeFile(bundle() + "/Contents/Info.plist", "<plist><dict><key>CFBundleIdentifier</key><string>" +
                                                     std::string(TKSAppBundleID) + "</string></dict></plist>");
  }

  std::string bundle() const { return folder / "Launcher.app"; }
  std::string executable() const { return bundle() + "/Contents/MacOS/Launcher"; }

  /// The types of the messages that reached the launcher since the last time.
  std::vector<std::string> heard() {
    std::vector<std::string> types;
    for (const std::string& text : payloads(channels.output->take())) {
      lastMessage = platform::json().parse(text, nullptr);
      types.push_back(std::string(lastMessage["message_type"].text()));
    }
    return types;
  }
  TKSValue lastMessage;

  /// The launcher says something; `body` is JSON.
  void says(std::string_view type, std::string_view body = "\"\"") {
    std::string text = R"({"message_type":")";
    text.append(type).append(R"(","message":)").append(body).append("}");
    channels.input->arrive(frame(text));
  }
};

}  // namespace tks::test
