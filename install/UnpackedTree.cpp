#include "install/UnpackedTree.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "foundation/values/LinkWalk.h"
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

/// A place in the tree as a key, the same for names that some volumes take for the same.
template <class Components>
std::string keyOf(const Components& components) {
  std::string key;
  for (const std::string_view component : components) key.append("/").append(component);
  return platform::text().lowerCase(key);
}

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
    links_.emplace(keyOf(pathComponents(item.name)), Link{item.name, item.target});
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

  /// Follows a link's target over all links on its way. A link in a folder at the top stays in that folder.
  bool staysInside(const Link& link) const {
    const std::vector<std::string_view> folders = pathComponents(folderOf(link.name));
    LinkWalk walk;
    walk.place.assign(folders.begin(), folders.end());
    walk.floor = std::min<std::size_t>(folders.size(), 1);
    walk.mostLinks = kMostLinksOnTheWay;
    walk.targetAt = [this](const std::vector<std::string>& place) {
      const auto found = links_.find(keyOf(place));
      return found == links_.end() ? std::nullopt : std::optional(found->second.target);
    };
    return followPath(std::move(walk), link.target) == LinkEnd::inside;
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
