#include "install/RemoveWhole.h"

#include <cstdint>
#include <optional>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::files;
using platform::TreeItem;

constexpr std::uint32_t kOwnersRights = 0700;

void openToOwner(const std::string& folder, std::uint32_t permissions) {
  if ((permissions & kOwnersRights) == kOwnersRights) return;
  files().setPermissions(folder, permissions | kOwnersRights, nullptr);
}

/// A folder is opened when it is visited, which is before anybody looks into it.
void openFolders(const std::string& path) {
  if (!files().isDirectory(path)) return;
  // Of a link these are the link's own, which has them all.
  const std::optional<platform::FileAttributes> top = files().attributes(path, nullptr);
  if (top) openToOwner(path, top->permissions);
  const auto visit = [&](const TreeItem& item) {
    if (item.kind == TreeItem::Kind::folder) openToOwner(joinedPath(path, item.name), item.permissions);
    return true;
  };
  files().visitTree(path, visit, nullptr);
}

}  // namespace

bool removeWhole(const std::string& path, TKSError* error) {
  if (files().remove(path, nullptr)) return true;
  openFolders(path);
  return files().remove(path, error);
}

}  // namespace tks::install
