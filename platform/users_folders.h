#pragma once

#include <span>
#include <string>

namespace tks::platform {

/// Which folders hold a folder for each user, for the masking of their names. macOS: none beside "/Users/". Linux:
/// "/home/", and the folder that the real home lies in. Any thread.
class UsersFolders {
 public:
  virtual ~UsersFolders() = default;
  /// Those beside "/users/", which is one on every system. In lower case, with a slash at both ends, the longest first.
  /// They stay the same, and stay valid, until the end of the process.
  virtual std::span<const std::string> list() = 0;
};

}  // namespace tks::platform
