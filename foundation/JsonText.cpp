#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/JsonWriter.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/platform.h"

// JSON texts and the values they hold.

namespace {

/// What the reader and the writer throw is the caller's error, no exception.
void storeException(TKSError* error, TKSErrorReason reason, std::string_view text) {
  if (error != nullptr) *error = tks::makeError(reason, TKSUtilErrorDomain, 0, std::string(text));
}

}  // namespace

TKSValue TKSUtilBase::JSONStringToObject(std::string_view text, TKSError* error) {
  try {
    if (!text.empty()) return tks::platform::json().parse(text, error);
    storeException(error, TKSErrorReason::invalidArgument, "JSON text is missing");
  } catch (const std::bad_alloc&) {
    tks::setOutOfMemory(error);
  } catch (const std::exception& exception) {
    storeException(error, TKSErrorReason::badMessage, exception.what());
  }
  return {};
}

std::optional<std::string> TKSUtilBase::objectToJSONString(const TKSValue& object, TKSError* error) {
  try {
    TKSError reason;
    std::optional<std::string> text = tks::json::write(object, &reason);
    if (!text) storeException(error, reason.reason, reason.localizedDescription);
    return text;
  } catch (const std::bad_alloc&) {
    tks::setOutOfMemory(error);
  } catch (const std::exception& exception) {
    storeException(error, TKSErrorReason::invalidArgument, exception.what());
  }
  return std::nullopt;
}
