#pragma once

#include <charconv>

#include <tksinterface/TKSValue.h>

namespace tks {

/// Writes an integer in decimal; returns the end of what was written. Any integer takes 20 characters at most.
inline char* writeInteger(char* begin, char* end, const TKSValue& value) noexcept {
  return value.isUnsignedInteger() ? std::to_chars(begin, end, value.unsignedInteger()).ptr
                                   : std::to_chars(begin, end, value.integer()).ptr;
}

}  // namespace tks
