#include "platform/posix/whole_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {
namespace {

constexpr int kMostNamesTried = 100;
constexpr std::string_view kSuffix = ".tmp";

/// What of a name is kept in the hidden names of its siblings: leaves room for the rest within 255 bytes.
std::string_view lastPartOf(std::string_view path) { return lastPathComponent(path).substr(0, 200); }

/// A new empty file beside `path`, open for writing; `name` receives its path.
int createSibling(std::string_view path, mode_t mode, std::string& name) {
  int descriptor = -1;
  for (int i = 0; i < kMostNamesTried; ++i) {
    name = hiddenSibling(path);
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    descriptor = retried([&] { return ::open(name.c_str(), flags, mode); });
    if (descriptor >= 0 || errno != EEXIST) break;
  }
  // Tells other writers that this one still writes; a volume without locks has no such sign.
  if (descriptor >= 0) ::flock(descriptor, LOCK_EX | LOCK_NB);
  return descriptor;
}

/// Whether a name is one that another process gave to what it wrote for `last`: ".LAST.PID-N.tmp"; that process.
std::optional<pid_t> writerOf(std::string_view name, std::string_view last) {
  if (!name.starts_with('.') || !name.ends_with(kSuffix) || name.size() < last.size() + kSuffix.size() + 2) return {};
  name = name.substr(1, name.size() - 1 - kSuffix.size());
  if (!name.starts_with(last) || name[last.size()] != '.') return {};
  name.remove_prefix(last.size() + 1);
  pid_t process = 0;
  unsigned number = 0;
  const char* const end = name.data() + name.size();
  const auto [dash, failure] = std::from_chars(name.data(), end, process);
  if (failure != std::errc() || dash == end || *dash != '-') return {};
  const auto [stop, otherFailure] = std::from_chars(dash + 1, end, number);
  if (otherFailure != std::errc() || stop != end) return {};
  return process;
}

/// Whether what a writer left is nobody's any more: the process is gone, or a later one has its number, and nobody
/// holds the lock that a writer keeps while it writes. Several machines or containers may share the folder.
bool isLeftBehind(const std::string& path, pid_t writer) {
  if (writer > 0 && (::kill(writer, 0) == 0 || errno != ESRCH)) return false;
  const FileDescriptor file(
      retried([&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  struct stat facts {};
  return file && ::fstat(file.get(), &facts) == 0 && S_ISREG(facts.st_mode) &&
         ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

/// Removes what writers of the same file left that were ended half-way.
void removeLeftOvers(const std::string& path) {
  const std::string folder(folderOf(path));
  const std::string_view last = lastPartOf(path);
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), ::closedir);
  if (!listing) return;
  while (const dirent* const entry = ::readdir(listing.get())) {
    const std::optional<pid_t> writer = writerOf(entry->d_name, last);
    if (!writer) continue;
    const std::string leftOver = folder + "/" + entry->d_name;
    if (isLeftBehind(leftOver, *writer)) ::unlink(leftOver.c_str());
  }
}

/// Brings the written bytes to the medium. The usual call ends at the drive's cache where the system has another one
/// for the way from there.
bool sync(int descriptor) {
#ifdef F_FULLFSYNC
  if (retried([&] { return ::fcntl(descriptor, F_FULLFSYNC); }) == 0) return true;
#endif
  return retried([&] { return ::fsync(descriptor); }) == 0;
}

bool syncFolder(const std::string& folder) {
  const FileDescriptor descriptor(retried([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!descriptor) return errno == EACCES;  // a folder that may be written to but not read cannot be synced
  // Some file systems cannot sync folders and say so by EINVAL.
  return sync(descriptor.get()) || errno == EINVAL;
}

bool fillAndRename(int descriptor, const std::string& temporary, const std::string& path,
                   std::span<const std::uint8_t> content, const struct stat* before) {
  if (before != nullptr && ::fchmod(descriptor, before->st_mode & 07777) != 0) return false;
  return writeAll(descriptor, content) && sync(descriptor) && ::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace

std::optional<TKSData> readWholeFile(std::string_view path, std::size_t limit, TKSError* error) {
  if (!isPath(path)) {
    fail(error, "open", path);
    return std::nullopt;
  }
  const std::string name(path);
  const FileDescriptor descriptor(
      retried([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  struct stat facts {};
  if (!descriptor || ::fstat(descriptor.get(), &facts) != 0) {
    fail(error, "open", path);
    return std::nullopt;
  }
  if (!S_ISREG(facts.st_mode)) {
    errno = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
    fail(error, "read", path);
    return std::nullopt;
  }

  // The size is only a hint: the file may grow while it is read, and files of /proc announce none.
  TKSData content;
  std::size_t size = 0;
  std::size_t room = std::min(static_cast<std::size_t>(facts.st_size), limit) + 1;
  while (size <= limit) {
    if (size == content.size()) content.resize(std::min(size + std::exchange(room, 65536), limit + 1));
    const ssize_t count =
        retried([&] { return ::read(descriptor.get(), content.data() + size, content.size() - size); });
    if (count < 0) {
      fail(error, "read", path);
      return std::nullopt;
    }
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > limit) {
    errno = EFBIG;
    fail(error, "read", path);
    return std::nullopt;
  }
  content.resize(size);
  return content;
}

bool isWithinFileSizeLimit(std::uint64_t size) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return true;
  errno = EFBIG;
  return size <= limit.rlim_cur;
}

bool writeAll(int descriptor, std::span<const std::uint8_t> content) {
  while (!content.empty()) {
    const ssize_t count = retried([&] { return ::write(descriptor, content.data(), content.size()); });
    if (count < 0) return false;
    content = content.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

std::string hiddenSibling(std::string_view path) {
  static std::atomic<unsigned> serial{0};
  char suffix[40];
  std::snprintf(suffix, sizeof suffix, ".%d-%u", static_cast<int>(::getpid()), ++serial);
  return std::string(folderPart(path)).append(".").append(lastPartOf(path)).append(suffix).append(kSuffix);
}

bool syncFolderOf(std::string_view path) { return syncFolder(std::string(folderOf(path))); }

bool replaceFile(std::string_view path, std::span<const std::uint8_t> content, TKSError* error) {
  if (!isPath(path) || !isWithinFileSizeLimit(content.size())) return fail(error, "write", path);
  const std::string name(path);
  // Made before anything is written: once the file is in its place, nothing may fail for lack of memory.
  const std::string folder(folderOf(name));
  struct stat facts {};
  const bool exists = ::lstat(name.c_str(), &facts) == 0 && !S_ISLNK(facts.st_mode);
  if (exists && !S_ISREG(facts.st_mode)) {
    errno = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
    return fail(error, "replace", path);
  }
  removeLeftOvers(name);
  std::string temporary;
  // An existing file's permissions are set before anything is written, so that nobody reads what he could not before.
  const FileDescriptor descriptor(createSibling(path, exists ? 0600 : 0666, temporary));
  if (!descriptor) return fail(error, "create a file beside", path);
  if (!fillAndRename(descriptor.get(), temporary, name, content, exists ? &facts : nullptr)) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
    return fail(error, "write", path);
  }
  return syncFolder(folder) || fail(error, "sync the folder of", path);
}

}  // namespace tks::posix
