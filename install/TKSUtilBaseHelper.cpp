#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>
#include <tksinterface/TKSUtilBaseHelper.h>

#include <mutex>

#include "foundation/logging/Logging.h"

namespace {

/// One lock for all fingerprints. Computing one spawns tools and takes seconds; never under the lock.
struct Fingerprints {
  std::mutex mutex;
  std::map<std::string, std::string> byPath;
};

Fingerprints& fingerprints() {
  static auto& all = *new Fingerprints;
  return all;
}

}  // namespace

TKSUtilBaseHelper& TKSUtilBaseHelper::sharedInstance() {
  static TKSUtilBaseHelper instance;
  return instance;
}

std::map<std::string, std::string> TKSUtilBaseHelper::appHashDict() const {
  const std::scoped_lock lock(fingerprints().mutex);
  return fingerprints().byPath;
}

bool TKSUtilBaseHelper::hasHashValueWithAppPath(std::string_view appPath) {
  const std::scoped_lock lock(fingerprints().mutex);
  return fingerprints().byPath.contains(std::string(appPath));
}

void TKSUtilBaseHelper::setHashValueOfAppPath(std::string_view appPath) {
  if (appPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Nil/empty appPath! Fail to set hash value.");
    return;
  }
  const std::string hashValue = TKSUtilBase::hashFilePropertiesWithAppPath(appPath).value_or("");
  if (hashValue.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Nil/empty hashValue! Fail to set hash value.");
    return;
  }
  {
    const std::scoped_lock lock(fingerprints().mutex);
    fingerprints().byPath.insert_or_assign(std::string(appPath), hashValue);
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to record hashValue:%@ for healthy app: %@.", hashValue,
                        tks::masked(appPath));
}

std::optional<std::string> TKSUtilBaseHelper::getHashValueOfAppPath(std::string_view appPath) {
  if (appPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Nil/empty appPath! Fail to get hash value.");
    return std::nullopt;
  }
  const std::scoped_lock lock(fingerprints().mutex);
  const auto found = fingerprints().byPath.find(std::string(appPath));
  return found == fingerprints().byPath.end() ? std::nullopt : std::optional(found->second);
}
