#pragma once

#include <cstdint>
#include <span>

#include "platform/apple/property_list_look.h"

namespace tks::platform::apple {

/// The look at a list in XML. Besides going down however deep, the system's reader takes three things that are wrong
/// for something else (CFPropertyList.c): a reference to NUL for that character, a key outside of dictionaries for a
/// text, and a day or time that the calendar does not have for a later one. Such a list is none.
PropertyListLook lookAtXml(std::span<const std::uint8_t> content);

}  // namespace tks::platform::apple
