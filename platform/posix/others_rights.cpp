#include "platform/posix/others_rights.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __APPLE__
#include <sys/acl.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/posix/folder_items.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {
namespace {

using platform::Reach;

/// As many as the system itself follows.
constexpr int kMostLinks = 40;

/// The superuser can change everything anyway.
bool isTrusted(uid_t owner) { return owner == 0 || owner == ::geteuid(); }

#ifdef __APPLE__
/// Members of wheel and admin may become superuser.
bool isTrustedGroup(gid_t group) { return group == 0 || group == 80; }

/// Whether the item's list of rights, which its permission bits do not show, lets somebody change it.
bool listLetsWrite(const std::string& path) {
  constexpr acl_perm_t kChanges[] = {ACL_WRITE_DATA,   ACL_APPEND_DATA,    ACL_DELETE,
                                     ACL_DELETE_CHILD, ACL_WRITE_SECURITY, ACL_CHANGE_OWNER};
  const acl_t list = ::acl_get_link_np(path.c_str(), ACL_TYPE_EXTENDED);
  if (list == nullptr) return false;
  bool lets = false;
  acl_entry_t entry = nullptr;
  for (int which = ACL_FIRST_ENTRY; !lets && ::acl_get_entry(list, which, &entry) == 0; which = ACL_NEXT_ENTRY) {
    acl_tag_t tag = ACL_UNDEFINED_TAG;
    acl_permset_t rights = nullptr;
    if (::acl_get_tag_type(entry, &tag) != 0 || tag != ACL_EXTENDED_ALLOW) continue;
    if (::acl_get_permset(entry, &rights) != 0) continue;
    for (const acl_perm_t change : kChanges) lets = lets || ::acl_get_perm_np(rights, change) == 1;
  }
  ::acl_free(list);
  return lets;
}
#else
bool isTrustedGroup(gid_t) { return false; }

/// The permission bits of the group show what a list of rights gives at most.
bool listLetsWrite(const std::string&) { return false; }
#endif

/// Whether somebody else may change the content of an item, or give himself the right to.
bool othersMayChange(const std::string& path, const struct stat& facts) {
  if (!isTrusted(facts.st_uid)) return true;
  if (S_ISLNK(facts.st_mode)) return false;  // its rights say nothing: who changes it needs those of its folder
  if ((facts.st_mode & S_IWOTH) != 0) return true;
  return ((facts.st_mode & S_IWGRP) != 0 && !isTrustedGroup(facts.st_gid)) || listLetsWrite(path);
}

/// Goes the way to an item as the system would, link by link.
class Way {
 public:
  Way(const std::string& path, Reach reach) : reach_(reach) { prepend(path); }

  /// False, and errno, when something cannot be looked at; `found` receives what others may change.
  bool go(std::string& found) {
    if (!lookAt("/", found)) return false;
    while (found.empty() && !left_.empty()) {
      const std::string name = std::move(left_.front());
      left_.pop_front();
      if (name == "..") at_ = std::string(folderOf(at_));
      if (name.empty() || name == "." || name == "..") continue;
      if (!step(joinedPath(at_, name), found)) return false;
      if (isMissing_) return true;
    }
    return true;
  }

  bool isMissing() const { return isMissing_; }
  /// Where the way leads.
  const std::string& end() const { return at_; }

 private:
  /// In a folder that all may write to with the sticky bit, each can change what is his own alone.
  bool lookAt(const std::string& path, std::string& found) {
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) != 0) {
      isMissing_ = errno == ENOENT;
      return isMissing_;
    }
    const bool isEnd = left_.empty() && !S_ISLNK(facts.st_mode);
    const bool isSticky = S_ISDIR(facts.st_mode) && (facts.st_mode & S_ISVTX) != 0;
    const bool mayBeOpen = isEnd ? reach_ == Reach::way : isSticky;
    if (mayBeOpen ? !isTrusted(facts.st_uid) : othersMayChange(path, facts)) found = path;
    isLink_ = S_ISLNK(facts.st_mode);
    return true;
  }

  bool step(const std::string& path, std::string& found) {
    if (!lookAt(path, found)) return false;
    if (!found.empty() || isMissing_) return true;
    if (!isLink_) {
      at_ = path;
      return true;
    }
    std::array<char, PATH_MAX> target{};
    const ssize_t size = ::readlink(path.c_str(), target.data(), target.size());
    if (size < 0) return false;
    errno = ELOOP;
    if (++links_ > kMostLinks) return false;
    const std::string text(target.data(), static_cast<std::size_t>(size));
    if (text.starts_with('/')) at_ = "/";
    prepend(text);
    return true;
  }

  void prepend(const std::string& path) {
    std::deque<std::string> names;
    for (std::size_t begin = 0; begin < path.size();) {
      const std::size_t end = std::min(path.find('/', begin), path.size());
      if (end > begin) names.push_back(path.substr(begin, end - begin));
      begin = end + 1;
    }
    left_.insert(left_.begin(), names.begin(), names.end());
  }

  const Reach reach_;
  std::deque<std::string> left_;
  std::string at_ = "/";
  int links_ = 0;
  bool isLink_ = false;
  bool isMissing_ = false;
};

/// Looks through what is in a folder, and the folders that it finds. False, and errno, when it cannot.
bool lookThrough(const std::string& folder, std::vector<std::string>& folders, std::string& found) {
  return visitItems(folder, [&](std::string_view name, const struct stat& facts, int) {
    const std::string item = joinedPath(folder, name);
    if (othersMayChange(item, facts)) found = item;
    if (S_ISDIR(facts.st_mode)) folders.push_back(item);
    return found.empty();
  });
}

bool isFolder(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

std::string absolute(std::string_view path) {
  if (path.starts_with('/')) return std::string(path);
  std::array<char, PATH_MAX> here{};
  if (::getcwd(here.data(), here.size()) == nullptr) return {};
  return joinedPath(here.data(), path);
}

}  // namespace

std::optional<std::string> writableByOthers(std::string_view path, Reach reach, TKSError* error) {
  const std::string from = isPath(path) ? absolute(path) : std::string();
  std::string found;
  Way way(from, reach);
  bool looked = !from.empty() && way.go(found);
  if (looked && found.empty() && reach == Reach::content && !way.isMissing()) {
    std::vector<std::string> folders;
    if (isFolder(way.end())) folders.push_back(way.end());
    while (looked && found.empty() && !folders.empty()) {
      const std::string folder = std::move(folders.back());
      folders.pop_back();
      looked = lookThrough(folder, folders, found);
    }
  }
  if (looked) return found;
  fail(error, "look who may write to", path);
  return std::nullopt;
}

}  // namespace tks::posix
