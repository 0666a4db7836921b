#pragma once

#include <string>
#include <string_view>

#include "foundation/values/PropertyListBounds.h"

namespace tks::formats::property_list {

using tks::property_list::kDeepestNesting;
using tks::property_list::kLargestSize;
using tks::property_list::largestExpansion;

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
