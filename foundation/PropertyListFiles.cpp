#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Logging.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/property_lists.h"

// Values of property-list files by key path.

namespace {

constexpr std::uint32_t kNewFilePermissions = 0666;

/// Makes an empty file unless something is there already.
bool createWhenMissing(std::string_view path) {
  if (tks::platform::files().exists(path)) return true;
  if (!tks::platform::files().createFile(path, kNewFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to create plist: %@, fail to write value to plist.",
                          tks::masked(path));
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to create plist: %@.", tks::masked(path));
  return true;
}

}  // namespace

TKSValue TKSUtilBase::getValueFormPlist(const TKSKeyPath& keyPath, std::string_view plistPath) {
  return getValueFormPlist(keyPath,
                           tks::platform::propertyLists().readDictionary(plistPath, nullptr).value_or(TKSDictionary()));
}

TKSValue TKSUtilBase::getValueFormPlist(const TKSKeyPath& keyPath, const std::string& plistPath) {
  return getValueFormPlist(keyPath, std::string_view(plistPath));
}

TKSValue TKSUtilBase::getValueFormPlist(const TKSKeyPath& keyPath, const char* plistPath) {
  return getValueFormPlist(keyPath, plistPath != nullptr ? std::string_view(plistPath) : std::string_view());
}

bool TKSUtilBase::setPlist(const TKSKeyPath& keyPath, const TKSValue& value, std::string_view plistPath) {
  if (keyPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No key path given, fail to set plist.");
    return false;
  }
  if (value.isNothing()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No value given, fail to set plist.");
    return false;
  }
  if (plistPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No plist patg given, fail to set plist");  // "patg": kept
    return false;
  }
  if (!createWhenMissing(plistPath)) return false;

  TKSDictionary dictionary =
      tks::platform::propertyLists().readDictionary(plistPath, nullptr).value_or(TKSDictionary());
  setValueForDict(keyPath, value, &dictionary);
  if (!tks::platform::propertyLists().writeDictionary(dictionary, plistPath, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to write value to plist: %@.", tks::masked(plistPath));
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to write value to plist: %@.", tks::masked(plistPath));
  return true;
}
