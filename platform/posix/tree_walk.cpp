#include "platform/posix/tree_walk.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/posix/folder_items.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {
namespace {

using platform::TreeItem;

TreeItem::Kind kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return TreeItem::Kind::file;
    case S_IFDIR:
      return TreeItem::Kind::folder;
    case S_IFLNK:
      return TreeItem::Kind::link;
    default:
      return TreeItem::Kind::other;
  }
}

/// An item of an open folder, all but its name; nothing, and errno, when it is a link that cannot be read.
std::optional<TreeItem> itemOf(int folder, const char* name, const struct stat& facts) {
  TreeItem item;
  item.kind = kindOf(facts.st_mode);
  item.permissions = facts.st_mode & 07777u;
  item.names = static_cast<std::uint64_t>(facts.st_nlink);
  if (item.kind == TreeItem::Kind::file) item.size = static_cast<std::uint64_t>(facts.st_size);
  if (item.kind != TreeItem::Kind::link) return item;
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlinkat(folder, name, target.data(), target.size());
  if (length < 0) return std::nullopt;
  item.target.assign(target.data(), static_cast<std::size_t>(length));
  return item;
}

/// A walk, folder by folder; only one folder is open at a time.
class Walk {
 public:
  Walk(std::string folder, const std::function<bool(const TreeItem&)>& visit)
      : folder_(std::move(folder)), visit_(visit) {}

  bool run(TKSError* error) {
    std::vector<std::string> waiting = {""};
    while (!waiting.empty() && !isOver_) {
      const std::string name = std::move(waiting.back());
      waiting.pop_back();
      if (!visitItemsOf(name, waiting)) return fail(error, "look through", pathOf(name));
    }
    return true;
  }

 private:
  std::string pathOf(const std::string& name) const { return name.empty() ? folder_ : folder_ + "/" + name; }

  /// `waiting` receives the folders in it. False, and errno, when it cannot be gone through.
  bool visitItemsOf(const std::string& folder, std::vector<std::string>& waiting) {
    bool isReadable = true;
    const auto visitOne = [&](std::string_view name, const struct stat& facts, int number) {
      std::optional<TreeItem> item = itemOf(number, name.data(), facts);
      isReadable = item.has_value();
      if (!isReadable) return false;
      item->name = folder.empty() ? std::string(name) : joinedPath(folder, name);
      isOver_ = !visit_(*item);
      if (item->kind == TreeItem::Kind::folder) waiting.push_back(std::move(item->name));
      return !isOver_;
    };
    return visitItems(pathOf(folder), visitOne) && isReadable;
  }

  std::string folder_;
  const std::function<bool(const TreeItem&)>& visit_;
  bool isOver_ = false;
};

}  // namespace

bool visitTree(std::string_view folder, const std::function<bool(const TreeItem&)>& visit, TKSError* error) {
  if (!isPath(folder)) return fail(error, "look through", folder);
  return Walk(withoutClosingSlashes(folder), visit).run(error);
}

}  // namespace tks::posix
