#include "platform/files.h"
#include "foundation/values/FilePaths.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/backend.h"
#include "platform/linux/files/file_trees.h"
#include "platform/posix/change_mark.h"
#include "platform/posix/extended_attributes.h"
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

using posix::fail;
using posix::isPath;

/// The facts of an item, links followed or not. False, and errno, when there are none.
bool readFacts(std::string_view path, struct stat& facts) {
  return isPath(path) && ::stat(std::string(path).c_str(), &facts) == 0;
}

bool readOwnFacts(std::string_view path, struct stat& facts) {
  return isPath(path) && ::lstat(withoutClosingSlashes(path).c_str(), &facts) == 0;
}

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
    return readFacts(path, facts);
  }

  bool isDirectory(std::string_view path) override {
    struct stat facts {};
    return readFacts(path, facts) && S_ISDIR(facts.st_mode);
  }

  bool isLink(std::string_view path) override {
    struct stat facts {};
    return readOwnFacts(path, facts) && S_ISLNK(facts.st_mode);
  }

  bool isSameItem(std::string_view one, std::string_view other) override {
    return isPath(one) && isPath(other) && posix::isSameItem(std::string(one), std::string(other));
  }

  bool liesWithin(std::string_view folder, std::string_view outer) override {
    return isPath(folder) && isPath(outer) && posix::liesWithin(std::string(folder), std::string(outer));
  }

  bool isExecutableFile(std::string_view path) override {
    struct stat facts {};
    return readFacts(path, facts) && S_ISREG(facts.st_mode) &&
           ::faccessat(AT_FDCWD, std::string(path).c_str(), X_OK, AT_EACCESS) == 0;
  }

  bool isWritable(std::string_view path) override {
    return isPath(path) && ::faccessat(AT_FDCWD, std::string(path).c_str(), W_OK, AT_EACCESS) == 0;
  }

  std::optional<std::uint64_t> size(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (readFacts(path, facts)) return static_cast<std::uint64_t>(facts.st_size);
    fail(error, "read the size of", path);
    return std::nullopt;
  }

  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(isPath(path) ? ::opendir(std::string(path).c_str()) : nullptr,
                                                     ::closedir);
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
    if (!isPath(path)) return fail(error, "create the folder", path);
    const std::string whole = withoutClosingSlashes(path);
    if (makeFolder(whole, permissions)) return true;
    if (errno != ENOENT) return fail(error, "create the folder", path);
    for (std::size_t slash = whole.find('/', 1); slash != std::string::npos; slash = whole.find('/', slash + 1)) {
      const std::string above = whole.substr(0, slash);
      if (!makeFolder(above, permissions)) return fail(error, "create the folder", above);
    }
    return makeFolder(whole, permissions) || fail(error, "create the folder", path);
  }

  bool createNewDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    if (!isPath(path)) return fail(error, "create the folder", path);
    const std::string name = withoutClosingSlashes(path);
    return ::mkdir(name.c_str(), static_cast<mode_t>(permissions)) == 0 || fail(error, "create the folder", path);
  }

  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return createDirectory(path, 0700, error) && posix::closeToOthers(path, error);
  }

  std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) override {
    return posix::makePrivateFolder(beginning, error);
  }

  bool createFile(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    if (!isPath(path)) return fail(error, "create", path);
    const std::string name(path);
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const posix::FileDescriptor file(
        posix::retried([&] { return ::open(name.c_str(), flags, static_cast<mode_t>(permissions)); }));
    return file || fail(error, "create", path);
  }

  bool remove(std::string_view path, TKSError* error) override {
    if (!isPath(path)) return fail(error, "remove", path);
    return gnulinux::removeTree(withoutClosingSlashes(path), error);
  }

  bool removeEmptyDirectory(std::string_view path, TKSError* error) override {
    if (!isPath(path)) return fail(error, "remove", path);
    return gnulinux::removeEmptyFolder(withoutClosingSlashes(path), error);
  }

  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    if (!isPath(from)) return fail(error, "copy", from);
    if (!isPath(to)) return fail(error, "copy to", to);
    return gnulinux::copyTree(withoutClosingSlashes(from), withoutClosingSlashes(to), error);
  }

  bool copyContent(std::string_view from, std::string_view to, TKSError* error) override {
    return posix::copyContent(from, to, error);
  }

  bool visitTree(std::string_view folder, const std::function<bool(const TreeItem&)>& visit, TKSError* error) override {
    return posix::visitTree(folder, visit, error);
  }

  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    if (!isPath(from)) return fail(error, "move", from);
    if (!isPath(to)) return fail(error, "move to", to);
    return gnulinux::moveTree(withoutClosingSlashes(from), withoutClosingSlashes(to), error);
  }

  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    for (const std::string_view path : {first, second}) {
      if (!isPath(path)) return fail(error, "exchange", path);
    }
    return gnulinux::exchangeTrees(withoutClosingSlashes(first), withoutClosingSlashes(second), error);
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
    struct stat facts {};
    if (!readOwnFacts(path, facts)) {
      fail(error, "read the attributes of", path);
      return std::nullopt;
    }
    std::optional<TKSDictionary> extended = posix::readExtendedAttributes(withoutClosingSlashes(path), error);
    if (!extended) return std::nullopt;
    return FileAttributes{facts.st_mode & 07777u, std::move(*extended)};
  }

  std::optional<std::uint32_t> permissions(std::string_view path, TKSError* error) override {
    struct stat facts {};
    if (readFacts(path, facts)) return facts.st_mode & 07777u;
    fail(error, "read the permissions of", path);
    return std::nullopt;
  }

  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    const auto mode = static_cast<mode_t>(permissions & 07777u);
    return (isPath(path) && ::chmod(std::string(path).c_str(), mode) == 0) ||
           fail(error, "set the permissions of", path);
  }

  int removeExtendedAttribute(std::string_view path, std::string_view name) override {
    if (!isPath(path) || !isPath(name)) return -1;
    return posix::removeExtendedAttribute(withoutClosingSlashes(path), name);
  }

  std::optional<VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    struct statvfs facts {};
    const std::string name = withoutClosingSlashes(path);
    const auto ask = [&](const std::string& place) {
      return posix::retried([&] { return ::statvfs(place.c_str(), &facts); }) == 0;
    };
    // A folder that is still to be made will lie on the volume of the one above it.
    const bool found = isPath(path) && (ask(name) || (errno == ENOENT && ask(std::string(folderOf(name)))));
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
