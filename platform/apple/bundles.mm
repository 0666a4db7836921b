#import <Foundation/Foundation.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/bundles.h"

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

  std::string libraryVersion() override {
    @autoreleasepool {
      NSBundle* bundle = [NSBundle bundleForClass:TKSBundleAnchor.class];
      return apple::fromString([bundle objectForInfoDictionaryKey:(__bridge NSString*)kCFBundleVersionKey]);
    }
  }

  std::optional<Bundle> open(std::string_view path) override {
    @autoreleasepool {
      NSBundle* bundle = [NSBundle bundleWithPath:apple::toPath(path)];
      if (bundle == nil) return std::nullopt;
      Bundle result;
      result.path = path;
      result.executablePath = apple::fromString(bundle.executablePath);
      result.builtInPlugInsPath = apple::fromString(bundle.builtInPlugInsPath);
      NSMutableDictionary* information = [NSMutableDictionary dictionaryWithDictionary:bundle.infoDictionary];
      [information addEntriesFromDictionary:bundle.localizedInfoDictionary];
      result.infoDictionary = apple::fromDictionary(information);
      return result;
    }
  }
};

}  // namespace

template <>
Bundles& backend<Bundles>() {
  static auto& bundles = *new AppleBundles;
  return bundles;
}

}  // namespace tks::platform
