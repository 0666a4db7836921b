#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/backend.h"
#include "platform/linux/extended_attributes.h"
#include "platform/linux/file_trees.h"
#include "platform/posix/change_mark.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/private_folder.h"
#include "platform/posix/whole_files.h"

namespace tks::platform {
namespace {

using posix::fail;

bool makeFolder(const std::string& path, std::uint32_t permissions) {
  if (::mkdir(path.c_str(), static_cast<mode_t>(permissions)) == 0) return true;
  const int reason = errno;
  struct stat facts {};
  // A folder that is there may also answer EACCES or EROFS.
  const bool there = ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
  errno = reason;
  return there;
}

class LinuxFiles final : public Files {
 public:
  bool exists(std::string_view path) override {
    struct stat facts {};
    return ::stat(std::string(path).c_str(), &facts) == 0;
  }

  bool isDirectory(std::string_view path) override {
    struct stat facts {};
    return ::stat(std::string(path).c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
  }

  bool isExecutableFile(std::string_view path) override {
    const std::string name(path);
    struct stat facts {};
    return ::stat(name.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) &&
           ::faccessat(AT_FDCWD, name.c_str(), X_OK, AT_EACCESS) == 0;
  }

  bool isWritable(std::string_view path) override {
    return ::faccessat(AT_FDCWD, std::string(path).c_str(), W_OK, AT_EACCESS) == 0;
  }

  std::optional<std::uint64_t> size(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (::stat(std::string(path).c_str(), &facts) == 0) return static_cast<std::uint64_t>(facts.st_size);
    fail(error, "read the size of", path);
    return std::nullopt;
  }

  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(std::string(path).c_str()), ::closedir);
    if (!folder) {
      fail(error, "list", path);
      return std::nullopt;
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(folder.get())) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno == 0) return names;
    fail(error, "list", path);
    return std::nullopt;
  }

  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const std::string whole = posix::withoutClosingSlashes(path);
    if (makeFolder(whole, permissions)) return true;
    if (errno != ENOENT || whole.empty()) return fail(error, "create the folder", path);
    for (std::size_t slash = whole.find('/', 1); slash != std::string::npos; slash = whole.find('/', slash + 1)) {
      const std::string above = whole.substr(0, slash);
      if (!makeFolder(above, permissions)) return fail(error, "create the folder", above);
    }
    return makeFolder(whole, permissions) || fail(error, "create the folder", path);
  }

  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return createDirectory(path, 0700, error) && posix::closeToOthers(path, error);
  }

  bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const std::string name(path);
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const posix::FileDescriptor file(
        posix::retried([&] { return ::open(name.c_str(), flags, static_cast<mode_t>(permissions)); }));
    return file || fail(error, "create", path);
  }

  bool remove(std::string_view path, TKSError* error) override {
    return gnulinux::removeTree(posix::withoutClosingSlashes(path), error);
  }

  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    return gnulinux::copyTree(posix::withoutClosingSlashes(from), posix::withoutClosingSlashes(to), error);
  }

  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    return gnulinux::moveTree(posix::withoutClosingSlashes(from), posix::withoutClosingSlashes(to), error);
  }

  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    return gnulinux::exchangeTrees(posix::withoutClosingSlashes(first), posix::withoutClosingSlashes(second), error);
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
    const std::string name = posix::withoutClosingSlashes(path);
    struct stat facts {};
    if (::lstat(name.c_str(), &facts) != 0) {
      fail(error, "read the attributes of", path);
      return std::nullopt;
    }
    std::optional<TKSDictionary> extended = gnulinux::readExtendedAttributes(name, error);
    if (!extended) return std::nullopt;
    return FileAttributes{facts.st_mode & 07777u, std::move(*extended)};
  }

  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return ::chmod(std::string(path).c_str(), static_cast<mode_t>(permissions & 07777u)) == 0 ||
           fail(error, "set the permissions of", path);
  }

  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    return gnulinux::removeExtendedAttribute(posix::withoutClosingSlashes(path), name);
  }

  std::optional<VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    struct statvfs facts {};
    const std::string name = posix::withoutClosingSlashes(path);
    const auto ask = [&](const std::string& place) {
      return posix::retried([&] { return ::statvfs(place.c_str(), &facts); }) == 0;
    };
    // A folder that is still to be made will lie on the volume of the one above it.
    const bool found = ask(name) || (errno == ENOENT && ask(name.substr(0, name.rfind('/') + 1)));
    if (!found) {
      fail(error, "read the free space of", path);
      return std::nullopt;
    }
    return VolumeSpace{std::uint64_t{facts.f_bavail} * facts.f_frsize, std::uint64_t{facts.f_blocks} * facts.f_frsize};
  }
};

}  // namespace

template <>
Files& backend<Files>() {
  static auto& files = *new LinuxFiles;
  return files;
}

}  // namespace tks::platform
