#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/channels.h"

namespace tks::gnulinux {

/// What the system says of one process.
struct ProcessFacts {
  /// The kernel's letter: R, S, D, T, Z (ended, not yet collected), X and so on.
  char state = '?';
  uid_t owner = 0;
  /// In the kernel's ticks since it was started.
  std::uint64_t startTime = 0;

  bool isGone() const { return state == 'Z' || state == 'X' || state == 'x'; }
};

/// Whether the system shows processes under the identifiers that this process knows; else false, and errno.
bool hasProcessTable();

/// Looks at one process; nothing when there is none.
std::optional<ProcessFacts> readProcessFacts(pid_t process);

/// Path of a process's executable; nothing when it has none or this user may not know it. A file that was removed or
/// replaced meanwhile keeps its old path.
std::optional<std::string> executablePath(pid_t process);

/// Whether a process has a file open for writing; false too when this user may not know it.
bool hasOpenForWriting(pid_t process, const platform::ChannelIdentity& file);

/// Identifiers of all processes, in the order the system gives.
std::vector<pid_t> allProcesses();

}  // namespace tks::gnulinux
