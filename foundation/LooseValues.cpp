#include <algorithm>
#include <string>
#include <string_view>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

// Values whose type the sender does not care about.

bool TKSUtilBase::isCaseInsensitiveTrue(const TKSValue& value, std::initializer_list<std::string_view> candidates) {
  if (value.isNothing()) return false;
  if (!value.isText()) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Input first argument:%@ is NOT NSString(class:%@). Set NO as comparing result.",
                          tks::masked(value), value.className());
    return false;
  }
  const std::string_view text = value.text();
  return !text.empty() && std::any_of(candidates.begin(), candidates.end(), [text](std::string_view candidate) {
    return tks::platform::text().equalIgnoringCase(text, candidate);
  });
}

bool TKSUtilBase::canBeTransferedToNumFromString(const TKSValue& value) {
  if (value.isNothing()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Cannot be transfered to num because input is nil!");
    return false;
  }
  if (!value.isText()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Cannot be transfered to num because input is not string!");
    return false;
  }
  const std::string_view text = value.text();
  if (text.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Cannot be transfered to num because input is empty!");
    return false;
  }
  return std::all_of(text.begin(), text.end(), [](char byte) { return byte >= '0' && byte <= '9'; });
}

bool TKSUtilBase::isTrueValueFromId(const TKSValue& value) {
  if (value.isNumber()) return value.boolean();
  if (!value.isText()) return false;
  const std::string lower = tks::platform::text().lowerCase(value.text());
  return lower == "1" || lower == "true";
}
