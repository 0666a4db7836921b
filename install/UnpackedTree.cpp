#include "install/UnpackedTree.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::TreeItem;

constexpr std::uint32_t kPlainFile = 0644;
constexpr std::uint32_t kProgramOrFolder = 0755;
constexpr std::uint32_t kAnyonesRightToExecute = 0111;
constexpr std::uint32_t kOwnersRights = 0700;
/// As many as the system follows on the way to one file.
constexpr int kMostLinksOnTheWay = 40;

std::vector<std::string> componentsOf(std::string_view path) {
  std::vector<std::string> components;
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    const std::string_view component = path.substr(0, slash);
    if (!component.empty() && component != ".") components.emplace_back(component);
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  }
  return components;
}

/// A place in the tree, written the same for names that some volumes take for the same.
class Place {
 public:
  explicit Place(std::string_view path) {
    for (const std::string& component : componentsOf(path)) enter(component);
  }
  void enter(const std::string& component) {
    lengths_.push_back(key_.size());
    key_.append("/").append(platform::text().lowerCase(component));
  }
  void leave() {
    key_.resize(lengths_.back());
    lengths_.pop_back();
  }
  std::size_t depth() const { return lengths_.size(); }
  const std::string& key() const { return key_; }

 private:
  std::string key_;
  std::vector<std::size_t> lengths_;
};

bool isAscii(std::string_view text) {
  return std::ranges::none_of(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0x80) != 0; });
}

class TreeLook {
 public:
  TreeLook(const std::string& folder, const ArchiveContent& announced, const ArchiveRules& rules, std::uint32_t allowed)
      : folder_(folder), announced_(announced), rules_(rules), allowed_(allowed | kOwnersRights) {}

  std::optional<std::string> run() {
    TKSError error;
    if (!platform::files().visitTree(
            folder_, [this](const TreeItem& item) { return take(item); }, &error)) {
      return error.localizedDescription;
    }
    for (const auto& [key, link] : links_) {
      if (!objection_ && !staysInside(link)) refuse("a link leads out of the folder", link.name);
    }
    return objection_;
  }

 private:
  struct Link {
    std::string name;
    std::string target;
  };

  /// False ends the look: there is a reason.
  bool take(const TreeItem& item) {
    if (++items_ > kMostEntries) return refuse("too many entries", item.name);
    const bool isLink = item.kind == TreeItem::Kind::link;
    if (item.kind == TreeItem::Kind::other || (item.kind == TreeItem::Kind::file && item.names > 1)) {
      return refuse("neither file, folder nor link", item.name);
    }
    if (isLink && !rules_.links) return refuse("a link", item.name);
    size_ += item.size;
    if (size_ > rules_.mostBytes) return refuse("more than may be unpacked", item.name);
    if (announced_.isComplete && !isAnnounced(item)) return refuse("not in the archive's list", item.name);
    if (!isLink) return settle(item);
    links_.emplace(Place(item.name).key(), Link{item.name, item.target});
    return true;
  }

  bool isAnnounced(const TreeItem& item) {
    const bool isFolder = item.kind == TreeItem::Kind::folder;
    leaves_ += isFolder ? 0 : 1;
    if (leaves_ > announced_.entries || size_ > announced_.size) return false;
    // Unpackers translate other names from what the archive's system wrote.
    if (!isAscii(item.name)) return true;
    const std::string name = archiveName(item.name);
    if (announced_.names.contains(name)) return true;
    const auto inside = announced_.names.lower_bound(name + "/");
    return isFolder && inside != announced_.names.end() && inside->starts_with(name + "/");
  }

  bool settle(const TreeItem& item) {
    const bool isPlain = item.kind == TreeItem::Kind::file && (item.permissions & kAnyonesRightToExecute) == 0;
    const std::uint32_t wanted = (isPlain ? kPlainFile : kProgramOrFolder) & allowed_;
    TKSError error;
    if (item.permissions == wanted) return true;
    if (platform::files().setPermissions(joinedPath(folder_, item.name), wanted, &error)) return true;
    return refuse(error.localizedDescription, item.name);
  }

  /// Follows a link's target over all links on its way. What is in a folder at the top stays in that folder.
  bool staysInside(const Link& link) const {
    Place here(folderOf(link.name));
    const std::size_t top = std::min<std::size_t>(here.depth(), 1);
    std::vector<std::string> ahead;
    if (!prepend(link.target, ahead)) return false;
    for (int followed = 0; !ahead.empty();) {
      const std::string component = std::move(ahead.back());
      ahead.pop_back();
      if (component == "..") {
        if (here.depth() <= top) return false;
        here.leave();
        continue;
      }
      here.enter(component);
      const auto next = links_.find(here.key());
      if (next == links_.end()) continue;
      if (++followed > kMostLinksOnTheWay || !prepend(next->second.target, ahead)) return false;
      here.leave();
    }
    return true;
  }

  /// Puts a target in front of what is still to be gone; the next component is the last. False for one that leads from
  /// the volume's top.
  static bool prepend(const std::string& target, std::vector<std::string>& ahead) {
    if (target.empty() || target.front() == '/') return false;
    std::vector<std::string> components = componentsOf(target);
    ahead.insert(ahead.end(), std::make_move_iterator(components.rbegin()), std::make_move_iterator(components.rend()));
    return true;
  }

  bool refuse(std::string_view why, std::string_view name) {
    objection_ = std::string(why).append(": \"").append(name).append("\"");
    return false;
  }

  const std::string& folder_;
  const ArchiveContent& announced_;
  const ArchiveRules& rules_;
  std::uint32_t allowed_;
  std::size_t items_ = 0;
  std::size_t leaves_ = 0;
  std::uint64_t size_ = 0;
  std::map<std::string, Link> links_;
  std::optional<std::string> objection_;
};

}  // namespace

std::optional<std::string> objectionToTree(const std::string& folder, const ArchiveContent& announced,
                                           const ArchiveRules& rules, std::uint32_t allowed) {
  return TreeLook(folder, announced, rules, allowed).run();
}

}  // namespace tks::install
