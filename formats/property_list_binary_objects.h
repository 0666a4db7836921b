#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// What reading and writing the binary form go by; property_list_binary.h draws it.

namespace tks::formats::property_list {

/// How every list begins; the last two digits are the version.
inline constexpr std::string_view kMagic = "bplist00";
/// Bytes at the end that say where everything is.
inline constexpr std::size_t kTrailerSize = 32;
/// From 1970, from where TKSDate counts, to 2001, from where dates in lists count.
inline constexpr double kSecondsTo2001 = 978307200;

/// The high half of the first byte of an object.
enum Marker : std::uint8_t {
  kSimple = 0x0,      ///< null, false, true
  kInteger = 0x1,     ///< a whole number
  kReal = 0x2,        ///< any other number
  kDate = 0x3,        ///< seconds since 2001
  kData = 0x4,        ///< bytes
  kAscii = 0x5,       ///< text; some writers put UTF-8 here
  kUtf16 = 0x6,       ///< text beyond ASCII
  kIdentifier = 0x8,  ///< of an archiver of objects
  kArray = 0xA,       ///< references to values
  kOrderedSet = 0xB,  ///< this and the next are read as arrays
  kSet = 0xC,         ///< without an order of its own
  kDictionary = 0xD,  ///< references to keys, then to values
};

}  // namespace tks::formats::property_list
