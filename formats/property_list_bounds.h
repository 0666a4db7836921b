#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tks::formats::property_list {

/// Bounds of every property list, read or written, in either form.
inline constexpr std::size_t kLargestSize = 16u * 1024 * 1024;
inline constexpr std::size_t kDeepestNesting = 512;

/// What is wrong with a list or with a value that cannot become one, in words. The first thing that is found counts.
struct Problem {
  std::string text;
  /// It may be sound, but it is too large or too deep.
  bool beyondBounds = false;

  bool say(std::string_view what) {
    if (text.empty()) text = what;
    return false;
  }
  bool sayBeyondBounds(std::string_view what) {
    beyondBounds = beyondBounds || text.empty();
    return say(what);
  }
};

}  // namespace tks::formats::property_list
