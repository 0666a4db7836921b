#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks::install {

/// The host's own folder below the temporary one, to which one installation at a time unpacks. It stays; what was
/// unpacked goes with this object.
class UnpackFolder {
 public:
  UnpackFolder();
  ~UnpackFolder();
  UnpackFolder(const UnpackFolder&) = delete;
  UnpackFolder& operator=(const UnpackFolder&) = delete;

  /// Makes the folder, closes it to others, and waits for other installations that use it.
  bool enter(std::chrono::milliseconds patience, TKSError* error);
  /// Removes a launcher that was left; true when nothing is there afterwards.
  bool makeRoom() const;
  /// Unpacks an archive after a look at it; whether the launcher is there afterwards.
  bool unpack(const std::string& zipPath);
  /// Removes the launcher; no matter how far the installation came.
  void removeLauncher();

  /// Where the launcher is expected.
  const std::string& launcherPath() const { return launcher_; }

 private:
  void removeOtherThings() const;

  std::string path_;
  std::string launcher_;
  std::unique_ptr<platform::FileLock> lock_;
  /// What the archive put beside the launcher.
  std::vector<std::string> others_;
};

}  // namespace tks::install
