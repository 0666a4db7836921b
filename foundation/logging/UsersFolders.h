#pragma once

#include <span>
#include <string>

namespace tks::masking {

/// Folders that hold a folder for each user, beside "/users/", which is one on every system: "/home/". In lower case,
/// with a slash at both ends, the longest first. What they are on this system is decided in platform/, which defines
/// this function. Any thread.
std::span<const std::string> usersFolders();

}  // namespace tks::masking
