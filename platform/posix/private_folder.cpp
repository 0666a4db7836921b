#include "platform/posix/private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "foundation/values/FilePaths.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {
namespace {

constexpr mode_t kOwnersRights = 0700;
constexpr mode_t kAllRights = 0777;

}  // namespace

bool closeToOthers(std::string_view path, TKSError* error) {
  if (!isPath(path)) return fail(error, "use the folder", path);
  const std::string name = withoutClosingSlashes(path);
  const FileDescriptor folder(
      retried([&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
  struct stat facts {};
  if (!folder || ::fstat(folder.get(), &facts) != 0) return fail(error, "use the folder", path);
  if (facts.st_uid != ::geteuid()) {
    errno = EPERM;
    return fail(error, "use the folder of another user", path);
  }
  if ((facts.st_mode & kAllRights) == kOwnersRights) return true;
  return ::fchmod(folder.get(), kOwnersRights) == 0 || fail(error, "close to others", path);
}

std::optional<std::string> makePrivateFolder(std::string_view beginning, TKSError* error) {
  std::string path = std::string(beginning) + "XXXXXX";
  if (isPath(beginning) && ::mkdtemp(path.data()) != nullptr) return path;
  fail(error, "create the folder", path);
  return std::nullopt;
}

}  // namespace tks::posix
