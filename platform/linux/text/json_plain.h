#pragma once

#include <cstddef>
#include <string_view>

#include <tksinterface/TKSValue.h>

// Texts of JSON as most messages are: short, in one line, and nothing but ASCII without escapes.

namespace tks::gnulinux {

/// Longer texts are read faster by way of their tokens.
inline constexpr std::size_t kLargestPlainJson = 224;

/// Reads such a text in one pass, without looking for its tokens first: for so few bytes that takes longer than the
/// rest. False, and no value, for everything else: for a longer text, for one with line breaks, escapes or bytes beyond
/// ASCII, and for one that is not in order. `readJsonDocument` reads and judges those; of the texts that are read here
/// it would make the same. Keeps no memory. Throws std::bad_alloc.
bool readPlainJson(std::string_view text, TKSValue& value);

}  // namespace tks::gnulinux
