#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// What reading and writing the binary form go by; property_list_binary.h draws it.

namespace tks::formats::property_list {

inline constexpr std::string_view kMagic = "bplist00";
inline constexpr std::size_t kTrailerSize = 32;
inline constexpr double kSecondsTo2001 = 978307200;
/// The high half of the first byte of an object.
enum Marker : std::uint8_t {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kIdentifier = 0x8,
  kArray = 0xA,
  kOrderedSet = 0xB,
  kSet = 0xC,
  kDictionary = 0xD,
};

}  // namespace tks::formats::property_list
