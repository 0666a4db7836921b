#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// Reading of JSON. macOS: NSJSONSerialization. Linux: simdjson. Writing is foundation/JsonWriter.h on every system.
class Json {
 public:
  virtual ~Json() = default;
  /// Reads a text whose top level is an object or an array. Nothing, and `error`, for anything else. A byte-order mark
  /// at the start is skipped; nesting beyond 512 is an error; of equal member names the last one counts; integers
  /// beyond -2^63 to 2^64-1 become reals; text that is not UTF-8 and lone surrogate escapes are errors; a NUL escape is
  /// a NUL byte in the text. Any thread.
  virtual TKSValue parse(std::string_view text, TKSError* error) = 0;
};

}  // namespace tks::platform
