#include "platform/child_processes.h"

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/apple/child_watch.h"
#include "platform/apple/open_files.h"
#include "platform/apple/spawn.h"
#include "platform/backend.h"
#include "platform/platform.h"
#include "platform/posix/environment.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::platform {
namespace {

using apple::SpawnRequest;
using posix::StandardHandles;

using Ended = std::function<void(ChildEnd)>;

void endAtOnce(pid_t process) {
  kill(process, SIGKILL);
  posix::retried([&] { return waitpid(process, nullptr, 0); });
}

/// Starts a child whose standard input and output are joined to this process's own: 0, and errno, when it fails.
/// `ended` has to be called when it ends.
pid_t startJoined(SpawnRequest& request, bool keepPrivate, Ended& ended) {
  StandardHandles& handles = StandardHandles::shared();
  StandardHandles::Joint joint = handles.begin();
  if (!handles.prepare(joint)) return 0;
  request.standardInput = joint.childInput();
  request.standardOutput = joint.childOutput();
  const pid_t process = apple::spawn(request);
  if (process == 0) return 0;
  if (const std::uint64_t number = keepPrivate ? joint.keepPrivate() : joint.putInForce(); number != 0) {
    ended = [number, tell = std::move(ended)](ChildEnd end) {
      StandardHandles::shared().childEnded(number);
      if (tell) tell(end);
    };
    return process;
  }
  const int reason = errno;
  endAtOnce(process);
  errno = reason;
  return 0;
}

/// Starts a child that shares this process's standard handles, but never the pipes to another child.
pid_t startSharing(SpawnRequest& request) {
  return StandardHandles::shared().whileUnchanged([&](bool joined) {
    if (joined) request.standardInput = request.standardOutput = SpawnRequest::kNull;
    return apple::spawn(request);
  });
}

class AppleChildProcesses final : public ChildProcesses {
 public:
  std::int32_t start(const ChildRequest& request, Ended ended, TKSError* error) override {
    SpawnRequest spawn;
    spawn.executable = request.executable;
    spawn.arguments = request.arguments;
    if (request.environment) spawn.environment = posix::reducedEnvironment(*request.environment);
    const pid_t process =
        request.joinStandardHandles ? startJoined(spawn, request.keepPipesPrivate, ended) : startSharing(spawn);
    if (process == 0) {
      posix::fail(error, "start", request.executable);
      return 0;
    }
    const auto tellEnd = [this, process, tell = std::move(ended)](ChildEnd end) {
      forget(process);
      if (!tell) return;
      const std::uint64_t untold = posix::UntoldEnds::shared().add(process, end);
      mainLoop().post([untold, tell, end] {
        posix::UntoldEnds::shared().remove(untold);
        tell(end);
      });
    };
    const std::lock_guard lock(mutex_);
    watches_.insert_or_assign(process, apple::ChildWatch::begin(process, apple::ChildWatch::Kind::alone, tellEnd));
    return process;
  }

  bool end(std::int32_t process, bool force) override {
    const std::lock_guard lock(mutex_);
    const auto found = watches_.find(process);
    return found != watches_.end() && found->second->signal(force ? SIGKILL : SIGTERM);
  }

  bool hasOpenForWriting(std::int32_t process, const ChannelIdentity& file) override {
    return apple::hasOpenForWriting(process, file);
  }

  // The watch tells of its end on a queue of its own, whatever the main thread does.
  std::optional<ChildEnd> untoldEnd(std::int32_t process) override { return posix::UntoldEnds::shared().find(process); }

  int originalStandardInput() override { return StandardHandles::shared().originalInput(); }
  int originalStandardOutput() override { return StandardHandles::shared().originalOutput(); }

 private:
  /// On the queue where children are collected, which waits for nobody who holds the lock.
  void forget(pid_t process) {
    const std::lock_guard lock(mutex_);
    const auto found = watches_.find(process);
    // A later child may have the number by now.
    if (found != watches_.end() && !found->second->signal(0)) watches_.erase(found);
  }

  std::mutex mutex_;  // guards what follows
  std::map<pid_t, std::shared_ptr<apple::ChildWatch>> watches_;
};

}  // namespace

template <>
ChildProcesses& backend<ChildProcesses>() {
  static auto& processes = *new AppleChildProcesses;
  return processes;
}

}  // namespace tks::platform
