#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "tools/tksctl/bundle/content.h"
#include "tools/tksctl/frame/json_values.h"

// What lies in the folders of library and launcher, with rights: names and sizes, never what is in the files.

namespace tks::ctl {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostItems = 5000;
constexpr std::size_t kNamesOfAttributes = 4096;

std::string ownerOf(const struct stat& facts) {
  if (facts.st_uid == ::getuid()) return "self";
  return facts.st_uid == 0 ? "root" : "another";
}

/// "drwxr-xr-x"
std::string rightsOf(mode_t mode) {
  constexpr std::string_view kLetters = "rwxrwxrwx";
  std::string rights(1, S_ISDIR(mode) ? 'd' : S_ISLNK(mode) ? 'l' : S_ISREG(mode) ? '-' : '?');
  for (std::size_t bit = 0; bit < kLetters.size(); ++bit) {
    rights.push_back((mode >> (kLetters.size() - 1 - bit) & 1) != 0 ? kLetters[bit] : '-');
  }
  return rights;
}

std::string attributesOf(const std::string& path) {
  char names[kNamesOfAttributes];
  const ssize_t size = ::llistxattr(path.c_str(), names, sizeof names);
  std::string list(names, size > 0 ? static_cast<std::size_t>(size) : 0);
  std::ranges::replace(list, '\0', ' ');
  return list.empty() ? "" : "  [" + list.substr(0, list.size() - 1) + "]";
}

std::string lineOf(const std::string& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) return path + "  (not there)\n";
  char columns[64];
  std::snprintf(columns, sizeof columns, "%s %-7s %12lld %s  ", rightsOf(facts.st_mode).c_str(), ownerOf(facts).c_str(),
                static_cast<long long>(facts.st_size), momentText(static_cast<double>(facts.st_mtime)).c_str());
  std::string line = columns + oneLine(path);
  std::error_code ignored;
  if (S_ISLNK(facts.st_mode)) line.append(" -> ").append(oneLine(fs::read_symlink(path, ignored).string()));
  return line + attributesOf(path) + "\n";
}

/// The folder and everything in it; no link is followed.
void appendTree(std::string& text, std::size_t& items, const std::string& folder) {
  text.append(lineOf(folder));
  std::vector<std::string> names;
  TKSError error;
  if (!platform::files().isDirectory(folder)) return;
  const bool isWhole = platform::files().visitTree(
      folder,
      [&](const platform::TreeItem& item) {
        names.push_back(item.name);
        return names.size() + items < kMostItems;
      },
      &error);
  std::ranges::sort(names);
  for (const std::string& name : names) text.append(lineOf(joinedPath(folder, name)));
  items += names.size();
  if (!isWhole && !error.localizedDescription.empty()) text.append("(" + error.localizedDescription + ")\n");
  if (items >= kMostItems) text.append("(and more)\n");
}

/// What in a folder that others use as well belongs to the library and its tools.
void appendOwn(std::string& text, const std::string& folder, const std::vector<std::string_view>& beginnings) {
  text.append(lineOf(folder));
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().filename().string();
    const auto begins = [&](std::string_view beginning) { return name.starts_with(beginning); };
    if (std::ranges::any_of(beginnings, begins)) text.append(lineOf(entry.path().string()));
  }
}

}  // namespace

void collectFolders(BundleContent& content) {
  std::string text;
  std::size_t items = 0;
  text.append(lineOf(TKSUtilBase::getRealHomeDirectory()));
  const std::string launchers = std::string(folderOf(TKSUtilBase::getStandardTKSPath()));
  for (const std::string& folder : {std::string(folderOf(launchers)), TKSUtilBase::getKovraDataPath()}) {
    appendTree(text, items, folder);
  }
  appendOwn(text, TKSUtilBase::getUserPreferenceDirectory(), {".GlobalPreferences", "com.tarvo", "Tarvo"});
  const std::string temporary = platform::knownFolders().temporary();
  if (!temporary.empty()) appendOwn(text, temporary, {"ipcFile_", "tks", "Tarvo"});
  content.addText("folders.txt", "what lies in the folders of library and launcher, with rights", text);
}

}  // namespace tks::ctl
