#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "foundation/values/PropertyListBounds.h"

namespace tks::platform::apple {

inline constexpr std::size_t kLargestPropertyList = property_list::kLargestSize;
using property_list::kDeepestNesting;
/// Values that are written in one list, each as often as it stands there.
inline constexpr std::size_t kMostObjects = 4u * 1024 * 1024;

enum class PropertyListLook { sound, noPropertyList, beyondBounds };

/// A look at a property list before the system's reader gets it, which goes down into it by recursion and follows every
/// reference of the binary form. Other forms than XML and binary are none. What is wrong within the bounds is the
/// reader's to find.
PropertyListLook lookAtPropertyList(std::span<const std::uint8_t> content);

}  // namespace tks::platform::apple
