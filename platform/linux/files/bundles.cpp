#include "platform/bundles.h"
#include "foundation/values/FilePaths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "BuildValues.h"
#include "platform/linux/processes/process_table.h"
#include "platform/platform.h"

namespace tks::platform {
namespace {

/// Where the parts of a bundle stand, relative to the bundle, in each layout that is known.
struct Layout {
  std::string_view infoPlist;
  std::string_view executables;
  std::string_view plugIns;
};

constexpr std::array<Layout, 4> kLayouts = {{
    {"/Contents/Info.plist", "/Contents/MacOS/", "/Contents/PlugIns"},
    {"/Versions/Current/Resources/Info.plist", "/Versions/Current/", "/Versions/Current/PlugIns"},
    {"/Resources/Info.plist", "/", "/PlugIns"},
    {"/Info.plist", "/", "/PlugIns"},
}};

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// The layout whose Info.plist is there; without any, the one whose folder for executables is there.
const Layout& layoutOf(const std::string& bundlePath) {
  for (const Layout& layout : kLayouts) {
    if (isFile(bundlePath + std::string(layout.infoPlist))) return layout;
  }
  return isDirectory(bundlePath + "/Contents") ? kLayouts.front() : kLayouts.back();
}

/// The executable that the information names, else one of the bundle's own name. It is one name, not a path.
std::string executableOf(const std::string& bundlePath, const Layout& layout, const TKSDictionary& information) {
  std::string_view name = information["CFBundleExecutable"].text();
  if (name.empty()) name = withoutExtension(lastPathComponent(bundlePath));
  if (name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) return {};
  std::string path = bundlePath + std::string(layout.executables) + std::string(name);
  return isFile(path) ? path : std::string();
}

/// The bundle around an executable: X of X/Contents/MacOS/executable, else its folder when an Info.plist is beside it.
std::string bundleAround(std::string_view executable) {
  const std::string_view folder = folderOf(executable);
  constexpr std::string_view kInside = "/Contents/MacOS";
  if (folder.size() > kInside.size() && folder.ends_with(kInside)) {
    return std::string(folder.substr(0, folder.size() - kInside.size()));
  }
  return isFile(std::string(folder) + "/Info.plist") ? std::string(folder) : std::string();
}

class LinuxBundles final : public Bundles {
 public:
  std::optional<std::string> mainBundleIdentifier() override {
    // The bundle of a running program does not change its name, even when an update replaces it on disk.
    static const std::optional<std::string> identifier = findMainBundleIdentifier();
    return identifier;
  }

  std::string libraryVersion() override { return TKS_PROJECT_VERSION; }

  std::optional<Bundle> open(std::string_view path) override {
    Bundle bundle;
    bundle.path = withoutClosingSlashes(path);
    if (!isPath(path) || !isDirectory(bundle.path)) return std::nullopt;
    const Layout& layout = layoutOf(bundle.path);
    const std::string infoPlist = bundle.path + std::string(layout.infoPlist);
    bundle.infoDictionary = propertyLists().readDictionary(infoPlist, nullptr).value_or(TKSDictionary());
    bundle.executablePath = executableOf(bundle.path, layout, bundle.infoDictionary);
    bundle.builtInPlugInsPath = bundle.path + std::string(layout.plugIns);
    return bundle;
  }

 private:
  std::optional<std::string> findMainBundleIdentifier() {
    const std::optional<Bundle> bundle = open(bundleAround(gnulinux::executablePath(::getpid()).value_or("")));
    if (!bundle) return std::nullopt;
    const std::string_view identifier = bundle->infoDictionary["CFBundleIdentifier"].text();
    if (identifier.empty()) return std::nullopt;
    return std::string(identifier);
  }
};

}  // namespace

template <>
Bundles& backend<Bundles>() {
  static auto& bundles = *new LinuxBundles;
  return bundles;
}

}  // namespace tks::platform
