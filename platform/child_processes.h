#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

#include "platform/channels.h"

namespace tks::platform {

/// How a child process ended.
struct ChildEnd {
  enum class How {
    exited,   ///< by itself, with an exit code
    killed,   ///< by a signal
    unknown,  ///< it is gone, but somebody else collected its status
  };
  How how = How::unknown;
  /// Exit code or signal number.
  int number = 0;
};

/// What to start and how to connect it.
struct ChildRequest {
  /// Absolute path of the executable.
  std::string executable;
  /// Without the program's name, which is added.
  std::vector<std::string> arguments;
  /// Join the child's standard input and output to this process's own (see ChildProcesses::start).
  bool joinStandardHandles = false;
  /// The pipes stay on private descriptors of this process, where Channels finds them, and 0 and 1 as they are.
  bool keepPipesPrivate = false;
  /// Names of the variables that the child's environment is reduced to, as far as this process has them; nothing: the
  /// child has all of them.
  std::optional<std::vector<std::string>> environment{};
};

/// Child processes of the launcher's kind: started and left to run. macOS: posix_spawn and process sources. Linux: a
/// spawn of the library's own and pidfds. Any thread. The child gets descriptors 0 to 2 and nothing else, default
/// signal handling and an empty signal mask.
class ChildProcesses {
 public:
  virtual ~ChildProcesses() = default;

  /// Starts a child. Returns its process identifier, or 0 and `error`.
  ///
  /// With `joinStandardHandles` two pipes are made: this process's standard output then feeds the child's standard
  /// input, and this process's standard input reads the child's standard output. Standard error stays shared. The
  /// child's ends are closed here at once, all ends are close-on-exec. The handles that stood on 0 and 1 before are
  /// kept on private descriptors; a second start replaces the pipes of the first and leaves nothing of them behind. On
  /// failure everything is as it was before. What stood on 0 and 1 comes back as told in Channels::endOfTalk.
  /// Without it the child shares this process's standard handles, but never the pipes of an earlier start with joined
  /// handles: in place of those, and of handles that are closed here, it gets /dev/null.
  /// With `keepPipesPrivate` beside it the pipes are made and closed in the same way, but nothing is put on 0 and 1:
  /// Channels gives the private ends out as standard input and output until the child has ended and the talk is over.
  ///
  /// The child is collected when it ends, whether or not anyone asks, also when the host ignores SIGCHLD or collects
  /// all children itself. `ended` is called once on the main thread, and may be empty.
  virtual std::int32_t start(const ChildRequest& request, std::function<void(ChildEnd)> ended, TKSError* error) = 0;

  /// How a child ended whose `ended` is not called yet, for those who keep the main thread from doing so. Nothing while
  /// the child runs, from the call of `ended` on, for a child without one, and for all other processes. Any thread.
  virtual std::optional<ChildEnd> untoldEnd(std::int32_t process) = 0;

  /// Asks a child to end (SIGTERM), or ends it (SIGKILL) when `force` says so; false when it is no child of `start`
  /// that runs: what had its number later is never touched. Any thread.
  virtual bool end(std::int32_t process, bool force) = 0;
  /// Whether a process of this user has a file open for writing; false too where that can not be seen. Any thread.
  virtual bool hasOpenForWriting(std::int32_t process, const ChannelIdentity& file) = 0;

  /// The standard input and output from before the first of these calls or starts with joined handles: a private
  /// close-on-exec descriptor, the same one for the rest of the process; -1 when there was none. 0 and 1 when there is
  /// no descriptor left for it and nothing was joined yet.
  virtual int originalStandardInput() = 0;
  virtual int originalStandardOutput() = 0;
};

}  // namespace tks::platform
