#include "platform/posix/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#ifdef __APPLE__
#include <sys/clonefile.h>
#endif

#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::posix {
namespace {

constexpr std::size_t kBufferSize = std::size_t{128} * 1024;
constexpr mode_t kOwnersRights = 0600;

#ifdef __APPLE__

/// A new file that shares the other's blocks; false where the volume cannot do that.
bool cloneContent(int from, const std::string& to) {
  if (::fclonefileat(from, AT_FDCWD, to.c_str(), 0) != 0) return false;
  if (::chmod(to.c_str(), kOwnersRights) == 0) return true;
  ::unlink(to.c_str());
  return false;
}

/// Nothing is copied without being read here.
std::uint64_t copyInKernel(int, int, std::uint64_t) { return 0; }

#else

constexpr std::uint64_t kMostAtOnce = std::uint64_t{1} << 30;

bool cloneContent(int, const std::string&) { return false; }

/// Copies as much as can be copied inside of the kernel, which lets the two files share blocks where the volume can:
/// how much. It ends at the file's end, or where the volume cannot do it: the plain way finds out.
std::uint64_t copyInKernel(int from, int to, std::uint64_t size) {
  std::uint64_t copied = 0;
  while (copied < size) {
    const auto piece = static_cast<std::size_t>(std::min(size - copied, kMostAtOnce));
    const ssize_t count = ::copy_file_range(from, nullptr, to, nullptr, piece, 0);
    if (count <= 0) break;
    copied += static_cast<std::uint64_t>(count);
  }
  return copied;
}

#endif

/// A regular file, open for reading; otherwise errno says why not.
FileDescriptor openRegularFile(const std::string& path, std::uint64_t& size) {
  FileDescriptor file(retried([&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  struct stat facts {};
  if (!file || ::fstat(file.get(), &facts) != 0) return FileDescriptor();
  if (!S_ISREG(facts.st_mode)) {
    errno = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
    return FileDescriptor();
  }
  size = static_cast<std::uint64_t>(facts.st_size);
  return file;
}

}  // namespace

bool copyBytes(int from, int to, std::uint64_t most) {
  std::uint64_t left = most - copyInKernel(from, to, most);
  std::vector<std::uint8_t> buffer(std::min<std::uint64_t>(left, kBufferSize));
  while (left > 0) {
    const std::size_t room = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
    const ssize_t count = retried([&] { return ::read(from, buffer.data(), room); });
    if (count <= 0) return count == 0;
    if (!writeAll(to, std::span(buffer).first(static_cast<std::size_t>(count)))) return false;
    left -= static_cast<std::uint64_t>(count);
  }
  return true;
}

bool copyContent(std::string_view from, std::string_view to, TKSError* error) {
  if (!isPath(from)) return fail(error, "copy", from);
  if (!isPath(to)) return fail(error, "copy to", to);
  std::uint64_t size = 0;
  const FileDescriptor source = openRegularFile(std::string(from), size);
  if (!source || !isWithinFileSizeLimit(size)) return fail(error, "copy", from);
  const std::string name(to);
  if (cloneContent(source.get(), name)) return true;
  const FileDescriptor target(retried(
      [&] { return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnersRights); }));
  if (!target) return fail(error, "copy to", to);
  if (copyBytes(source.get(), target.get(), size)) return true;
  fail(error, "copy", from);
  ::unlink(name.c_str());
  return false;
}

}  // namespace tks::posix
