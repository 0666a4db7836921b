#pragma once

#include <string>
#include <vector>

// The assessment of applications on Linux: what the program spctl says, and what the library says by itself where that
// program is missing. codesign/assessment.cpp defines it. macOS has a tool of the system's.

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

/// Assesses an application for execution. `verbosity` is how often "-v" was given. Any thread; blocks while it reads.
Verdict assess(const std::string& path, int verbosity);

/// What the program says when it is run with these arguments, without its own name: -a [-t execute] [-v...] PATH...
/// Throws nothing; without memory there is no verdict. Any thread; blocks while it reads.
Verdict run(const std::vector<std::string>& arguments) noexcept;

}  // namespace tks::assessment
