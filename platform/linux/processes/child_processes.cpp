#include "platform/child_processes.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/backend.h"
#include "platform/linux/process_table.h"
#include "platform/linux/processes/child_collector.h"
#include "platform/linux/processes/spawn.h"
#include "platform/posix/environment.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::platform {
namespace {

using gnulinux::SpawnRequest;
using posix::StandardHandles;

void endAtOnce(pid_t process) {
  ::kill(process, SIGKILL);
  posix::retried([&] { return ::waitpid(process, nullptr, 0); });
}

using Ended = std::function<void(ChildEnd)>;

/// Starts a child whose standard input and output are joined to this process's own: nothing, and errno, when it fails.
/// `ended` has to be called when it ends.
gnulinux::SpawnedProcess startJoined(SpawnRequest& request, bool keepPrivate, Ended& ended) {
  StandardHandles& handles = StandardHandles::shared();
  StandardHandles::Joint joint = handles.begin();
  if (!handles.prepare(joint)) return {};
  request.standardInput = joint.childInput();
  request.standardOutput = joint.childOutput();
  gnulinux::SpawnedProcess process = gnulinux::spawn(request);
  if (!process) return process;
  if (const std::uint64_t number = keepPrivate ? joint.keepPrivate() : joint.putInForce(); number != 0) {
    ended = [number, tell = std::move(ended)](ChildEnd end) {
      StandardHandles::shared().childEnded(number);
      if (tell) tell(end);
    };
    return process;
  }
  const int reason = errno;
  endAtOnce(process.identifier);
  errno = reason;
  return {};
}

/// Starts a child that shares this process's standard handles, but never the pipes to another child.
gnulinux::SpawnedProcess startSharing(SpawnRequest& request) {
  return StandardHandles::shared().whileUnchanged([&](bool joined) {
    if (joined) request.standardInput = request.standardOutput = SpawnRequest::kNull;
    return gnulinux::spawn(request);
  });
}

class LinuxChildProcesses final : public ChildProcesses {
 public:
  std::int32_t start(const ChildRequest& request, std::function<void(ChildEnd)> ended, TKSError* error) override {
    gnulinux::ChildCollector& collector = gnulinux::ChildCollector::shared();
    collector.collect();
    SpawnRequest spawn;
    spawn.executable = request.executable;
    spawn.arguments = request.arguments;
    if (request.environment) spawn.environment = posix::reducedEnvironment(*request.environment);
    spawn.makesDescriptor = false;
    gnulinux::SpawnedProcess process =
        request.joinStandardHandles ? startJoined(spawn, request.keepPipesPrivate, ended) : startSharing(spawn);
    if (!process) {
      posix::fail(error, "start", request.executable);
      return 0;
    }
    const pid_t identifier = process.identifier;
    collector.adopt(std::move(process), std::move(ended));
    return identifier;
  }

  std::optional<ChildEnd> untoldEnd(std::int32_t process) override {
    gnulinux::ChildCollector::shared().collect();
    return posix::UntoldEnds::shared().find(process);
  }

  bool end(std::int32_t process, bool force) override {
    return gnulinux::ChildCollector::shared().signal(process, force ? SIGKILL : SIGTERM);
  }

  bool hasOpenForWriting(std::int32_t process, const ChannelIdentity& file) override {
    return gnulinux::hasOpenForWriting(process, file);
  }

  int originalStandardInput() override { return StandardHandles::shared().originalInput(); }
  int originalStandardOutput() override { return StandardHandles::shared().originalOutput(); }
};

}  // namespace

template <>
ChildProcesses& backend<ChildProcesses>() {
  static auto& processes = *new LinuxChildProcesses;
  return processes;
}

}  // namespace tks::platform
