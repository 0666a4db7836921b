#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

// Extended attributes under their macOS names. In the file system they carry the prefix "user.", the only one that
// Linux leaves to users; a side-car in AppleDouble form ("._name" beside "name") is read as well, since archives bring
// such files and since many volumes hold no more than 4 KiB of attributes a file. A volume without attributes has none.
// Links are never followed; a link itself cannot have attributes on Linux.

namespace tks::posix {

/// All attributes of an item, name to data. What the item has itself wins over the side-car.
std::optional<TKSDictionary> readExtendedAttributes(const std::string& path, TKSError* error);

/// One attribute of an item, or nothing.
std::optional<TKSData> readExtendedAttribute(const std::string& path, std::string_view name);

/// Sets an attribute of the item itself.
bool setExtendedAttribute(const std::string& path, std::string_view name, std::span<const std::uint8_t> content,
                          TKSError* error);

/// Removes an attribute from the item, from the side-car as well: 0, or -1 and errno when it had none or on failure.
int removeExtendedAttribute(const std::string& path, std::string_view name);

/// Gives an open file the attributes of another one. False, and errno, when that fails; a volume that has none is no
/// failure.
bool copyExtendedAttributes(int from, int to);

/// Whether the file at the path is the AppleDouble side-car of an item that exists beside it.
bool isSideCar(const std::string& path);

}  // namespace tks::posix
