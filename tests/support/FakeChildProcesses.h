#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "tests/support/FakeApplications.h"

namespace tks::test {

// The doubles of child processes.

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

/// One child at a time, which the test ends.
class PlayedChildren final : public platform::ChildProcesses {
 public:
  static constexpr std::int32_t kFirstPid = 4711;

  bool refuses = false;
  std::vector<platform::ChildRequest> requests;
  std::function<void(platform::ChildEnd)> ended;
  std::function<void(const std::function<void(platform::ChildEnd)>&)> onStart;
  /// The end of the child, while the loop has not told it.
  std::optional<platform::ChildEnd> untold;

  std::int32_t start(const platform::ChildRequest& request, std::function<void(platform::ChildEnd)> whenEnded,
                     TKSError* error) override {
    requests.push_back(request);
    ended = std::move(whenEnded);
    if (onStart) onStart(ended);
    if (!refuses) return kFirstPid;
    if (error != nullptr) *error = TKSError{"NSPOSIXErrorDomain", 8, "start \"x\": Exec format error"};
    return 0;
  }
  std::optional<platform::ChildEnd> untoldEnd(std::int32_t process) override {
    return process == kFirstPid ? untold : std::nullopt;
  }
  bool end(std::int32_t, bool) override { return false; }
  bool hasOpenForWriting(std::int32_t, const platform::ChannelIdentity&) override { return false; }
  int originalStandardInput() override { return 71; }
  int originalStandardOutput() override { return 72; }

 private:
  platform::Replaced<platform::ChildProcesses> replaced_{*this};
};

}  // namespace tks::test
