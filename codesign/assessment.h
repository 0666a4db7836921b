#pragma once

#include <string>
#include <vector>

#include "platform/assessment.h"

// The assessment of applications on Linux: what the program spctl says, and what the library says by itself where that
// program is missing.

namespace tks::assessment {

/// Assesses an application for execution. `verbosity` is how often "-v" was given. Any thread; blocks while it reads.
Verdict assess(const std::string& path, int verbosity);

/// What the program says when it is run with these arguments, as the contract describes it.
Verdict run(const std::vector<std::string>& arguments) noexcept;

}  // namespace tks::assessment
