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
/// Keeps the permissions of an existing file; a link at the path is itself replaced.
bool replaceFile(std::string_view path, std::span<const std::uint8_t> content, TKSError* error);

/// Writes all bytes to a descriptor. False, and errno, when that fails.
bool writeAll(int descriptor, std::span<const std::uint8_t> content);

/// Makes a new empty file for writing, of a hidden, unused name that starts like `path`, in the same folder; `name`
/// receives its path. -1, and errno, when that fails.
int makeHiddenSibling(std::string_view path, unsigned mode, std::string& name);

}  // namespace tks::posix
