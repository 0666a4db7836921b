#include "install/UnpackFolder.h"

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/FilePaths.h"
#include "foundation/Logging.h"
#include "foundation/OutOfMemory.h"
#include "install/ArchiveCheck.h"
#include "install/Archives.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::files;

/// What the unpacker may print beside what it unpacks.
constexpr std::uint64_t kRoomForOutput = 64u * 1024 * 1024;

/// Whether a name is taken, also by a link that leads nowhere.
bool isTaken(const std::string& path) { return files().exists(path) || files().attributes(path, nullptr); }

std::string pathOfFolder() {
  const std::string temporary = platform::knownFolders().temporary();
  const std::string host = platform::bundles().mainBundleIdentifier().value_or("");
  return temporary.empty() || host.empty() ? temporary : joinedPath(temporary, host);
}

}  // namespace

UnpackFolder::UnpackFolder() : path_(pathOfFolder()), launcher_(joinedPath(path_, TKSAppName)) {}

UnpackFolder::~UnpackFolder() {
  unlessOutOfMemory([this] {
    removeOtherThings();
    return true;
  });
}

bool UnpackFolder::enter(std::chrono::milliseconds patience, TKSError* error) {
  if (path_.empty()) {
    if (error != nullptr) *error = {std::string(TKSUtilErrorDomain), 0, "there is no temporary folder to be trusted"};
    return false;
  }
  // The temporary folder itself is a host's without an identifier: whether it can be trusted was seen before.
  const bool own = path_ != platform::knownFolders().temporary();
  if (own && !files().usePrivateDirectory(path_, error)) return false;
  lock_ = files().lock(path_, patience, error);
  return lock_ != nullptr;
}

bool UnpackFolder::makeRoom() const {
  if (!isTaken(launcher_)) return true;
  TKSError error;
  const bool removed = files().remove(launcher_, &error);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Clean existed temp app result: %i, any error: %@", removed, masked(error));
  return removed;
}

bool UnpackFolder::unpack(const std::string& zipPath) {
  const ArchiveContent content = lookInto(zipPath, path_);
  if (content.objection) {
    TKSILog::logWithLevel(TKSILogLevelError, "Refuse to unpack: %@, %@", masked(zipPath), masked(*content.objection));
  } else {
    for (const std::string& name : content.topNames) {
      const std::string path = joinedPath(path_, name);
      if (path != launcher_ && !isTaken(path)) others_.push_back(path);
    }
    unzip(zipPath, path_, content.size + kRoomForOutput);
  }
  const bool unpacked = files().exists(launcher_);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip backup to temp TKS app: %@, result: %i", masked(launcher_), unpacked);
  return unpacked;
}

void UnpackFolder::removeLauncher() {
  // What is there while somebody else holds the folder is theirs.
  if (path_.empty() || !isTaken(launcher_)) return;
  if (!lock_ && !enter(std::chrono::milliseconds(0), nullptr)) return;
  const bool removed = files().remove(launcher_, nullptr);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up temp unziped app done: %i", removed);
}

void UnpackFolder::removeOtherThings() const {
  for (const std::string& path : others_) {
    if (isTaken(path)) files().remove(path, nullptr);
  }
}

}  // namespace tks::install
