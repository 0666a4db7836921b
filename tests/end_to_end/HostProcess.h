#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// Which of the test hosts to run: the bundle's identifier decides the channel.
enum class HostKind { plain, ember, emberDebug };

struct HostOptions {
  HostKind kind = HostKind::plain;
  bool realClock = false;
  /// Launchers are checked before they are started; otherwise this is a lab device.
  bool checksTrust = false;
  /// Descriptors 0 to 2 are closed before the host begins.
  bool withoutStandardDescriptors = false;
  /// So many descriptors are open in it, none of them close-on-exec.
  int openDescriptors = 0;
  /// SIGCHLD is ignored from the beginning.
  bool ignoresChildren = false;
};

/// A real host process (see host/main.cpp) with a folder of its own in place of the user's. Killed at the end.
class HostProcess {
 public:
  explicit HostProcess(const HostOptions& options = {});
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  pid_t pid() const { return pid_; }
  void command(const std::string& line);

  using Wanted = std::function<bool(const std::vector<std::string>& events)>;
  /// Waits until the events so far are as wanted, or the host has ended; returns whether they are.
  bool waitUntil(const Wanted& wanted, std::chrono::milliseconds limit = std::chrono::seconds(30)) const;
  /// Waits for an event that begins like this; the event, or nothing when none came.
  std::optional<std::string> waitFor(const std::string& beginning,
                                     std::chrono::milliseconds limit = std::chrono::seconds(30)) const;
  std::vector<std::string> events() const;
  /// The events of a kind, for example "finish" or "error".
  std::vector<std::string> events(const std::string& beginning) const;
  void forget();

  /// Status and connected process identifier, as the host sees them now.
  std::pair<int, int> status();
  bool waitForStatus(int wanted);

  /// Open descriptors, threads, and children that live or wait to be collected.
  std::size_t descriptors() const;
  /// True as soon as no more descriptors are open than that: one more may be under way for a moment, a leak stays.
  bool waitForDescriptors(std::size_t atMost) const;
  std::size_t threads() const;
  std::set<int> children() const;
  bool isAlive() const;
  /// What lies in its temporary folder, in folders that hold something.
  std::vector<std::string> temporaryFiles() const;

  void kill();
  /// Asks it to end in good order; its exit code, or 128 and the signal.
  int quit();
  /// The same, by exit in the midst of what it does.
  int exit();

 private:
  void read();
  int collect();

  TemporaryFolder folder_;
  pid_t pid_ = -1;
  int control_ = -1;
  std::optional<int> result_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> events_;
  bool ended_ = false;
  std::thread reader_;
};

}  // namespace tks::test
