#pragma once

#include <ostream>

#include <tksinterface/TKSValue.h>

// How failed expectations show values.

inline void PrintTo(const TKSValue& value, std::ostream* out) {
  *out << value.className() << ' ' << value.description();
}
inline void PrintTo(const TKSArray& array, std::ostream* out) { *out << array.description(); }
inline void PrintTo(const TKSDictionary& dictionary, std::ostream* out) { *out << dictionary.description(); }
