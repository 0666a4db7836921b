#import <Foundation/Foundation.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/json.h"

namespace tks::platform {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr int kDeepest = 512;

/// Whether objects and arrays stay within the depth that every back end takes. A look at the brackets outside of texts
/// is enough: what else is wrong the reader tells.
bool isTooDeep(std::string_view text) {
  int depth = 0;
  bool inText = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inText) {
      if (c == '\\') ++i;
      if (c == '"') inText = false;
    } else if (c == '"') {
      inText = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kDeepest) return true;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return false;
}

TKSValue fail(TKSError* error, std::string_view reason) {
  if (error != nullptr) {
    *error = apple::formatError(NSPropertyListReadCorruptError, "The text is not in the JSON format", reason);
  }
  return {};
}

class AppleJson final : public Json {
 public:
  TKSValue parse(std::string_view text, TKSError* error) override {
    if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) text.remove_prefix(kByteOrderMark.size());
    if (isTooDeep(text)) return fail(error, "it is nested too deeply");
    // The system's reader would take it for a text in a wider encoding.
    if (text.find('\0') != std::string_view::npos) return fail(error, "it holds a NUL byte");
    @autoreleasepool {
      @try {
        NSError* failure = nil;
        NSData* data = [NSData dataWithBytes:text.data() length:text.size()];
        id object = [NSJSONSerialization JSONObjectWithData:data options:0 error:&failure];
        if (object != nil) return apple::fromObject(object);
        return fail(error, apple::reasonOf(failure, "it cannot be read"));
      } @catch (NSException* exception) {
        return fail(error, apple::fromString(exception.reason));
      }
    }
  }
};

}  // namespace

template <>
Json& backend<Json>() {
  static auto& json = *new AppleJson;
  return json;
}

}  // namespace tks::platform
