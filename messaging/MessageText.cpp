#include "messaging/MessageText.h"

#include <new>

#include <tksinterface/TKSILog.h>

#include "foundation/Options.h"
#include "foundation/values/JsonWriter.h"
#include "foundation/values/OutOfMemory.h"
#include "foundation/values/Utf8.h"

namespace tks::messaging {

bool appendText(const TKSMessage& message, std::string& out, TKSError* error) {
  try {
    return json::append(message.dumpDictionary(), out, error);
  } catch (const std::bad_alloc&) {
    setOutOfMemory(error);
    return false;
  }
}

std::string asReported(std::string_view text) {
  return options().maskReceived ? TKSILog::removeSensitiveInformation(text) : std::string(text);
}

std::string ReceivedText::description() const { return utf8::isValid(bytes_) ? asReported(bytes_) : "(null)"; }

std::string ReceivedText::inErrors() const {
  return options().noMessagesInErrors ? formatted("(%lu bytes)", bytes_.size()) : description();
}

}  // namespace tks::messaging
