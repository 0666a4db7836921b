#include "platform/posix/dropped_name.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tks::posix {
namespace {

constexpr mode_t kUsual = S_IRUSR | S_IWUSR;
constexpr mode_t kMark = S_IXUSR;

}  // namespace

bool dropName(int descriptor, const std::string& path) {
  if (::fchmod(descriptor, kUsual | kMark) != 0) return false;
  if (::unlink(path.c_str()) == 0) return true;
  const int reason = errno;
  ::fchmod(descriptor, kUsual);
  errno = reason;
  return false;
}

bool isNameDropped(int descriptor) {
  struct stat facts {};
  return ::fstat(descriptor, &facts) == 0 && facts.st_nlink == 0 && (facts.st_mode & kMark) != 0;
}

void leaveDroppedFile(int descriptor) {
  if (isNameDropped(descriptor)) ::fchmod(descriptor, kUsual);
}

}  // namespace tks::posix
