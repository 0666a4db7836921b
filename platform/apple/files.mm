#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/values/FilePaths.h"
#include "platform/apple/conversions.h"
#include "platform/apple/file_trees.h"
#include "platform/backend.h"
#include "platform/files.h"
#include "platform/posix/change_mark.h"
#include "platform/posix/file_copy.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/others_rights.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/private_folder.h"
#include "platform/posix/tree_walk.h"
#include "platform/posix/whole_files.h"

namespace tks::platform {
namespace {

using posix::isPath;

/// The file manager's key for extended attributes: a dictionary of name to data.
NSString* const kExtendedAttributes = @"NSFileExtendedAttributes";

NSFileManager* manager() { return NSFileManager.defaultManager; }

/// Passes an outcome of the file manager on, with its error.
bool outcome(BOOL succeeded, NSError* failure, std::string_view step, std::string_view path, TKSError* error) {
  if (!succeeded && error != nullptr) *error = apple::fromError(failure, step, path);
  return succeeded;
}

/// Makes a folder and those above it, as far as they are missing.
bool makeFolders(const std::string& path, mode_t permissions) {
  struct stat facts {};
  if (stat(path.c_str(), &facts) == 0) {
    errno = S_ISDIR(facts.st_mode) ? 0 : EEXIST;
    return errno == 0;
  }
  if (errno != ENOENT) return false;
  const std::string above(folderOf(path));
  if (above != path && !makeFolders(withoutClosingSlashes(above), permissions)) return false;
  if (mkdir(path.c_str(), permissions) == 0) return true;
  // Somebody else may have made it meanwhile.
  return errno == EEXIST && stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

class AppleFiles final : public Files {
 public:
  bool exists(std::string_view path) override {
    @autoreleasepool {
      return isPath(path) && [manager() fileExistsAtPath:apple::toPath(path)];
    }
  }

  bool isDirectory(std::string_view path) override {
    @autoreleasepool {
      BOOL directory = NO;
      return isPath(path) && [manager() fileExistsAtPath:apple::toPath(path) isDirectory:&directory] && directory;
    }
  }

  bool isLink(std::string_view path) override {
    struct stat facts {};
    return isPath(path) && ::lstat(withoutClosingSlashes(path).c_str(), &facts) == 0 && S_ISLNK(facts.st_mode);
  }

  bool isSameItem(std::string_view one, std::string_view other) override {
    return isPath(one) && isPath(other) && posix::isSameItem(std::string(one), std::string(other));
  }

  bool liesWithin(std::string_view folder, std::string_view outer) override {
    return isPath(folder) && isPath(outer) && posix::liesWithin(std::string(folder), std::string(outer));
  }

  bool isExecutableFile(std::string_view path) override {
    const std::string name(path);
    struct stat facts {};
    return isPath(path) && ::stat(name.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) &&
           faccessat(AT_FDCWD, name.c_str(), X_OK, AT_EACCESS) == 0;
  }

  /// The file manager asks for the user who started the process.
  bool isWritable(std::string_view path) override {
    return isPath(path) && faccessat(AT_FDCWD, std::string(path).c_str(), W_OK, AT_EACCESS) == 0;
  }

  std::optional<std::uint64_t> size(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (isPath(path) && ::stat(std::string(path).c_str(), &facts) == 0)
      return static_cast<std::uint64_t>(facts.st_size);
    posix::fail(error, "read the size of", path);
    return std::nullopt;
  }

  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    if (!isPath(path)) {
      posix::fail(error, "list", path);
      return std::nullopt;
    }
    @autoreleasepool {
      NSError* failure = nil;
      NSArray<NSString*>* names = [manager() contentsOfDirectoryAtPath:apple::toPath(path) error:&failure];
      if (!outcome(names != nil, failure, "list", path, error)) return std::nullopt;
      std::vector<std::string> result;
      result.reserve(names.count);
      for (NSString* name in names) result.push_back(apple::fromString(name));
      return result;
    }
  }

  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const bool made = isPath(path) && makeFolders(withoutClosingSlashes(path), static_cast<mode_t>(permissions));
    return made || posix::fail(error, "create the folder", path);
  }

  bool createNewDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const bool made =
        isPath(path) && ::mkdir(withoutClosingSlashes(path).c_str(), static_cast<mode_t>(permissions)) == 0;
    return made || posix::fail(error, "create the folder", path);
  }

  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return createDirectory(path, 0700, error) && posix::closeToOthers(path, error);
  }

  std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) override {
    return posix::makePrivateFolder(beginning, error);
  }

  bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    if (!isPath(path)) return posix::fail(error, "create", path);
    const std::string name(path);
    const posix::FileDescriptor file(posix::retried(
        [&] { return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions); }));
    return file || posix::fail(error, "create", path);
  }

  bool remove(std::string_view path, TKSError* error) override {
    if (!isPath(path)) return posix::fail(error, "remove", path);
    return apple::removeTree(withoutClosingSlashes(path), error);
  }

  bool removeEmptyDirectory(std::string_view path, TKSError* error) override {
    if (!isPath(path)) return posix::fail(error, "remove", path);
    return apple::removeEmptyFolder(withoutClosingSlashes(path), error);
  }

  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    if (!isPath(from)) return posix::fail(error, "copy", from);
    if (!isPath(to)) return posix::fail(error, "copy to", to);
    return apple::copyTree(withoutClosingSlashes(from), withoutClosingSlashes(to), error);
  }

  bool copyContent(std::string_view from, std::string_view to, TKSError* error) override {
    return posix::copyContent(from, to, error);
  }

  bool visitTree(std::string_view folder, const std::function<bool(const TreeItem&)>& visit, TKSError* error) override {
    return posix::visitTree(folder, visit, error);
  }

  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    if (!isPath(from)) return posix::fail(error, "move", from);
    if (!isPath(to)) return posix::fail(error, "move to", to);
    return apple::moveTree(withoutClosingSlashes(from), withoutClosingSlashes(to), error);
  }

  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    if (!isPath(first)) return posix::fail(error, "exchange", first);
    if (!isPath(second)) return posix::fail(error, "exchange", second);
    return apple::exchangeTrees(withoutClosingSlashes(first), withoutClosingSlashes(second), error);
  }

  std::unique_ptr<FileLock> lock(std::string_view path, std::chrono::milliseconds patience, TKSError* error) override {
    return posix::lockFile(path, patience, error);
  }

  std::optional<TKSData> read(std::string_view path, std::size_t limit, TKSError* error) override {
    return posix::readWholeFile(path, limit, error);
  }

  bool writeAtomically(std::string_view path, std::span<const std::uint8_t> content, TKSError* error) override {
    return posix::replaceFile(path, content, error);
  }

  std::optional<std::string> writableByOthers(std::string_view path, Reach reach, TKSError* error) override {
    return posix::writableByOthers(path, reach, error);
  }

  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    return posix::changeMark(path, error);
  }

  std::optional<FileAttributes> attributes(std::string_view path, TKSError* error) override {
    if (!isPath(path)) {
      posix::fail(error, "read the attributes of", path);
      return std::nullopt;
    }
    @autoreleasepool {
      NSError* failure = nil;
      NSString* place = apple::toPath(withoutClosingSlashes(path));
      NSDictionary* found = [manager() attributesOfItemAtPath:place error:&failure];
      if (!outcome(found != nil, failure, "read the attributes of", path, error)) return std::nullopt;
      return FileAttributes{static_cast<std::uint32_t>(found.filePosixPermissions),
                            apple::fromDictionary([found objectForKey:kExtendedAttributes])};
    }
  }

  std::optional<std::uint32_t> permissions(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (isPath(path) && ::stat(std::string(path).c_str(), &facts) == 0) return facts.st_mode & 07777u;
    posix::fail(error, "read the permissions of", path);
    return std::nullopt;
  }

  /// The file manager does not say whether it follows links here.
  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const auto mode = static_cast<mode_t>(permissions & 07777u);
    return (isPath(path) && ::chmod(std::string(path).c_str(), mode) == 0) ||
           posix::fail(error, "set the permissions of", path);
  }

  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    if (!isPath(path) || !isPath(name)) return -1;
    return ::removexattr(withoutClosingSlashes(path).c_str(), std::string(name).c_str(), XATTR_NOFOLLOW);
  }

  std::optional<VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    if (!isPath(path)) {
      posix::fail(error, "read the free space of", path);
      return std::nullopt;
    }
    @autoreleasepool {
      NSError* failure = nil;
      std::string place = withoutClosingSlashes(path);
      // The item may be still to come.
      if (!exists(place)) place = std::string(folderOf(place));
      NSDictionary* found = [manager() attributesOfFileSystemForPath:apple::toPath(place) error:&failure];
      if (!outcome(found != nil, failure, "read the free space of", path, error)) return std::nullopt;
      return VolumeSpace{[[found objectForKey:NSFileSystemFreeSize] unsignedLongLongValue],
                         [[found objectForKey:NSFileSystemSize] unsignedLongLongValue]};
    }
  }
};

}  // namespace

template <>
Files& backend<Files>() {
  static auto& files = *new AppleFiles;
  return files;
}

}  // namespace tks::platform
