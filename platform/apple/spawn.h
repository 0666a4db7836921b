#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tks::platform::apple {

/// How a process is started.
struct SpawnRequest {
  enum class Group { inherited, ownSession };
  /// In place of a descriptor: /dev/null.
  static constexpr int kNull = -1;

  /// Absolute path of the executable.
  std::string executable;
  /// Without the program's name, which is added. Passed on byte for byte.
  std::vector<std::string> arguments;
  /// What becomes the process's descriptors 0, 1 and 2: the very same number, one above 2, or kNull. A number that is
  /// not open counts as kNull.
  int standardInput = 0;
  int standardOutput = 1;
  int standardError = 2;
  Group group = Group::inherited;
  /// A clean environment instead of this process's own.
  bool cleanEnvironment = false;
  /// All that its environment holds, "NAME=value", whatever the one before says.
  std::optional<std::vector<std::string>> environment{};
};

/// Starts a process that has descriptors 0 to 2 and no other, an empty signal mask and default handling of all signals,
/// whatever this process and the calling thread do with them. Returns its identifier once the executable runs; 0, and
/// errno, when it does not. The caller collects the process, see ChildWatch. Any thread.
pid_t spawn(const SpawnRequest& request);

}  // namespace tks::platform::apple
