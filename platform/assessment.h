#pragma once

#include <string>
#include <vector>

namespace tks::assessment {

/// What the assessment of an application says, and how the tool ends.
struct Verdict {
  int exitCode = 0;
  std::string text;  ///< for standard error, with line ends
};

/// Exit codes as the platform's tool has them.
inline constexpr int kAccepted = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;
inline constexpr int kRejected = 3;
/// Not the platform's: memory or descriptors ran out, so that nothing can be said of the application.
inline constexpr int kNoVerdict = 75;

}  // namespace tks::assessment

namespace tks::platform {

/// The system's assessment of applications: whether it would let them be executed. macOS: the tool spctl. Linux: the
/// signature engine of this project, for the program spctl and for where that program is missing. Any thread.
class Assessment {
 public:
  virtual ~Assessment() = default;
  /// What the tool says when it is run with these arguments, without its own name: -a [-t execute] [-v...] PATH...
  /// Throws nothing; without memory, and without a tool, there is no verdict. Blocks while it reads.
  virtual assessment::Verdict run(const std::vector<std::string>& arguments) noexcept = 0;
};

}  // namespace tks::platform
