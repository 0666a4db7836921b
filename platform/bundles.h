#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// What a bundle on disk says of itself.
struct Bundle {
  std::string path;
  /// Absolute path of the executable that the bundle declares, when there is one.
  std::string executablePath;
  /// Folder of the built-in plug-ins; it need not exist.
  std::string builtInPlugInsPath;
  /// Its information dictionary, with the localised values where the system has them.
  TKSDictionary infoDictionary;
};

/// Bundles. macOS: NSBundle. Linux: folders with Contents/Info.plist, or Info.plist and Resources; the main bundle is
/// the folder X of X.app/Contents/MacOS/executable around the running executable, or the executable's own folder when
/// an Info.plist lies beside it. Any thread.
class Bundles {
 public:
  virtual ~Bundles() = default;
  /// Identifier of the main bundle; nothing for a program outside of a bundle.
  virtual std::optional<std::string> mainBundleIdentifier() = 0;
  /// CFBundleVersion of this library's own bundle.
  virtual std::string libraryVersion() = 0;
  /// The bundle at a path, or nothing when no bundle can be opened there. Any existing folder is a bundle.
  virtual std::optional<Bundle> open(std::string_view path) = 0;
};

}  // namespace tks::platform
