#include "platform/child_processes.h"

#include <signal.h>

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
#include "platform/posix/child_start.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::platform {
namespace {

using posix::StandardHandles;

using Ended = std::function<void(ChildEnd)>;

class AppleChildProcesses final : public ChildProcesses {
 public:
  std::int32_t start(const ChildRequest& request, Ended ended, TKSError* error) override {
    posix::SpawnRequest spawn;
    const pid_t process = posix::startChild(request, spawn, ended, [&] { return apple::spawn(spawn); });
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
