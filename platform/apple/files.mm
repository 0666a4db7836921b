#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/files.h"
#include "platform/posix/change_mark.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/private_folder.h"
#include "platform/posix/whole_files.h"

namespace tks::platform {
namespace {

/// The file manager's key for extended attributes: a dictionary of name to data.
NSString* const kExtendedAttributes = @"NSFileExtendedAttributes";

NSFileManager* manager() { return NSFileManager.defaultManager; }

/// Passes an outcome of the file manager on, with its error.
bool outcome(BOOL succeeded, NSError* failure, std::string_view step, TKSError* error) {
  if (!succeeded) apple::store(error, failure, step);
  return succeeded;
}

class AppleFiles final : public Files {
 public:
  bool exists(std::string_view path) override {
    @autoreleasepool {
      return [manager() fileExistsAtPath:apple::toPath(path)];
    }
  }

  bool isDirectory(std::string_view path) override {
    @autoreleasepool {
      BOOL directory = NO;
      return [manager() fileExistsAtPath:apple::toPath(path) isDirectory:&directory] && directory;
    }
  }

  bool isExecutableFile(std::string_view path) override {
    @autoreleasepool {
      return [manager() isExecutableFileAtPath:apple::toPath(path)] && !isDirectory(path);
    }
  }

  bool isWritable(std::string_view path) override {
    @autoreleasepool {
      return [manager() isWritableFileAtPath:apple::toPath(path)];
    }
  }

  std::optional<std::uint64_t> size(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (::stat(std::string(path).c_str(), &facts) == 0) return static_cast<std::uint64_t>(facts.st_size);
    posix::fail(error, "read the size of", path);
    return std::nullopt;
  }

  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      NSArray<NSString*>* names = [manager() contentsOfDirectoryAtPath:apple::toPath(path) error:&failure];
      if (!outcome(names != nil, failure, "list", error)) return std::nullopt;
      std::vector<std::string> result;
      result.reserve(names.count);
      for (NSString* name in names) result.push_back(apple::fromString(name));
      return result;
    }
  }

  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      const BOOL made = [manager() createDirectoryAtPath:apple::toPath(path)
                             withIntermediateDirectories:YES
                                              attributes:@{
                                                NSFilePosixPermissions : @(permissions)
                                              }
                                                   error:&failure];
      return outcome(made, failure, "create folder", error);
    }
  }

  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return createDirectory(path, 0700, error) && posix::closeToOthers(path, error);
  }

  bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const std::string name(path);
    const posix::FileDescriptor file(posix::retried(
        [&] { return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions); }));
    return file || posix::fail(error, "create", path);
  }

  bool remove(std::string_view path, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      return outcome([manager() removeItemAtPath:apple::toPath(path) error:&failure], failure, "remove", error);
    }
  }

  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      const BOOL copied = [manager() copyItemAtPath:apple::toPath(from) toPath:apple::toPath(to) error:&failure];
      return outcome(copied, failure, "copy", error);
    }
  }

  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      const BOOL moved = [manager() moveItemAtPath:apple::toPath(from) toPath:apple::toPath(to) error:&failure];
      return outcome(moved, failure, "move", error);
    }
  }

  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    return renamex_np(std::string(first).c_str(), std::string(second).c_str(), RENAME_SWAP) == 0 ||
           posix::fail(error, "exchange", first);
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

  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    return posix::changeMark(path, error);
  }

  std::optional<FileAttributes> attributes(std::string_view path, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      NSDictionary* found = [manager() attributesOfItemAtPath:apple::toPath(path) error:&failure];
      if (!outcome(found != nil, failure, "read attributes", error)) return std::nullopt;
      return FileAttributes{static_cast<std::uint32_t>(found.filePosixPermissions),
                            apple::fromDictionary(found[kExtendedAttributes])};
    }
  }

  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      const BOOL set = [manager() setAttributes:@{
        NSFilePosixPermissions : @(permissions)
      }
                                   ofItemAtPath:apple::toPath(path)
                                          error:&failure];
      return outcome(set, failure, "set permissions", error);
    }
  }

  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    return ::removexattr(std::string(path).c_str(), std::string(name).c_str(), XATTR_NOFOLLOW);
  }

  std::optional<VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    @autoreleasepool {
      NSError* failure = nil;
      NSDictionary* found = [manager() attributesOfFileSystemForPath:apple::toPath(path) error:&failure];
      if (!outcome(found != nil, failure, "read volume", error)) return std::nullopt;
      return VolumeSpace{[found[NSFileSystemFreeSize] unsignedLongLongValue],
                         [found[NSFileSystemSize] unsignedLongLongValue]};
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
