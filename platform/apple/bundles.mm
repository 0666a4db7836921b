#import <Foundation/Foundation.h>

#include "BuildValues.h"
#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/bundles.h"
#include "platform/platform.h"
#include "platform/posix/paths.h"

/// A class of this very image, to find the bundle that it was loaded from.
@interface TKSBundleAnchor : NSObject
@end

@implementation TKSBundleAnchor
@end

namespace tks::platform {
namespace {

class AppleBundles final : public Bundles {
 public:
  std::optional<std::string> mainBundleIdentifier() override {
    @autoreleasepool {
      NSString* identifier = NSBundle.mainBundle.bundleIdentifier;
      if (identifier == nil) return std::nullopt;
      return apple::fromString(identifier);
    }
  }

  /// Of the framework. Where the library is linked into a host or a program, the bundle would be theirs.
  std::string libraryVersion() override {
    @autoreleasepool {
      NSBundle* bundle = [NSBundle bundleForClass:TKSBundleAnchor.class];
      if (![bundle.bundleIdentifier isEqualToString:@"com.tarvo.kovra.tksinterface"]) return TKS_PROJECT_VERSION;
      return apple::fromString([bundle objectForInfoDictionaryKey:@"CFBundleVersion"]);
    }
  }

  std::optional<Bundle> open(std::string_view path) override {
    @autoreleasepool {
      // Without a path the system would open the working folder.
      NSBundle* bundle = posix::isPath(path) ? [NSBundle bundleWithPath:apple::toPath(path)] : nil;
      if (bundle == nil) return std::nullopt;
      Bundle result;
      result.path = path;
      result.infoDictionary = informationOf(bundle, result.path);
      result.executablePath = executableOf(bundle, result);
      result.builtInPlugInsPath = apple::fromString(bundle.builtInPlugInsPath);
      return result;
    }
  }

 private:
  /// The bundle object lives as long as the process and keeps what it read first, but the bundle may have been replaced
  /// since: its own words are read anew. The localised ones, which hold no versions, come from the object.
  static TKSDictionary informationOf(NSBundle* bundle, const std::string& path) {
    TKSDictionary information;
    for (const char* place : {"/Contents/Info.plist", "/Info.plist", "/Resources/Info.plist"}) {
      const std::optional<TKSDictionary> found = propertyLists().readDictionary(path + place, nullptr);
      if (!found) continue;
      information = *found;
      break;
    }
    if (information.empty()) information = apple::fromDictionary(bundle.infoDictionary);
    for (const auto& [key, value] : apple::fromDictionary(bundle.localizedInfoDictionary)) information.set(key, value);
    return information;
  }

  static std::string executableOf(NSBundle* bundle, const Bundle& result) {
    const TKSValue& name = result.infoDictionary["CFBundleExecutable"];
    const std::string declared = result.path + "/Contents/MacOS/" + (name.isText() ? std::string(name.text()) : "");
    if (name.isText() && isFile(declared)) return declared;
    const std::string found = apple::fromString(bundle.executablePath);
    return isFile(found) ? found : std::string();
  }

  static bool isFile(const std::string& path) { return files().exists(path) && !files().isDirectory(path); }
};

}  // namespace

template <>
Bundles& backend<Bundles>() {
  static auto& bundles = *new AppleBundles;
  return bundles;
}

}  // namespace tks::platform
