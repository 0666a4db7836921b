#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSMessage.h>

namespace tks::messaging {

/// Appends the compact JSON text of a message. False, and `error`, when the body cannot be written as JSON; what was
/// appended until then is taken back.
bool appendText(const TKSMessage& message, std::string& out, TKSError* error);

/// A text of the launcher as lines and errors report it: masked where the options want it.
std::string asReported(std::string_view text);

/// A received text as lines and messages show it: "(null)" unless it is UTF-8, masked where the options want it. Looks
/// at the bytes only when a line is made. Holds a view, so use it as an argument of a format only.
class ReceivedText {
 public:
  explicit ReceivedText(std::string_view bytes) : bytes_(bytes) {}
  std::string description() const;
  /// The same for an error: its length in place of the text where the options want that.
  std::string inErrors() const;

 private:
  std::string_view bytes_;
};

}  // namespace tks::messaging
