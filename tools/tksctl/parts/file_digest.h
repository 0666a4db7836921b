#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <tksinterface/TKSError.h>

namespace tks::ctl {

/// What a file holds, in short.
struct FileDigest {
  std::uint64_t size = 0;
  /// SHA-256 in lower-case hexadecimal digits.
  std::string sha256;
};

/// Reads a regular file to its end. Nothing, and `error`, when it cannot be read.
std::optional<FileDigest> digestOf(const std::string& path, TKSError* error);

}  // namespace tks::ctl
