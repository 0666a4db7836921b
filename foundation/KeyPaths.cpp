#include "foundation/KeyPaths.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/OutOfMemory.h"

// Values of nested dictionaries by key path, in memory. What stands in files, preferences and elsewhere goes through
// here.

namespace {

/// What stands at one level of a key path, as a dictionary to go on with; an empty one, and a warning, when nothing or
/// something else stands there.
TKSDictionary dictionaryToReplace(const TKSValue& existing, const std::string& key) {
  if (existing.isDictionary()) return existing.dictionary();
  TKSILog::logWithLevel(
      TKSILogLevelWarning,
      "No intermediate dict for key '%@', or existing value type conflict '%@', create and replace it.",
      tks::masked(key), tks::masked(existing));
  return {};
}

}  // namespace

TKSValue TKSUtilBase::getValueFormPlist(const TKSKeyPath& keyPath, const TKSDictionary& plistDict) {
  if (keyPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Nil/empty key path, fail to get preference.");
    return {};
  }
  if (plistDict.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Nil/empty plistDict, fail to get preference.");
    return {};
  }
  if (keyPath.size() == 1) return plistDict[keyPath.front()];

  const TKSValue* value = plistDict.find(keyPath.front());
  for (std::size_t i = 0; i < keyPath.size(); ++i) {
    if (i != 0) value = &(*value)[keyPath[i]];
    if (value == nullptr || value->isNothing()) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "No value for key: %@", tks::masked(keyPath[i]));
      return {};
    }
    if (i + 1 < keyPath.size() && !value->isDictionary()) {
      TKSILog::logWithLevel(TKSILogLevelError, "Unexpected value (type), key '%@', value '%@'", tks::masked(keyPath[i]),
                            tks::masked(*value));
      return {};
    }
  }
  return *value;
}

TKSDictionary TKSUtilBase::setValueForDict(const TKSKeyPath& keyPath, const TKSValue& value, TKSDictionary* plistDict) {
  TKSDictionary made;
  TKSDictionary& target = plistDict != nullptr ? *plistDict : made;
  if (keyPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No key path given, fail to set plist.");
    return target;
  }
  if (value.isNothing()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No value given, fail to set plist.");
    return target;
  }
  tks::unlessOutOfMemory([&] {
    tks::setAtKeyPath(keyPath, value, target);
    return true;
  });
  return target;
}

void tks::setAtKeyPath(const TKSKeyPath& keyPath, const TKSValue& value, TKSDictionary& dictionary) {
  // The dictionaries on the way down, outermost first; then they are stored into each other on the way back.
  std::vector<TKSDictionary> levels;
  levels.reserve(keyPath.size() - 1);
  for (std::size_t i = 0; i + 1 < keyPath.size(); ++i) {
    const TKSDictionary& parent = levels.empty() ? dictionary : levels.back();
    levels.push_back(dictionaryToReplace(parent[keyPath[i]], keyPath[i]));
  }
  TKSValue changed = value;
  for (std::size_t i = keyPath.size() - 1; i > 0; --i) {
    levels[i - 1].set(keyPath[i], std::move(changed));
    changed = std::move(levels[i - 1]);
  }
  dictionary.set(keyPath.front(), std::move(changed));
}
