#include "platform/child_processes.h"

#include <signal.h>
#include <sys/types.h>

#include <utility>

#include "platform/backend.h"
#include "platform/linux/processes/child_collector.h"
#include "platform/linux/processes/process_table.h"
#include "platform/linux/processes/spawn.h"
#include "platform/posix/child_start.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::platform {
namespace {

using posix::StandardHandles;

class LinuxChildProcesses final : public ChildProcesses {
 public:
  std::int32_t start(const ChildRequest& request, std::function<void(ChildEnd)> ended, TKSError* error) override {
    gnulinux::ChildCollector& collector = gnulinux::ChildCollector::shared();
    collector.collect();
    gnulinux::SpawnRequest spawn;
    spawn.makesDescriptor = false;
    gnulinux::SpawnedProcess process;
    const pid_t identifier = posix::startChild(request, spawn, ended, [&] {
      process = gnulinux::spawn(spawn);
      return process ? process.identifier : 0;
    });
    if (identifier == 0) {
      posix::fail(error, "start", request.executable);
      return 0;
    }
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
