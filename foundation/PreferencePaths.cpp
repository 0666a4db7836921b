#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/KeyPaths.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/platform.h"
#include "platform/preferences.h"

// Values of the process's preferences by key path.

namespace {

/// macOS never reports a failed write; where the platform does, the host hears of it.
bool store(const std::string& key, const TKSValue& value) {
  TKSError error;
  if (tks::platform::preferences().set(key, value, &error)) return true;
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Fail to store preference '%@': %@", tks::masked(key), tks::masked(reason));
  return false;
}

/// Stores a value inside of the dictionary under the first key; another kind of value there is never replaced.
bool storeInside(const TKSKeyPath& keyPath, const TKSValue& value) {
  const std::string& key = keyPath.front();
  const TKSValue existing = tks::platform::preferences().value(key);
  if (!existing.isNothing() && !existing.isDictionary()) {
    TKSILog::logWithLevel(TKSILogLevelError, "The value: %@ for Key: %@ in preference is not a dict",
                          tks::masked(existing), tks::masked(key));
    return false;
  }
  TKSDictionary dictionary = existing.dictionary();
  tks::setAtKeyPath(TKSKeyPath(keyPath.begin() + 1, keyPath.end()), value, dictionary);
  return store(key, dictionary);
}

}  // namespace

TKSValue TKSUtilBase::getPreference(const TKSKeyPath& keyPath) {
  if (keyPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No key path given, fail to get preference.");
    return {};
  }
  return getValueFormPlist(
      keyPath, tks::unlessOutOfMemory([] { return tks::platform::preferences().dictionaryRepresentation(); }));
}

bool TKSUtilBase::setPreference(const TKSKeyPath& keyPath, const TKSValue& value) {
  if (keyPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No key path given, fail to set preference.");
    return false;
  }
  if (value.isNothing()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No value given, fail to set preference.");
    return false;
  }
  return tks::unlessOutOfMemory(
      [&] { return keyPath.size() == 1 ? store(keyPath.front(), value) : storeInside(keyPath, value); });
}
