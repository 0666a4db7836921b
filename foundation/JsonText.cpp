#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/JsonWriter.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/platform.h"

// JSON texts and the values they hold.

namespace {

/// What the reader and the writer throw is the caller's error, no exception.
void storeException(TKSError* error, std::string_view reason) {
  if (error != nullptr) *error = {std::string(TKSUtilErrorDomain), 0, std::string(reason)};
}

}  // namespace

TKSValue TKSUtilBase::JSONStringToObject(std::string_view text, TKSError* error) {
  try {
    if (!text.empty()) return tks::platform::json().parse(text, error);
    storeException(error, "JSON text is missing");
  } catch (const std::bad_alloc&) {
    tks::setOutOfMemory(error);
  } catch (const std::exception& exception) {
    storeException(error, exception.what());
  }
  return {};
}

std::optional<std::string> TKSUtilBase::objectToJSONString(const TKSValue& object, TKSError* error) {
  try {
    TKSError reason;
    std::optional<std::string> text = tks::json::write(object, &reason);
    if (!text) storeException(error, reason.localizedDescription);
    return text;
  } catch (const std::bad_alloc&) {
    tks::setOutOfMemory(error);
  } catch (const std::exception& exception) {
    storeException(error, exception.what());
  }
  return std::nullopt;
}
