#include "codesign/container/code_layout.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "platform/posix/paths.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLargestInfoPlist = std::size_t{4} << 20;

bool facts(const std::string& path, struct stat& into) { return ::stat(path.c_str(), &into) == 0; }

bool isThere(const std::string& path) {
  struct stat found {};
  return facts(path, found);
}

bool isFolder(const std::string& path) {
  struct stat found {};
  return facts(path, found) && S_ISDIR(found.st_mode);
}

bool isSameFile(const std::string& first, const std::string& second) {
  struct stat one {
  }, other{};
  return facts(first, one) && facts(second, other) && one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// The path without links; empty, and errno, when that fails.
std::string resolved(const std::string& path) {
  char* absolute = ::realpath(path.c_str(), nullptr);
  if (absolute == nullptr) return {};
  std::string result = absolute;
  std::free(absolute);
  return result;
}

TKSDictionary readInfo(const std::string& path) {
  try {
    const std::shared_ptr<const File> file = File::openIfThere(path);
    const std::optional<TKSData> content = file == nullptr ? std::nullopt : ByteSource(file).all(kLargestInfoPlist);
    if (content) return platform::propertyLists().parse(*content, nullptr).dictionary();
  } catch (const Failure&) {
    // One that cannot be read says nothing; that it is sealed shows later.
  }
  return {};
}

/// A name from an Info.plist that stays below the folder it is looked for in.
bool isPlainName(std::string_view name) {
  if (name.empty() || name.starts_with('/') || name.find('\0') != std::string_view::npos) return false;
  const std::string bounded = "/" + std::string(name) + "/";
  return bounded.find("/../") == std::string::npos;
}

/// Where a bundle's parts are, before anybody looks whether they exist.
struct Places {
  std::string support;
  std::string info;
  std::string executables;
};

/// Versions keep their Info.plist with their resources, shallow bundles at their top; each may do as the other.
Places placesOf(const std::string& root, bool isVersion) {
  const std::string contents = root + "/Contents";
  if (isThere(contents)) return {contents, contents + "/Info.plist", contents + "/MacOS"};
  const std::string usual = root + (isVersion ? "/Resources/Info.plist" : "/Info.plist");
  const std::string other = root + (isVersion ? "/Info.plist" : "/Resources/Info.plist");
  return {root, isThere(other) && !isThere(usual) ? other : usual, root};
}

/// The executable that a bundle declares; empty when there is none on disk.
std::string executableIn(const Places& places, const TKSDictionary& info, std::string_view bundleName) {
  const TKSValue& declared = info["CFBundleExecutable"];
  std::string_view name = declared.text();
  if (name.empty()) name = withoutExtension(bundleName);
  if (!isPlainName(name)) return {};
  const std::string path = places.executables + "/" + std::string(name);
  return isThere(path) && !isFolder(path) ? resolved(path) : std::string();
}

enum class Kind { folder, file, link, other };

struct Item {
  std::string name;
  Kind kind = Kind::other;
};

/// What lies in a folder; nothing when it cannot be read.
std::optional<std::vector<Item>> itemsOf(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> opened(::opendir(folder.c_str()), ::closedir);
  if (opened == nullptr) return std::nullopt;
  std::vector<Item> items;
  errno = 0;
  while (const dirent* entry = ::readdir(opened.get())) {
    Item item{entry->d_name, Kind::other};
    if (item.name == "." || item.name == "..") continue;
    struct stat found {};
    if (::fstatat(::dirfd(opened.get()), entry->d_name, &found, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    if (S_ISDIR(found.st_mode)) item.kind = Kind::folder;
    if (S_ISREG(found.st_mode)) item.kind = Kind::file;
    if (S_ISLNK(found.st_mode)) item.kind = Kind::link;
    items.push_back(std::move(item));
    errno = 0;
  }
  if (errno != 0) return std::nullopt;
  return items;
}

bool isStoreFile(const Item& item) { return item.kind == Kind::file && item.name == ".DS_Store"; }

/// What may stand at the top of a bundle beside its contents, which are sealed as a whole: marks of the file browser
/// and the like, as files.
bool mayStandBesideContents(const Item& item) {
  constexpr std::string_view kMarks[] = {".LSOverride", "Icon\r", ".SoftwareDepot.tracking"};
  if (item.name == "Contents") return item.kind == Kind::folder;
  return isStoreFile(item) || (item.kind == Kind::file && std::ranges::find(kMarks, item.name) != std::end(kMarks));
}

Status bundleRootIssue(const std::string& root) {
  const std::optional<std::vector<Item>> items = itemsOf(root);
  return items && std::ranges::all_of(*items, mayStandBesideContents) ? status::kGood : status::kUnsealedRoot;
}

/// At the top of a framework: its versions, and links into them.
Status frameworkRootIssue(const std::string& root) {
  const auto mayStand = [&root](const Item& item) {
    if (item.name == "Versions") return item.kind == Kind::folder;
    return isStoreFile(item) ||
           (item.kind == Kind::link && resolved(root + "/" + item.name).starts_with(root + "/Versions/"));
  };
  const std::optional<std::vector<Item>> items = itemsOf(root);
  return items && std::ranges::all_of(*items, mayStand) ? status::kGood : status::kUnsealedFrameworkRoot;
}

/// Among the versions of a framework: folders, each of which is code, and links that are further names of them.
/// Collects all but the current one.
Status versionsIssue(const std::string& folder, const std::string& current, std::vector<std::string>& others) {
  const std::optional<std::vector<Item>> items = itemsOf(folder);
  if (!items) return status::kUnsealedFrameworkRoot;
  Status result = status::kGood;
  for (const Item& item : *items) {
    const std::string path = folder + "/" + item.name;
    if (item.kind == Kind::folder) {
      if (path != current) others.push_back(path);
    } else if (item.kind == Kind::link) {
      const std::string version = resolved(path);
      if (version.empty() || folderOf(version) != folder || !isFolder(version)) result = status::kUnsealedFrameworkRoot;
    } else if (!isStoreFile(item)) {
      result = status::kUnsealedFrameworkRoot;
    }
  }
  std::ranges::sort(others);
  return result;
}

class BundleFinder {
 public:
  explicit BundleFinder(const std::string& path) {
    layout_.root = resolved(path);
    if (layout_.root.empty()) failByErrno();
  }

  CodeLayout find() {
    const bool isVersion = lastPathComponent(folderOf(layout_.root)) == "Versions";
    const Places outer = placesOf(layout_.root, isVersion);
    Places places = outer;
    std::string name(lastPathComponent(layout_.root));
    if (outer.support != layout_.root) {
      layout_.strictIssue = bundleRootIssue(layout_.root);
    } else if (isThere(layout_.root + "/Versions/Current")) {
      const std::string current = enterVersion();
      places = placesOf(current, true);
      layout_.strictIssue = issueOfVersions(current, places.support);
    } else if (isVersion) {
      name = lastPathComponent(folderOf(folderOf(layout_.root)));
    }
    info_ = readInfo(places.info);
    layout_.supportFolder = places.support;
    if (isThere(places.info)) layout_.infoPlist = places.info;
    choose(executableIn(places, info_, name));
    refuseSecondExecutable(outer, places, name);
    return std::move(layout_);
  }

 private:
  std::string enterVersion() const {
    std::string version = resolved(layout_.root + "/Versions/Current");
    if (version.empty() || !isFolder(version)) fail(status::kNotFound);
    return version;
  }

  /// The fault beside the content of the current version. Content in its own folder is sealed there alone.
  Status issueOfVersions(const std::string& current, const std::string& support) {
    if (const Status issue = frameworkRootIssue(layout_.root); issue != status::kGood) return issue;
    if (const Status issue = versionsIssue(layout_.root + "/Versions", current, layout_.otherVersions);
        issue != status::kGood) {
      return issue;
    }
    return support == current ? status::kGood : bundleRootIssue(current);
  }

  void choose(const std::string& executable) {
    const TKSValue& page = info_["MainHTML"];
    if (!executable.empty() && page.isNothing()) return chooseExecutable(executable);
    if (!page.isNothing()) return choosePage(page);
    if (layout_.infoPlist.empty()) fail(status::kBadBundleFormat);
    layout_.executable = layout_.infoPlist;
    layout_.file = File::open(layout_.executable);
    layout_.format = info_.contains("IFMajorVersion") ? "installer package bundle" : "bundle";
  }

  void chooseExecutable(const std::string& executable) {
    layout_.executable = executable;
    layout_.file = File::open(executable);
    layout_.image = MachO::open(layout_.file);
    layout_.format = "bundle with " + (layout_.image ? layout_.image->format() : std::string("generic"));
    if (info_["CFBundlePackageType"].text() == "APPL") layout_.format.insert(0, "app ");
  }

  void choosePage(const TKSValue& page) {
    if (!isPlainName(page.text())) fail(status::kBadBundleFormat);
    layout_.executable = layout_.supportFolder + "/" + std::string(page.text());
    layout_.file = File::open(layout_.executable);
    layout_.format = "widget bundle";
  }

  /// A bundle with versions whose top has an executable of its own would be checked as one thing and started as
  /// another.
  void refuseSecondExecutable(const Places& outer, const Places& places, const std::string& name) const {
    if (outer.support == places.support) return;
    const std::string other = executableIn(outer, readInfo(outer.info), name);
    if (!other.empty() && !isSameFile(other, layout_.executable)) fail(status::kAmbiguousBundle);
  }

  CodeLayout layout_;
  TKSDictionary info_;
};

/// The bundle around a file, when the file is its main executable.
std::optional<CodeLayout> findBundleOf(const std::string& file) {
  const std::string folder(folderOf(file));
  std::string root;
  if (lastPathComponent(folder) == "MacOS" && lastPathComponent(folderOf(folder)) == "Contents") {
    root = folderOf(folderOf(folder));
  } else if (folder != "/" && (isThere(folder + "/Resources/Info.plist") || isThere(folder + "/Info.plist"))) {
    root = folder;
  }
  if (root.empty()) return std::nullopt;
  try {
    CodeLayout layout = BundleFinder(root).find();
    if (layout.executable == file) return layout;
  } catch (const Failure&) {
    // Then it is not the bundle's.
  }
  return std::nullopt;
}

CodeLayout findSingle(const std::string& path) {
  CodeLayout layout;
  layout.executable = path;
  layout.root = path;
  layout.file = File::open(path);
  layout.image = MachO::open(layout.file);
  layout.format = layout.image ? layout.image->format() : "generic";
  return layout;
}

}  // namespace

bool CodeLayout::isWithin(const std::string& place) const {
  const auto lies = [&place](const std::string& path) { return path == place || path.starts_with(place + "/"); };
  // A single file may turn out to be the executable of a bundle around it.
  if (executable == place) return true;
  return lies(executable) && (!isBundle() || lies(resolved(supportFolder))) &&
         (infoPlist.empty() || lies(resolved(infoPlist)));
}

CodeLayout findCode(const std::string& path) {
  struct stat found {};
  if (!posix::isPath(path) || !facts(path, found)) {
    if (errno == ENOENT) fail(status::kNotFound);
    failByErrno();
  }
  if (S_ISDIR(found.st_mode)) return BundleFinder(path).find();
  const std::string file = resolved(path);
  if (file.empty()) failByErrno();
  if (std::optional<CodeLayout> bundle = findBundleOf(file)) return *std::move(bundle);
  return findSingle(file);
}

}  // namespace tks::codesign
