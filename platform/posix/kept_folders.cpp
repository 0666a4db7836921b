#include "platform/posix/kept_folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "platform/posix/paths.h"

namespace tks::posix {
namespace {

bool isFolder(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

/// Places of volumes are compared by name only: a look at one that does not respond takes for ever.
bool holdsOneOf(const std::string& folder, std::span<const std::string> volumes) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(folder.c_str(), nullptr), std::free);
  if (!real) return false;
  const std::string_view outer = real.get();
  return std::ranges::any_of(volumes, [&](std::string_view volume) {
    return volume.starts_with(outer) && (volume.size() == outer.size() || volume[outer.size()] == '/');
  });
}

}  // namespace

bool mayBeTakenAway(const std::string& path, const std::string& home, std::span<const std::string> volumes) {
  errno = EINVAL;
  if (endsInDots(path)) return false;
  if (!isFolder(path)) return true;
  const bool kept = isRootOfVolume(path) || (!home.empty() && liesWithin(home, path)) || holdsOneOf(path, volumes);
  errno = EBUSY;
  return !kept;
}

}  // namespace tks::posix
