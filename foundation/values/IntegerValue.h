#pragma once

#include <cstdint>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks {

/// The integer value of a text: leading blanks, a sign and digits are read; saturating at 32 bits. 0 for anything else.
std::int32_t integerValue(std::string_view text);
inline std::int32_t integerValue(const char* text) { return integerValue(std::string_view(text)); }

/// The same for a value: numbers convert, saturating, reals cut towards zero.
std::int32_t integerValue(const TKSValue& value);

}  // namespace tks
