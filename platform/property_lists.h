#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// Property lists, XML and binary. macOS: NSPropertyListSerialization. Linux: pugixml for XML, an own reader and writer
/// for the binary form. Bounded: files of at most 16 MiB, nesting of at most 512, regular files only; anything beyond
/// is an error, never a crash. Any thread.
class PropertyLists {
 public:
  enum class Format {
    xml,     ///< for people; cannot hold control characters and far dates
    binary,  ///< smaller, and holds every value
  };

  /// Whether a list was refused because it is beyond the bounds (EFBIG). It may be sound: what it holds must not be
  /// taken for nothing.
  static bool isBeyondBounds(const TKSError& error) { return error.domain == "NSPOSIXErrorDomain" && error.code == 27; }

  /// Whether reading a file showed that there is no list to lose: no file, or content that is no list. Every
  /// other error leaves open what the file holds, so that it must not be replaced.
  static bool holdsNoList(const TKSError& error) {
    constexpr std::int64_t kNoEntry = 2;
    constexpr std::int64_t kReadCorrupt = 3840;
    return (error.domain == "NSPOSIXErrorDomain" && error.code == kNoEntry) ||
           (error.domain == "NSCocoaErrorDomain" && error.code == kReadCorrupt);
  }

  virtual ~PropertyLists() = default;
  /// Reads a property list of either form. Nothing, and `error`, when it is malformed.
  virtual TKSValue parse(std::span<const std::uint8_t> content, TKSError* error) = 0;
  /// Writes one. Nothing, and `error`, for values that property lists do not have (null, nothing), and in XML form for
  /// texts with characters that XML does not have, and dates beyond the years 1 to 9999.
  virtual std::optional<TKSData> serialize(const TKSValue& value, Format format, TKSError* error) = 0;
  /// Reads a file whose top level is a dictionary.
  virtual std::optional<TKSDictionary> readDictionary(std::string_view path, TKSError* error) = 0;
  /// Replaces a file as a whole by the dictionary in XML form; in binary form when it holds a text or a date that XML
  /// does not have. A link at the path stays and what it leads to is replaced.
  virtual bool writeDictionary(const TKSDictionary& dictionary, std::string_view path, TKSError* error) = 0;
};

}  // namespace tks::platform
