#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

/// The folder that one conversation over files goes through, and the two files in it: "ipcFile_TKS2Interface", which
/// the launcher writes, and "ipcFile_Interface2TKS", which the interface writes.
namespace tks::messaging {

/// Paths of both files; empty while no folder was named.
struct MessageFiles {
  /// "ipcFile_TKS2Interface", which the launcher writes.
  std::string fromLauncher;
  /// "ipcFile_Interface2TKS", which the interface writes.
  std::string fromInterface;

  /// The files of a folder; none for an empty path.
  static MessageFiles in(std::string_view folder);
  /// The folder that they lie in; empty when the paths name none.
  std::string folder() const;
};

/// Makes the folder and both files, for this user alone. What is there already is used as it is. Nothing fails: each
/// step has its line. `folderIsNew`: it was made for this conversation just now. Returns whether it is new, or was made
/// here.
bool checkIpcFile4Interface(const MessageFiles& files, bool folderIsNew);

/// Looks whether folder and files are there, with a line for each.
void checkIpcFile4TKS(const MessageFiles& files);

/// Removes the folder with all that is in it when the conversation has made it (`folderIsOwn`); of any other folder
/// both files, and then the folder when nothing else is in it. With a line. `isRemoved`: that was done already, and the
/// line says so.
void removeMessageFolder(const MessageFiles& files, bool folderIsOwn, bool isRemoved = false);

/// Removes the folder of files that have no names any more, as above and without a line. False, and `error`, when it
/// stays.
bool removeDroppedFolder(const MessageFiles& files, bool folderIsOwn, TKSError* error);

/// An interface's hold on the folder of its conversation, from before it is made until the conversation is closed.
/// While it exists, no host considers the folder abandoned. Main thread only.
class MessageFolderHold {
 public:
  /// Keeps other hosts from looking for what was left behind beside this folder, until `settle`. Waits for one that
  /// does, at most two seconds.
  explicit MessageFolderHold(std::string folder);

  const std::string& folder() const { return folder_; }
  /// Makes the folder. False, and `error`, when it cannot be made or something is there already.
  bool makeFolder(TKSError* error);
  bool folderIsNew() const { return folderIsNew_; }
  /// Whether the conversation has made the folder, so that all that is in it goes with it.
  bool folderIsOwn() const { return folderIsOwn_; }
  void takeFolderForOwn() { folderIsOwn_ = true; }
  /// Marks the files as somebody's, and removes the folders beside this one that hosts left which are gone.
  void settle(const MessageFiles& paths);

 private:
  void removeLeftBehind() const;

  std::string folder_;
  bool folderIsNew_ = false;
  bool folderIsOwn_ = false;
  std::unique_ptr<platform::FileLock> neighbours_;
  std::unique_ptr<platform::FileLock> own_;
};

}  // namespace tks::messaging
