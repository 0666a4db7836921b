#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tks::platform::apple {

/// What inside of a bundle may be code with a signature of its own: folders that have parts of a signature, and files
/// that begin as images do. Paths; no link is followed. Nothing, and errno, when something cannot be looked at.
std::optional<std::vector<std::string>> codeInside(const std::string& bundle);

}  // namespace tks::platform::apple
