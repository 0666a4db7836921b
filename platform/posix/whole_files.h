#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::posix {

/// The whole content of a regular file (links followed) of at most `limit` bytes. Never waits for a FIFO or a device.
std::optional<TKSData> readWholeFile(std::string_view path, std::size_t limit, TKSError* error);

/// Replaces a file as a whole: a new file beside it is written, synced and renamed over it, then the folder is synced.
/// Keeps the permissions of an existing file; a link at the path is itself replaced; folders, FIFOs and devices are
/// not. Removes what writers of this file left that were ended half-way.
bool replaceFile(std::string_view path, std::span<const std::uint8_t> content, TKSError* error);

/// Whether this process may write a file of this size: writing beyond its limit would send it a signal that ends it.
/// Sets errno when not.
bool isWithinFileSizeLimit(std::uint64_t size);

/// Writes all bytes to a descriptor. False, and errno, when that fails.
bool writeAll(int descriptor, std::span<const std::uint8_t> content);

/// A hidden name in the folder of `path` that starts like it and that this process has not used before.
std::string hiddenSibling(std::string_view path);

/// Makes what was done to the names in the folder of `path` last through a power cut. False, and errno, when that
/// fails.
bool syncFolderOf(std::string_view path);

}  // namespace tks::posix
