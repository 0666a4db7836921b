#pragma once

#include <tksinterface/TKSValue.h>

#include "codesign/resources/property_list_handler.h"

namespace tks::codesign {

/// Tells a handler the parts of a value that is in memory, as if it were read from a list.
void replay(const TKSValue& whole, PropertyListHandler& handler);

}  // namespace tks::codesign
