#pragma once

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace tks::fuzz {

/// Ends the program, and so reports the input, when what must hold does not.
inline void require(bool condition) {
  if (!condition) std::abort();
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Takes the text before the first line feed off an input that holds two; what is left is the second.
inline std::string_view takeFirst(std::string_view& input) {
  const std::size_t end = input.find('\n');
  const std::string_view first = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return first;
}

}  // namespace tks::fuzz
