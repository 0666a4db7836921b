#include <optional>
#include <string_view>
#include <vector>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Base64.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/json.h"
#include "platform/platform.h"

// Values of the client package parameter by key path.

namespace {

TKSValue packageParam(std::string_view base64JSON, const TKSKeyPath& keyPath) {
  if (base64JSON.empty() || keyPath.empty()) {
    const TKSValue path = TKSArray(std::vector<TKSValue>(keyPath.begin(), keyPath.end()));
    TKSILog::logWithLevel(TKSILogLevelWarning, "No JSONStr '%@' or no keyPath '%@'", tks::masked(base64JSON),
                          tks::masked(path));
    return {};
  }
  const std::optional<TKSData> json = tks::base64::decode(base64JSON);
  if (!json || json->empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "JSONStr '%@' is not base64ed!", tks::masked(base64JSON));
    return {};
  }
  const std::string_view text(reinterpret_cast<const char*>(json->data()), json->size());
  TKSValue value = tks::platform::json().parse(text, nullptr);
  for (const std::string& key : keyPath) value = TKSValue(value[key]);
  return value;
}

}  // namespace

TKSValue TKSUtilBase::getClientPackageParam(std::string_view base64JSON, const TKSKeyPath& keyPath) {
  return tks::unlessOutOfMemory([&] { return packageParam(base64JSON, keyPath); });
}
