#pragma once

#include "codesign/container/byte_source.h"

namespace tks::codesign {

/// Whether the elements of an encoding nest as their lengths and tags say: nothing reaches beyond what it stands in,
/// sequences and sets hold elements, numbers, identifiers and the like hold none. OpenSSL's decoder reads over a tag
/// that says otherwise. What follows the first element does not matter. Lengths may be indefinite.
bool isWellNested(Bytes encoded);

}  // namespace tks::codesign
