#include "messaging/MessageText.h"

#include <new>

#include "foundation/JsonWriter.h"
#include "foundation/OutOfMemory.h"
#include "foundation/Utf8.h"

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
