#include "platform/posix/paths.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "foundation/values/FilePaths.h"

namespace tks::posix {
namespace {

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

bool isPath(std::string_view path) {
  errno = path.empty() ? ENOENT : EINVAL;
  return tks::isPath(path);
}

std::string behindLinks(std::string_view path) {
  constexpr int kMostLinks = 40;  // as many as systems follow
  std::string place = withoutClosingSlashes(path);
  if (!isPath(path)) return std::string(path);
  for (int i = 0; i < kMostLinks; ++i) {
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlink(place.c_str(), target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) == target.size()) break;
    target.resize(static_cast<std::size_t>(length));
    place = target.starts_with('/') ? target : joinedPath(folderOf(place), target);
  }
  return place;
}

bool endsInDots(std::string_view path) {
  const std::string_view last = lastPathComponent(path);
  return last == "." || last == "..";
}

bool isSameItem(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 && isSame(first, second);
}

bool isRootOfVolume(const std::string& path) {
  struct stat facts {};
  struct stat above {};
  if (::lstat(path.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode)) return false;
  return ::lstat((path + "/..").c_str(), &above) == 0 && (facts.st_dev != above.st_dev || isSame(facts, above));
}

bool liesWithin(const std::string& folder, const std::string& outer) {
  struct stat wanted {};
  struct stat here {};
  if (::stat(outer.c_str(), &wanted) != 0 || ::stat(folder.c_str(), &here) != 0) return false;
  std::string path = folder;
  while (!isSame(here, wanted)) {
    path += "/..";
    struct stat above {};
    if (::stat(path.c_str(), &above) != 0 || isSame(above, here)) return false;
    here = above;
  }
  return true;
}

}  // namespace tks::posix
