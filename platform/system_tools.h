#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

namespace tks::platform {

enum class Tool {
  unzip,    ///< unpacks launchers
  tar,      ///< unpacks lists of updates
  spctl,    ///< assesses applications
  lsof,     ///< lists who holds a bundle open
  shasum,   ///< digests that list
  tccutil,  ///< resets privacy decisions; macOS only
  sysctl,   ///< names the processor
  gktool,   ///< "scan PATH": looks through an application before its first start; macOS 14.4 and later
};

/// How a tool is run. No tool ever gets a shell, this process's standard input or any other of its descriptors; its
/// environment is a clean one.
struct ToolRequest {
  Tool tool;
  std::vector<std::string> arguments;
  /// Collect standard error instead of standard output. The other one is thrown away.
  bool collectStandardError = false;
  /// A second tool that reads the first one's output; its own output is then what is collected.
  std::optional<Tool> pipedInto = std::nullopt;
  /// Longer output is read to its end and thrown away.
  std::size_t outputLimit = 16u * 1024 * 1024;
  /// The most bytes that the tool may write, in one file or in all with its output; then it is ended. The sum is
  /// looked at now and then, so that it can be exceeded by what fits in between. macOS counts blocks, has no limit for
  /// one file, and lets a tool go on to twice as much and 64 MiB, so that no small file is counted for a large one.
  std::optional<std::uint64_t> writeLimit = std::nullopt;
  /// Told now and then, on the calling thread, how many bytes the tool has written so far, counted as for the limit.
  /// May be empty; is not told of a tool that is done at once.
  std::function<void(std::uint64_t bytes)> onWritten{};
  /// After this the tool is ended with its process group.
  std::chrono::milliseconds timeLimit{std::chrono::seconds(300)};
};

struct ToolResult {
  /// False: the tool is missing or could not be started, or the system could not load it; `error` names it, or where it
  /// was looked for, and says why.
  bool started = false;
  std::string output{};
  /// Exit code of the (last) tool; -1 when it was ended by a signal or by a limit.
  int exitCode = -1;
  TKSError error{};
  /// The tool was ended before it was done, by a signal or by a limit; `error` says by which.
  bool cutShort = false;
};

/// The system's command-line tools, started like other children. On Linux an assessment is made by the library itself
/// where its program is missing, with the same words and exit codes, and stands for the scan ahead as well. The
/// absolute paths stand in one table of each back end. Any thread; waits for the tool.
class SystemTools {
 public:
  virtual ~SystemTools() = default;
  virtual ToolResult run(const ToolRequest& request) = 0;
};

}  // namespace tks::platform
