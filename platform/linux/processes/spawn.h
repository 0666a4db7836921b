#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/spawn_request.h"

namespace tks::gnulinux {

/// How a process is started here: also with limits, and with a descriptor of the process.
struct SpawnRequest : posix::SpawnRequest {
  /// Largest file the process may write; 0: no limit. It is ended when it tries to write more.
  std::uint64_t fileSizeLimit = 0;
  /// The process is killed when the starting thread or the whole process ends.
  bool endsWithThread = false;
  /// What the clean environment holds beside: "NAME=value".
  std::vector<std::string> variables;
  /// Whether the process comes with its descriptor. Making one is a twentieth of a start.
  bool makesDescriptor = true;
};

/// A process that was started.
struct SpawnedProcess {
  pid_t identifier = -1;
  /// Becomes readable when the process ends; empty where none was asked for, the system has none or none is left.
  posix::FileDescriptor descriptor;
  explicit operator bool() const { return identifier > 0; }
};

/// Starts a process that has descriptors 0 to 2 and no other, an empty signal mask, and default handling of the signals
/// that one program sends another, whatever this one does with them (of real-time signals only when it handles them:
/// one that it ignores stays ignored). Returns once the executable runs; nothing, and errno, when it does not. Costs
/// the same however much memory this process has. The caller collects the process, see ChildCollector.
SpawnedProcess spawn(const SpawnRequest& request);

}  // namespace tks::gnulinux
