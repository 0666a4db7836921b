#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/bundles.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/property_lists.h"

// What application bundles say of themselves.

namespace {

constexpr std::string_view kInfoPlist = "/Contents/Info.plist";
constexpr std::string_view kBundleVersion = "CFBundleVersion";

/// From the information file where it usually stands, else from what the system takes for a bundle.
TKSValue valueInBundle(std::string_view appPath, std::string_view key) {
  if (!tks::platform::files().exists(appPath)) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Fail to get value of key:%@. App in path:%@ doesn't exist.",
                          tks::masked(key), tks::masked(appPath));
    return {};
  }
  const std::string infoPlist = std::string(appPath).append(kInfoPlist);
  if (tks::platform::files().exists(infoPlist)) {
    const TKSDictionary information =
        tks::platform::propertyLists().readDictionary(infoPlist, nullptr).value_or(TKSDictionary());
    if (const TKSValue* value = information.find(key)) return *value;
  } else {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Fail to get value of key:%@. Info.plist in appPath:%@ doesn't exist.",
                          tks::masked(key), tks::masked(appPath));
  }
  const std::optional<tks::platform::Bundle> bundle = tks::platform::bundles().open(appPath);
  return bundle ? bundle->infoDictionary[key] : TKSValue();
}

}  // namespace

TKSValue TKSUtilBase::getValueInInfoPlist(std::string_view appPath, std::string_view key) {
  if (appPath.empty() || key.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "AppPath or key is nil or empty.");
    return {};
  }
  return tks::unlessOutOfMemory([&] { return valueInBundle(appPath, key); });
}

TKSValue TKSUtilBase::getBundleVersion(std::string_view appPath) {
  return getValueInInfoPlist(appPath, kBundleVersion);
}
