#pragma once

#include <cstdint>
#include <span>

#include "platform/apple/property_list_look.h"

namespace tks::platform::apple {

/// A look at a property list before the system's reader gets it, which goes down into it by recursion and follows every
/// reference of the binary form. Other forms than XML and binary are none. What is wrong within the bounds is the
/// reader's to find.
PropertyListLook lookAtPropertyList(std::span<const std::uint8_t> content);

}  // namespace tks::platform::apple
