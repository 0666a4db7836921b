#include "platform/apple/file_trees.h"

#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/apple/conversions.h"
#include "platform/platform.h"
#include "platform/posix/kept_folders.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::platform::apple {
namespace {

using posix::fail;

bool failWith(int number, TKSError* error, std::string_view step, const std::string& path) {
  errno = number;
  return fail(error, step, path);
}

bool isThere(const std::string& path) {
  struct stat facts {};
  return lstat(path.c_str(), &facts) == 0;
}

/// Where volumes stand: absolute paths without links.
std::vector<std::string> placesOfVolumes() {
  constexpr int kRoomForNewOnes = 16;
  const int count = getfsstat(nullptr, 0, MNT_NOWAIT);
  std::vector<struct statfs> volumes(static_cast<std::size_t>(std::max(count, 0) + kRoomForNewOnes));
  const int found = getfsstat(volumes.data(), static_cast<int>(volumes.size() * sizeof(struct statfs)), MNT_NOWAIT);
  std::vector<std::string> places;
  for (int i = 0; i < found; ++i) places.emplace_back(volumes[static_cast<std::size_t>(i)].f_mntonname);
  return places;
}

/// Whether a tree is none that the user must keep; false with errno.
bool mayBeTakenAway(const std::string& path) {
  return posix::mayBeTakenAway(path, knownFolders().realHome(), placesOfVolumes());
}

/// Renames to a name that must be free. Sets errno on failure.
bool renameToFree(const std::string& from, const std::string& to) {
  if (renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0) return true;
  if (errno != ENOTSUP) return false;
  // A volume that cannot look and rename in one step.
  if (!isThere(to)) return rename(from.c_str(), to.c_str()) == 0;
  errno = EEXIST;
  return false;
}

/// Copies to a name that nobody else uses; what was begun is removed again when it fails.
bool copyAside(const std::string& from, const std::string& aside, TKSError* error) {
  @autoreleasepool {
    NSError* failure = nil;
    if ([NSFileManager.defaultManager copyItemAtPath:toPath(from) toPath:toPath(aside) error:&failure]) return true;
    if (error != nullptr) *error = fromError(failure, "copy", from);
  }
  if (isThere(aside)) removeTree(aside, nullptr);
  return false;
}

/// Makes what was written to a volume last through a power cut, as far as the volume can.
bool syncVolumeOf(const std::string& path) {
  const int flags = SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT;
  return sync_volume_np(std::string(folderOf(path)).c_str(), flags) == 0 || errno == ENOTSUP || errno == EINVAL;
}

bool moveToOtherVolume(const std::string& from, const std::string& to, TKSError* error) {
  // What will not be removable in the end, or has no place there, is not copied in the first place.
  if (faccessat(AT_FDCWD, std::string(folderOf(from)).c_str(), W_OK | X_OK, AT_EACCESS) != 0)
    return fail(error, "move", from);
  if (isThere(to)) return failWith(EEXIST, error, "move to", to);
  const std::string aside = posix::hiddenSibling(to);
  if (!copyAside(from, aside, error)) return false;
  if (!syncVolumeOf(aside) || !renameToFree(aside, to)) {
    fail(error, "move to", to);
    removeTree(aside, nullptr);
    return false;
  }
  return (posix::syncFolderOf(to) || fail(error, "sync the folder of", to)) && removeTree(from, error);
}

/// Lets two items change places in three steps, undone when one of them fails.
bool exchangeInSteps(const std::string& first, const std::string& second, TKSError* error) {
  const std::string aside = posix::hiddenSibling(first);
  if (!renameToFree(first, aside)) return fail(error, "exchange", first);
  if (rename(second.c_str(), first.c_str()) != 0) {
    fail(error, "exchange", second);
    rename(aside.c_str(), first.c_str());
    return false;
  }
  if (rename(aside.c_str(), second.c_str()) == 0) return true;
  fail(error, "exchange", aside);
  if (rename(first.c_str(), second.c_str()) == 0) rename(aside.c_str(), first.c_str());
  return false;
}

}  // namespace

bool removeTree(const std::string& path, TKSError* error) {
  if (!mayBeTakenAway(path)) return fail(error, "remove", path);
  @autoreleasepool {
    NSError* failure = nil;
    if ([NSFileManager.defaultManager removeItemAtPath:toPath(path) error:&failure]) return true;
    // Where it stopped, somewhere in the tree.
    const std::string place = fromString([failure.userInfo objectForKey:NSFilePathErrorKey]);
    if (error != nullptr) *error = fromError(failure, "remove", place.empty() ? path : place);
    return false;
  }
}

bool removeEmptyFolder(const std::string& path, TKSError* error) {
  return (mayBeTakenAway(path) && rmdir(path.c_str()) == 0) || fail(error, "remove", path);
}

bool copyTree(const std::string& from, const std::string& to, TKSError* error) {
  if (!isThere(from)) return fail(error, "copy", from);
  if (isThere(to)) return failWith(EEXIST, error, "copy to", to);
  if (posix::liesWithin(std::string(folderOf(to)), from)) return failWith(EINVAL, error, "copy", from);
  const std::string aside = posix::hiddenSibling(to);
  if (!copyAside(from, aside, error)) return false;
  if (renameToFree(aside, to)) return true;
  fail(error, "copy to", to);
  removeTree(aside, nullptr);
  return false;
}

bool moveTree(const std::string& from, const std::string& to, TKSError* error) {
  if (!mayBeTakenAway(from)) return fail(error, "move", from);
  if (renameToFree(from, to)) return true;
  if (errno == EXDEV) return moveToOtherVolume(from, to, error);
  return errno == EEXIST ? fail(error, "move to", to) : fail(error, "move", from);
}

bool exchangeTrees(const std::string& first, const std::string& second, TKSError* error) {
  for (const std::string& path : {first, second}) {
    if (!mayBeTakenAway(path)) return fail(error, "exchange", path);
  }
  if (renamex_np(first.c_str(), second.c_str(), RENAME_SWAP) == 0) return true;
  return errno == ENOTSUP ? exchangeInSteps(first, second, error) : fail(error, "exchange", first);
}

}  // namespace tks::platform::apple
