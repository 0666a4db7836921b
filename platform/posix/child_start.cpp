#include "platform/posix/child_start.h"

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/posix/environment.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/standard_handles.h"

namespace tks::posix {
namespace {

using Ended = std::function<void(platform::ChildEnd)>;
using Spawn = std::function<pid_t()>;

void endAtOnce(pid_t process) {
  ::kill(process, SIGKILL);
  retried([&] { return ::waitpid(process, nullptr, 0); });
}

pid_t startJoined(SpawnRequest& request, bool keepPrivate, Ended& ended, const Spawn& spawn) {
  StandardHandles& handles = StandardHandles::shared();
  StandardHandles::Joint joint = handles.begin();
  if (!handles.prepare(joint)) return 0;
  request.standardInput = joint.childInput();
  request.standardOutput = joint.childOutput();
  const pid_t process = spawn();
  if (process == 0) return 0;
  if (const std::uint64_t number = keepPrivate ? joint.keepPrivate() : joint.putInForce(); number != 0) {
    ended = [number, tell = std::move(ended)](platform::ChildEnd end) {
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

pid_t startSharing(SpawnRequest& request, const Spawn& spawn) {
  return StandardHandles::shared().whileUnchanged([&](bool joined) {
    if (joined) request.standardInput = request.standardOutput = SpawnRequest::kNull;
    return spawn();
  });
}

}  // namespace

pid_t startChild(const platform::ChildRequest& request, SpawnRequest& handles, Ended& ended, const Spawn& spawn) {
  handles.executable = request.executable;
  handles.arguments = request.arguments;
  if (request.environment) handles.environment = reducedEnvironment(*request.environment);
  if (!request.joinStandardHandles) return startSharing(handles, spawn);
  return startJoined(handles, request.keepPipesPrivate, ended, spawn);
}

}  // namespace tks::posix
