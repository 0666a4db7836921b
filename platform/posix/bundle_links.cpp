#include "platform/posix/bundle_links.h"

#include <fts.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "foundation/values/LinkWalk.h"

namespace tks::posix {
namespace {

/// No system follows more of them for one path.
constexpr int kMostLinks = 64;

/// What a link says; nothing when the path is no link, and the empty text when it cannot be read.
std::optional<std::string> targetOf(const std::string& path) {
  std::array<char, PATH_MAX> text{};
  const ssize_t size = ::readlink(path.c_str(), text.data(), text.size());
  if (size < 0 && (errno == EINVAL || errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (size <= 0 || size == static_cast<ssize_t>(text.size())) return std::string();
  return std::string(text.data(), static_cast<std::size_t>(size));
}

}  // namespace

bool leadsOut(const std::string& root, const std::string& link) {
  LinkWalk walk;
  walk.mostLinks = kMostLinks;
  walk.targetAt = [&root](const std::vector<std::string>& place) {
    std::string path = root;
    for (const std::string& part : place) path.append("/").append(part);
    return targetOf(path);
  };
  return followPath(std::move(walk), link) == LinkEnd::outside;
}

std::optional<std::string> findLinkOut(const std::string& root) {
  std::string top = withoutClosingSlashes(root);
  char* const roots[] = {top.data(), nullptr};
  const std::unique_ptr<FTS, int (*)(FTS*)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr), ::fts_close);
  if (!walk) return std::string();
  while (true) {
    errno = 0;
    const FTSENT* const item = ::fts_read(walk.get());
    if (item == nullptr) return errno == 0 ? std::nullopt : std::optional(std::string());
    const std::string path =
        std::string(item->fts_path).substr(std::min(top.size() + 1, std::size_t{item->fts_pathlen}));
    switch (item->fts_info) {
      case FTS_SL:
      case FTS_SLNONE:
        if (item->fts_level == 0 || leadsOut(top, path)) return path;
        break;
      case FTS_DNR:
      case FTS_ERR:
      case FTS_NS:
        return path;
      default:
        break;
    }
  }
}

}  // namespace tks::posix
