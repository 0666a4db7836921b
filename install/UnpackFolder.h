#pragma once

#include <memory>
#include <string>

#include <tksinterface/TKSError.h>

#include "install/Patience.h"
#include "platform/files.h"

namespace tks::install {

/// The host's own folder below the temporary one, in which one installation at a time unpacks and proves a launcher. It
/// stays, and so does what the host has in it.
class UnpackFolder {
 public:
  UnpackFolder();

  /// Makes the folder, closes it to others, waits for other installations that use it, and removes what those left that
  /// ended while they unpacked.
  bool enter(Patience& patience, TKSError* error);
  /// Removes a launcher that was left; true when nothing is there afterwards.
  bool makeRoom() const;
  /// Unpacks the launcher of an archive, in a private folder below this one, and puts it into this one; whether it is
  /// there afterwards. `error` is set when there is an objection to the archive.
  bool unpack(const std::string& zipPath, TKSError* error);
  /// Removes the launcher; no matter how far the installation came.
  void removeLauncher();

  /// Where the launcher is expected.
  const std::string& launcherPath() const { return launcher_; }

 private:
  std::string path_;
  std::string launcher_;
  /// The temporary folder itself serves a host without an identifier.
  bool isOwn_;
  std::unique_ptr<platform::FileLock> lock_;
};

}  // namespace tks::install
