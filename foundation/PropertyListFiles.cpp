#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/KeyPaths.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/property_lists.h"

// Values of property-list files by key path.

namespace {

using tks::platform::PropertyLists;

constexpr std::uint32_t kNewFilePermissions = 0666;

/// Makes an empty file unless something is there already.
bool createWhenMissing(std::string_view path) {
  // A link that leads nowhere is filled where it leads.
  if (tks::platform::files().exists(path) || tks::platform::files().isLink(path)) return true;
  if (!tks::platform::files().createFile(path, kNewFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to create plist: %@, fail to write value to plist.",
                          tks::masked(path));
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to create plist: %@.", tks::masked(path));
  return true;
}

/// The dictionary in a file; an empty one when it cannot be read.
TKSDictionary readOrEmpty(std::string_view path) noexcept {
  return tks::unlessOutOfMemory(
      [&] { return tks::platform::propertyLists().readDictionary(path, nullptr).value_or(TKSDictionary()); });
}

/// A file that was read and is no property list is replaced as if it were empty; one that could not be read is not.
bool writeAt(const TKSKeyPath& keyPath, const TKSValue& value, std::string_view path) {
  TKSError error;
  std::optional<TKSDictionary> dictionary = tks::platform::propertyLists().readDictionary(path, &error);
  if (!dictionary && !PropertyLists::holdsNoList(error)) return false;
  if (!dictionary) dictionary.emplace();
  tks::setAtKeyPath(keyPath, value, *dictionary);
  return tks::platform::propertyLists().writeDictionary(*dictionary, path, nullptr);
}

}  // namespace

TKSValue TKSUtilBase::getValueFormPlist(const TKSKeyPath& keyPath, std::string_view plistPath) {
  return getValueFormPlist(keyPath, readOrEmpty(plistPath));
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
    TKSILog::logWithLevel(TKSILogLevelError, "No plist patg given, fail to set plist");  // "patg": required, do not fix
    return false;
  }
  if (!tks::unlessOutOfMemory([&] { return createWhenMissing(plistPath); })) return false;
  if (!tks::unlessOutOfMemory([&] { return writeAt(keyPath, value, plistPath); })) {
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to write value to plist: %@.", tks::masked(plistPath));
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to write value to plist: %@.", tks::masked(plistPath));
  return true;
}
