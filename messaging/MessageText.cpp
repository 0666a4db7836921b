#include "messaging/MessageText.h"

#include <new>

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

std::string ReceivedText::description() const { return utf8::isValid(bytes_) ? std::string(bytes_) : "(null)"; }

}  // namespace tks::messaging
