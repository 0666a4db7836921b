#pragma once

#include <cstddef>

#include "foundation/values/PropertyListBounds.h"

namespace tks::platform::apple {

inline constexpr std::size_t kLargestPropertyList = property_list::kLargestSize;
using property_list::kDeepestNesting;
/// Values that are written in one list, each as often as it stands there.
inline constexpr std::size_t kMostObjects = 4u * 1024 * 1024;

/// What a look at a list came to.
enum class PropertyListLook {
  sound,           ///< within the bounds; the system's reader may have it
  noPropertyList,  ///< no list of any form
  beyondBounds,    ///< it may be sound, but it is too large or too deep
};

}  // namespace tks::platform::apple
