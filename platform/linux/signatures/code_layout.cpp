#include "platform/linux/signatures/code_layout.h"

#include <dirent.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/platform.h"

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

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }
std::string_view nameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

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
  if (name.empty()) name = bundleName.substr(0, bundleName.rfind('.'));
  if (!isPlainName(name)) return {};
  const std::string path = places.executables + "/" + std::string(name);
  return isThere(path) && !isFolder(path) ? resolved(path) : std::string();
}

/// What may stand at the top of a bundle whose content is sealed as a whole.
Status rootIssue(const std::string& root, std::initializer_list<std::string_view> allowed, Status issue) {
  DIR* folder = ::opendir(root.c_str());
  if (folder == nullptr) return issue;
  Status result = status::kGood;
  while (const dirent* entry = ::readdir(folder)) {
    const std::string_view name = entry->d_name;
    bool known = name == "." || name == "..";
    for (const std::string_view other : allowed) known |= name == other;
    if (!known) result = issue;
  }
  ::closedir(folder);
  return result;
}

/// At the top of a framework: its versions, and links into them.
Status frameworkRootIssue(const std::string& root) {
  DIR* folder = ::opendir(root.c_str());
  if (folder == nullptr) return status::kUnsealedFrameworkRoot;
  Status result = status::kGood;
  while (const dirent* entry = ::readdir(folder)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == ".." || name == "Versions" || name == ".DS_Store") continue;
    struct stat found {};
    const std::string path = root + "/" + std::string(name);
    const bool isLink = ::lstat(path.c_str(), &found) == 0 && S_ISLNK(found.st_mode);
    if (!isLink || !resolved(path).starts_with(root + "/Versions/")) result = status::kUnsealedFrameworkRoot;
  }
  ::closedir(folder);
  return result;
}

class BundleFinder {
 public:
  explicit BundleFinder(const std::string& path) {
    layout_.root = resolved(path);
    if (layout_.root.empty()) failByErrno();
  }

  CodeLayout find() {
    const bool isVersion = nameOf(folderOf(layout_.root)) == "Versions";
    const Places outer = placesOf(layout_.root, isVersion);
    Places places = outer;
    std::string name(nameOf(layout_.root));
    if (outer.support != layout_.root) {
      layout_.strictIssue =
          rootIssue(layout_.root, {"Contents", ".LSOverride", ".DS_Store", "Icon\r", ".SoftwareDepot.tracking"},
                    status::kUnsealedRoot);
    } else if (isThere(layout_.root + "/Versions/Current")) {
      places = placesOf(enterVersion(), true);
      layout_.strictIssue = frameworkRootIssue(layout_.root);
    } else if (isVersion) {
      name = nameOf(folderOf(folderOf(layout_.root)));
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
  const std::string folder = folderOf(file);
  std::string root;
  if (nameOf(folder) == "MacOS" && nameOf(folderOf(folder)) == "Contents") {
    root = folderOf(folderOf(folder));
  } else if (isThere(folder + "/Resources/Info.plist") || isThere(folder + "/Info.plist")) {
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

CodeLayout findCode(const std::string& path) {
  struct stat found {};
  if (!facts(path, found)) {
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
