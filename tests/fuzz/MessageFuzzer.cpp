// Any bytes as the text of a message: it is refused with an error and the record stays as it was, or what was read is
// written and reads back the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessage.h>

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

bool sameRecord(const TKSMessage& left, const TKSMessage& right) {
  return left.messageType == right.messageType && left.token == right.token && left.domain == right.domain &&
         left.message == right.message;
}

TKSMessage earlierRecord() {
  TKSMessage message;
  message.messageType = "earlier";
  message.token = "T";
  message.message = "body";
  return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TKSMessage message = earlierRecord();
  TKSError error;
  if (!message.parseJSONString({reinterpret_cast<const char*>(data), size}, &error)) {
    require(error.domain == commonErrorDomain && error.code == 0 && !error.localizedDescription.empty());
    require(sameRecord(message, earlierRecord()));
    return 0;
  }
  require(message.messageType.has_value());
  require(message.message.isText() || message.message.isDictionary());

  const std::optional<std::string> text = message.dumpJSONString(&error);
  require(text.has_value());
  TKSMessage back;
  require(back.parseJSONString(*text));
  // A text that holds an object became one when it was read, so that reading again finds nothing new.
  require(sameRecord(back, message));
  require(back.dumpJSONString() == text);
  return 0;
}
