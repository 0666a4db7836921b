#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

// AppleDouble side-cars. All numbers are big-endian.
//
//   header  := magic 0x00051607, version 0x00020000, 16 bytes filler, u16 number of entries (1 to 15)
//   entry   := u32 id, u32 offset, u32 length          id 9: Finder info and attributes, id 2: resource fork
//   id 9    := 32 bytes Finder info, 2 bytes padding [ "ATTR", u32 tag, u32 total size, u32 data start, u32 data
//   length,
//              12 bytes reserved, u16 flags, u16 number of attributes (at most 256), records ] data
//   record  := u32 offset in the file, u32 length, u16 flags, u8 length of the name with its NUL, name; padded to 4
//   bytes

namespace tks::formats {

/// What a side-car says of the item beside it.
struct AppleDouble {
  /// Name to data; Finder info and resource fork under "com.apple.FinderInfo" and "com.apple.ResourceFork".
  TKSDictionary attributes;
};

/// Reads a side-car; nothing when it breaks a rule of the format.
std::optional<AppleDouble> parseAppleDouble(std::span<const std::uint8_t> content);

/// Writes a side-car with these attributes; nothing when they do not fit the format.
std::optional<TKSData> serializeAppleDouble(const AppleDouble& sideCar);

/// What the name of a side-car begins with; the item's own name follows.
inline constexpr std::string_view kSideCarPrefix = "._";

/// Path of the side-car of an item; nothing for a path without a last name.
std::optional<std::string> sideCarPath(std::string_view path);

/// Path of the item that a side-car would belong to by its name; nothing for any other name.
std::optional<std::string> itemOfSideCar(std::string_view path);

}  // namespace tks::formats
