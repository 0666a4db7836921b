#include "messaging/MessageFiles.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::messaging {
namespace {

using platform::Files;
using platform::files;

constexpr std::uint32_t kFolderPermissions = 0700;
constexpr std::uint32_t kFilePermissions = 0600;
constexpr std::chrono::milliseconds kAtOnce{0};
/// The main thread waits no longer for another process.
constexpr std::chrono::seconds kPatienceWithNeighbours{2};
/// Digits of the time stamp in the name of a conversation's folder.
constexpr std::size_t kStampDigits = 13;

/// A folder's path with one more component; nothing for an absent folder.
std::string joined(std::string_view folder, std::string_view name) {
  return folder.empty() ? std::string() : joinedPath(folder, name);
}

/// Whether a name is one that a start gives to the folder of its conversation.
bool isConversationsName(std::string_view name) {
  constexpr std::string_view kBeginning = "ipcFile_";
  return name.size() == kBeginning.size() + kStampDigits && name.starts_with(kBeginning) &&
         std::ranges::all_of(name.substr(kBeginning.size()), [](char c) { return c >= '0' && c <= '9'; });
}

bool makeFolder(const std::string& folder, bool isNew) {
  if (!isNew && files().exists(folder)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! Ipc file directory:%@ already exists!", masked(folder));
    return false;
  }
  TKSError error;
  if (isNew || files().createDirectory(folder, kFolderPermissions, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create directory:%@ successfully!", masked(folder));
    return true;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Failed to create directory:%@, error: %@.", masked(folder), masked(reason));
  return false;
}

/// Removes the files of a conversation and then their folder, which stays when somebody put something else into it.
bool removeConversation(const MessageFiles& paths, TKSError* error) {
  for (const std::string& path : {paths.fromLauncher, paths.fromInterface}) {
    if (!files().isDirectory(path) || files().isLink(path)) files().remove(path, nullptr);
  }
  return files().removeEmptyDirectory(paths.folder(), error);
}

}  // namespace

MessageFiles MessageFiles::in(std::string_view folder) {
  return {joined(folder, tempIPCFileNameFromTKS2Interface), joined(folder, tempIPCFileNameFromInterface2TKS)};
}

std::string MessageFiles::folder() const {
  // The working folder is nobody's to make or to remove.
  return folderPart(fromLauncher).empty() ? std::string() : std::string(folderOf(fromLauncher));
}

bool checkIpcFile4Interface(const MessageFiles& paths, bool folderIsNew) {
  const bool isOwn = makeFolder(paths.folder(), folderIsNew);

  // A capital I, unlike the lines about the other file. Required behaviour: do not fix.
  if (files().exists(paths.fromLauncher)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! IpcFile_TKS2Interface already exists!");
  } else if (files().createFile(paths.fromLauncher, kFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create ipcFile_TKS2Interface successfully!");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Create ipcFile_TKS2Interface failed!");
  }

  if (files().exists(paths.fromInterface)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_Interface2TKS already exists!");
  } else if (files().createFile(paths.fromInterface, kFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create ipcFile_Interface2TKS successfully!");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Create ipcFile_Interface2TKS failed!");
  }
  return isOwn;
}

void checkIpcFile4TKS(const MessageFiles& paths) {
  const std::string folder = paths.folder();
  if (files().exists(folder)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc file directory:%@ exists.", masked(folder));
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! Ipc file directory:%@ doesn't exist!", masked(folder));
  }
  if (files().exists(paths.fromLauncher)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "ipcFile_TKS2Interface exists.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_TKS2Interface:%@ doesn't exist!",
                          masked(paths.fromLauncher));
  }
  if (files().exists(paths.fromInterface)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "ipcFile_Interface2TKS exists.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_Interface2TKS:%@ doesn't exist!",
                          masked(paths.fromInterface));
  }
}

bool removeDroppedFolder(const MessageFiles& paths, bool folderIsOwn, TKSError* error) {
  const bool goesWhole = folderIsOwn && !files().isLink(paths.folder());
  return goesWhole ? files().remove(paths.folder(), error) : removeConversation(paths, error);
}

void removeMessageFolder(const MessageFiles& paths, bool folderIsOwn, bool isRemoved) {
  TKSError error;
  if (isRemoved || removeDroppedFolder(paths, folderIsOwn, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to remove ipc file folder.");
    return;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Removing ipcFile folder has error:%@", masked(reason));
}

// The hold on a folder.

MessageFolderHold::MessageFolderHold(std::string folder) : folder_(std::move(folder)) {
  const std::string above(folderOf(folder_));
  if (!isConversationsName(lastPathComponent(folder_)) || above.empty()) return;
  if (!files().createDirectory(above, kFolderPermissions, nullptr)) return;
  neighbours_ = files().lock(above, kAtOnce, nullptr);
  if (neighbours_) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Wait for another host that looks through message folders: %@",
                        masked(above));
  neighbours_ = files().lock(above, kPatienceWithNeighbours, nullptr);
}

bool MessageFolderHold::makeFolder(TKSError* error) {
  folderIsNew_ = files().createNewDirectory(folder_, kFolderPermissions, error);
  return folderIsNew_;
}

void MessageFolderHold::settle(const MessageFiles& paths) {
  if (files().exists(paths.fromInterface)) own_ = files().lock(paths.fromInterface, kAtOnce, nullptr);
  // On a volume without locks they would tell nothing.
  if (neighbours_ && own_ && own_->isEffective()) removeLeftBehind();
  neighbours_.reset();
  folderIsNew_ = false;  // not when it is opened once more
}

/// A lock that can be had tells that the owner is gone.
void MessageFolderHold::removeLeftBehind() const {
  const std::string above(folderOf(folder_));
  for (const std::string& name : files().list(above, nullptr).value_or(std::vector<std::string>())) {
    const std::string folder = joinedPath(above, name);
    if (!isConversationsName(name) || folder == folder_ || files().isLink(folder)) continue;
    const MessageFiles left = MessageFiles::in(folder);
    const bool isMarked = files().exists(left.fromInterface);
    const std::unique_ptr<platform::FileLock> lock =
        isMarked ? files().lock(left.fromInterface, kAtOnce, nullptr) : nullptr;
    if (isMarked && !lock) continue;
    TKSError error;
    if (removeConversation(left, &error)) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Removed the message folder of a host that is gone: %@", masked(folder));
      continue;
    }
    const std::string reason = error.description();
    TKSILog::logWithLevel(TKSILogLevelWarning, "The message folder of a host that is gone stays: %@, error: %@",
                          masked(folder), masked(reason));
  }
}

}  // namespace tks::messaging
