#include "platform/posix/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
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
#include "platform/posix/file_descriptor.h"
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

/// Facts of an item in an open folder; nothing, and errno, when it cannot be looked at.
std::optional<TreeItem> look(int folder, const char* name) {
  struct stat facts {};
  if (::fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
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
    FileDescriptor descriptor(
        retried([&] { return ::open(pathOf(folder).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(descriptor ? ::fdopendir(descriptor.get()) : nullptr, ::closedir);
    if (!listing) return false;
    const int number = descriptor.release();  // the listing closes it
    while (!isOver_) {
      errno = 0;
      const dirent* const entry = ::readdir(listing.get());
      if (entry == nullptr) return errno == 0;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      std::optional<TreeItem> item = look(number, entry->d_name);
      if (!item) return false;
      item->name = folder.empty() ? std::string(name) : folder + "/" + std::string(name);
      isOver_ = !visit_(*item);
      if (item->kind == TreeItem::Kind::folder) waiting.push_back(std::move(item->name));
    }
    return true;
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
