#pragma once

#include <tksinterface/TKSValue.h>

namespace tks {

/// Stores a value under a key path, which is not empty, in a dictionary. A value in the way is replaced by
/// dictionaries, with a warning; all that stands beside the path stays. Throws std::bad_alloc and changes nothing then.
void setAtKeyPath(const TKSKeyPath& keyPath, const TKSValue& value, TKSDictionary& dictionary);

}  // namespace tks
