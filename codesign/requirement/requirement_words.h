#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// How parts of requirements are written in their text form.

namespace tks::codesign::requirement {

/// In quotes; bytes that cannot stand in quotes as hexadecimal digits after 0x.
std::string quoted(std::string_view text);
/// As it is when it is a word, else in quotes.
std::string plainOrQuoted(std::string_view text);
/// H"hexadecimal"
std::string hashText(std::string_view hash);
/// "leaf", "root", or the number.
std::string slotText(std::int32_t slot);

}  // namespace tks::codesign::requirement
