#pragma once

#include <string>

namespace tks::platform {

/// Folders of the user. macOS: getpwuid, NSTemporaryDirectory, NSSearchPathForDirectoriesInDomains. Linux: the password
/// database, a private temporary folder. Any thread.
class KnownFolders {
 public:
  virtual ~KnownFolders() = default;
  /// Home of the process's real user from the password database, never HOME; without a closing slash. Always absolute:
  /// a user without an entry has a home that does not exist.
  virtual std::string realHome() = 0;
  /// The temporary folder of this user, which nobody else can write to; without a closing slash. Empty when there is
  /// none that can be trusted.
  virtual std::string temporary() = 0;
  /// The user's documents folder, which need not exist.
  virtual std::string documents() = 0;
};

}  // namespace tks::platform
