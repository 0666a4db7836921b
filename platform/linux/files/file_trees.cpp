#include "platform/linux/files/file_trees.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/linux/files/volumes.h"
#include "platform/linux/loop/system_calls.h"
#include "platform/platform.h"
#include "platform/posix/extended_attributes.h"
#include "platform/posix/file_copy.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/kept_folders.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::gnulinux {
namespace {

using posix::fail;
using posix::FileDescriptor;
using posix::retried;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// A place in a tree of folders that is reached without following links, and held with one descriptor however deep it
/// is: the way back leads through "..", checked to be the folder that was left.
class FolderCursor {
 public:
  bool open(int at, const char* name) {
    return here_.reset(retried([&] { return ::openat(at, name, kFolderFlags); })), static_cast<bool>(here_);
  }
  /// As `enter`, but not into a volume that stands there.
  bool enterSameVolume(const char* name) {
    struct stat here {};
    struct stat below {};
    if (::fstat(here_.get(), &here) != 0 || !enter(name) || ::fstat(here_.get(), &below) != 0) return false;
    errno = EBUSY;
    return here.st_dev == below.st_dev;
  }
  int descriptor() const { return here_.get(); }

  bool enter(const char* name) {
    struct stat facts {};
    if (::fstat(here_.get(), &facts) != 0) return false;
    FileDescriptor below(retried([&] { return ::openat(here_.get(), name, kFolderFlags); }));
    if (!below) return false;
    above_.push_back({facts.st_dev, facts.st_ino});
    here_ = std::move(below);
    return true;
  }

  bool leave() {
    FileDescriptor above(retried([&] { return ::openat(here_.get(), "..", kFolderFlags); }));
    struct stat facts {};
    if (!above || ::fstat(above.get(), &facts) != 0) return false;
    if (facts.st_dev != above_.back().device || facts.st_ino != above_.back().number) {
      errno = ESTALE;  // somebody moved the folder while we were inside
      return false;
    }
    above_.pop_back();
    here_ = std::move(above);
    return true;
  }

  /// Names in this folder.
  std::optional<std::vector<std::string>> names() const {
    const int copy = retried([&] { return ::openat(here_.get(), ".", kFolderFlags); });
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(copy < 0 ? nullptr : ::fdopendir(copy), ::closedir);
    if (!folder) {
      if (copy >= 0) ::close(copy);
      return std::nullopt;
    }
    std::vector<std::string> found;
    errno = 0;
    while (const dirent* entry = ::readdir(folder.get())) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") found.emplace_back(name);
    }
    if (errno != 0) return std::nullopt;
    return found;
  }

 private:
  struct Identity {
    dev_t device;
    ino_t number;
  };
  FileDescriptor here_;
  std::vector<Identity> above_;
};

/// One folder on the way down: what is still to be done in it.
struct Level {
  std::string name;
  std::vector<std::string> names;
  std::size_t next = 0;
};

std::string pathOf(const std::vector<Level>& levels, std::string_view last) {
  std::string path;
  for (const Level& level : levels) path.append(level.name).append("/");
  return path.append(last);
}

/// Whether a tree may be removed at all; false, and errno, for one that the user must keep.
bool mayBeTakenAway(const std::string& path) {
  return posix::mayBeTakenAway(path, platform::knownFolders().realHome(), placesOfVolumes());
}

// Removing

bool removeItem(int folder, const char* name, int flags = 0) {
  return ::unlinkat(folder, name, flags) == 0 || errno == ENOENT;
}

bool emptyFolder(const std::string& path, TKSError* error) {
  FolderCursor cursor;
  std::optional<std::vector<std::string>> names;
  if (!cursor.open(AT_FDCWD, path.c_str()) || !(names = cursor.names())) return fail(error, "remove", path);
  std::vector<Level> levels = {{path, std::move(*names)}};
  while (true) {
    Level& level = levels.back();
    if (level.next < level.names.size()) {
      const std::string name = level.names[level.next++];
      if (removeItem(cursor.descriptor(), name.c_str())) continue;
      if (errno != EISDIR || !cursor.enterSameVolume(name.c_str())) return fail(error, "remove", pathOf(levels, name));
      levels.push_back({name, {}});
      if (!(names = cursor.names())) return fail(error, "remove", pathOf(levels, ""));
      levels.back().names = std::move(*names);
      continue;
    }
    if (levels.size() == 1) return true;
    const std::string name = std::move(level.name);
    levels.pop_back();
    if (!cursor.leave() || !removeItem(cursor.descriptor(), name.c_str(), AT_REMOVEDIR)) {
      return fail(error, "remove", pathOf(levels, name));
    }
  }
}

// Copying

/// Gives a copied file or folder what it has besides its content. Attributes first: they need the right to write.
bool copyFacts(int from, int to, const struct stat& facts) {
  if (!posix::copyExtendedAttributes(from, to)) return false;
  const mode_t bits = facts.st_uid == ::geteuid() ? 07777 : 0777;
  const timespec times[] = {facts.st_atim, facts.st_mtim};
  return ::fchmod(to, facts.st_mode & bits) == 0 && ::futimens(to, times) == 0;
}

bool copyFile(int fromFolder, const char* from, int toFolder, const char* to) {
  const FileDescriptor source(
      retried([&] { return ::openat(fromFolder, from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  struct stat facts {};
  if (!source || ::fstat(source.get(), &facts) != 0) return false;
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor target(retried([&] { return ::openat(toFolder, to, flags, 0600); }));
  return target && posix::copyBytes(source.get(), target.get()) && copyFacts(source.get(), target.get(), facts);
}

bool copyLink(int fromFolder, const char* from, int toFolder, const char* to, const struct stat& facts) {
  std::string content(static_cast<std::size_t>(facts.st_size) + 1, '\0');
  const ssize_t length = ::readlinkat(fromFolder, from, content.data(), content.size());
  if (length < 0) return false;
  if (static_cast<std::size_t>(length) == content.size()) {
    errno = ESTALE;  // longer than a moment ago
    return false;
  }
  content.resize(static_cast<std::size_t>(length));
  const timespec times[] = {facts.st_atim, facts.st_mtim};
  return ::symlinkat(content.c_str(), toFolder, to) == 0 && ::utimensat(toFolder, to, times, AT_SYMLINK_NOFOLLOW) == 0;
}

/// Copies what is no folder.
bool copyLeaf(int fromFolder, const char* from, int toFolder, const char* to, const struct stat& facts) {
  switch (facts.st_mode & S_IFMT) {
    case S_IFREG:
      return copyFile(fromFolder, from, toFolder, to);
    case S_IFLNK:
      return copyLink(fromFolder, from, toFolder, to, facts);
    case S_IFIFO:
      return ::mkfifoat(toFolder, to, facts.st_mode & 0777) == 0;
    default:
      errno = ENOTSUP;
      return false;
  }
}

/// A copy of a folder while it is made.
class FolderCopy {
 public:
  FolderCopy(const std::string& from, const std::string& to) : from_(from), to_(to) {}

  bool run(TKSError* error) {
    if (!begin() || !push(from_)) return fail(error, "copy", from_);
    while (true) {
      Level& level = levels_.back();
      if (level.next < level.names.size()) {
        const std::string name = level.names[level.next++];
        if (!copy(name)) return fail(error, "copy", pathOf(levels_, name));
        continue;
      }
      if (!finishFolder()) return fail(error, "copy", pathOf(levels_, ""));
      levels_.pop_back();
      if (levels_.empty()) return true;
      if (!source_.leave() || !target_.leave()) return fail(error, "copy", pathOf(levels_, ""));
    }
  }

 private:
  bool begin() {
    struct stat facts {};
    if (!source_.open(AT_FDCWD, from_.c_str()) || !target_.open(AT_FDCWD, to_.c_str()) ||
        ::fstat(target_.descriptor(), &facts) != 0) {
      return false;
    }
    targetDevice_ = facts.st_dev;
    targetNumber_ = facts.st_ino;
    return true;
  }

  bool push(const std::string& name) {
    std::optional<std::vector<std::string>> names = source_.names();
    if (!names) return false;
    levels_.push_back({name, std::move(*names)});
    return true;
  }

  bool copy(const std::string& name) {
    struct stat facts {};
    if (::fstatat(source_.descriptor(), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!S_ISDIR(facts.st_mode)) {
      return copyLeaf(source_.descriptor(), name.c_str(), target_.descriptor(), name.c_str(), facts);
    }
    if (facts.st_dev == targetDevice_ && facts.st_ino == targetNumber_) {
      errno = EINVAL;  // the copy lies inside of what is copied
      return false;
    }
    return ::mkdirat(target_.descriptor(), name.c_str(), 0700) == 0 && source_.enter(name.c_str()) &&
           target_.enter(name.c_str()) && push(name);
  }

  bool finishFolder() {
    struct stat facts {};
    return ::fstat(source_.descriptor(), &facts) == 0 && copyFacts(source_.descriptor(), target_.descriptor(), facts);
  }

  const std::string& from_;
  const std::string& to_;
  FolderCursor source_;
  FolderCursor target_;
  std::vector<Level> levels_;
  dev_t targetDevice_ = 0;
  ino_t targetNumber_ = 0;
};

// Moving

bool renameToNew(const std::string& from, const std::string& to) {
  if (systemCalls().renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  // An old kernel, a filter, or a volume that cannot do it: look before. Only somebody who makes the same name in
  // between can lose it, and a folder is never replaced unless it is empty.
  if (errno != ENOSYS && errno != EINVAL && errno != EPERM) return false;
  struct stat facts {};
  if (::lstat(to.c_str(), &facts) == 0) {
    errno = EEXIST;
    return false;
  }
  return ::rename(from.c_str(), to.c_str()) == 0;
}

bool syncVolumeOf(const std::string& path) {
  const FileDescriptor item(
      retried([&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  if (!item)
    return errno == ELOOP || errno == EACCES;  // a link, or nothing that can be read: the folder's sync has to do
  return ::syncfs(item.get()) == 0;
}

bool moveToOtherVolume(const std::string& from, const std::string& to, TKSError* error) {
  // What will not be removable in the end is not copied in the first place.
  if (::faccessat(AT_FDCWD, std::string(folderOf(from)).c_str(), W_OK | X_OK, AT_EACCESS) != 0)
    return fail(error, "move", from);
  const std::string staged = posix::hiddenSibling(to);
  if (!copyTree(from, staged, error)) return false;
  if (!syncVolumeOf(staged) || !renameToNew(staged, to)) {
    fail(error, "move", to);
    removeTree(staged, nullptr);
    return false;
  }
  return (posix::syncFolderOf(to) || fail(error, "sync the folder of", to)) && removeTree(from, error);
}

}  // namespace

bool removeTree(const std::string& path, TKSError* error) {
  if (::unlink(path.c_str()) == 0) return true;
  if (errno != EISDIR || !mayBeTakenAway(path)) return fail(error, "remove", path);
  return emptyFolder(path, error) && (::rmdir(path.c_str()) == 0 || fail(error, "remove", path));
}

bool removeEmptyFolder(const std::string& path, TKSError* error) {
  return (mayBeTakenAway(path) && ::rmdir(path.c_str()) == 0) || fail(error, "remove", path);
}

bool copyTree(const std::string& from, const std::string& to, TKSError* error) {
  struct stat facts {};
  if (::lstat(from.c_str(), &facts) != 0) return fail(error, "copy", from);
  struct stat present {};
  if (::lstat(to.c_str(), &present) == 0) {
    errno = EEXIST;
    return fail(error, "copy to", to);
  }
  bool done = false;
  if (S_ISDIR(facts.st_mode)) {
    if (::mkdir(to.c_str(), 0700) != 0) return fail(error, "copy to", to);
    done = FolderCopy(from, to).run(error);
  } else {
    done = copyLeaf(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), facts);
    if (!done && errno == EEXIST) return fail(error, "copy to", to);
    if (!done) fail(error, "copy", from);
  }
  if (!done) removeTree(to, nullptr);
  return done;
}

bool moveTree(const std::string& from, const std::string& to, TKSError* error) {
  if (!mayBeTakenAway(from)) return fail(error, "move", from);
  if (renameToNew(from, to)) return true;
  if (errno == EXDEV) return moveToOtherVolume(from, to, error);
  return fail(error, errno == EEXIST ? "move to" : "move", errno == EEXIST ? to : from);
}

bool exchangeTrees(const std::string& first, const std::string& second, TKSError* error) {
  for (const std::string& path : {first, second}) {
    if (!mayBeTakenAway(path)) return fail(error, "exchange", path);
  }
  if (systemCalls().renameat2(AT_FDCWD, first.c_str(), AT_FDCWD, second.c_str(), RENAME_EXCHANGE) == 0) return true;
  // As above; where it is not the call but the exchange that is not permitted, the first step says so again.
  if (errno != ENOSYS && errno != EINVAL && errno != EPERM) return fail(error, "exchange", first);
  const std::string aside = first + ".aside";
  if (::rename(first.c_str(), aside.c_str()) != 0) return fail(error, "exchange", first);
  if (::rename(second.c_str(), first.c_str()) != 0) {
    fail(error, "exchange", second);
    ::rename(aside.c_str(), first.c_str());
    return false;
  }
  if (::rename(aside.c_str(), second.c_str()) == 0) return true;
  fail(error, "exchange", aside);
  ::rename(first.c_str(), second.c_str());
  ::rename(aside.c_str(), first.c_str());
  return false;
}

}  // namespace tks::gnulinux
