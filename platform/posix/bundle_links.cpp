#include "platform/posix/bundle_links.h"

#include <fts.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/posix/paths.h"

namespace tks::posix {
namespace {

/// No system follows more of them for one path.
constexpr int kMostLinks = 64;

enum class Target { none, known, unreadable };

/// What a link says; `none` when the path is no link.
Target targetOf(const std::string& path, std::string& into) {
  std::array<char, PATH_MAX> text{};
  const ssize_t size = ::readlink(path.c_str(), text.data(), text.size());
  if (size < 0) return errno == EINVAL || errno == ENOENT || errno == ENOTDIR ? Target::none : Target::unreadable;
  if (size == 0 || size == static_cast<ssize_t>(text.size())) return Target::unreadable;
  into.assign(text.data(), static_cast<std::size_t>(size));
  return Target::known;
}

/// Follows a link component by component, never further than it may lead.
class Following {
 public:
  Following(const std::string& root, const std::string& link) : root_(root), rest_(link) {}

  bool leadsOut() {
    while (!rest_.empty()) {
      const std::string part = rest_.substr(0, rest_.find('/'));
      rest_.erase(0, std::min(part.size() + 1, rest_.size()));
      if (part.empty() || part == ".") continue;
      if (part == "..") {
        if (place_.empty()) return true;
        place_.pop_back();
        continue;
      }
      place_.push_back(part);
      std::string target;
      const Target kind = targetOf(path(), target);
      if (kind == Target::none) continue;
      if (kind == Target::unreadable || target.starts_with('/')) return true;
      if (++links_ > kMostLinks) return false;
      place_.pop_back();
      rest_ = target + "/" + rest_;
    }
    return false;
  }

 private:
  std::string path() const {
    std::string joined = root_;
    for (const std::string& part : place_) joined.append("/").append(part);
    return joined;
  }

  const std::string& root_;
  std::string rest_;
  std::vector<std::string> place_;  ///< folders below the root, none of them a link
  int links_ = 0;
};

}  // namespace

bool leadsOut(const std::string& root, const std::string& link) { return Following(root, link).leadsOut(); }

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
