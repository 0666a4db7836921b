#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <tksinterface/TKSValue.h>

#include "platform/posix/file_descriptor.h"

namespace tks::codesign {

using Bytes = std::span<const std::uint8_t>;

// Numbers in signatures are big-endian. The caller has made sure that they lie inside.
inline std::uint16_t big16(const std::uint8_t* at) { return static_cast<std::uint16_t>(at[0] << 8 | at[1]); }
inline std::uint32_t big32(const std::uint8_t* at) {
  return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}
inline std::uint64_t big64(const std::uint8_t* at) { return std::uint64_t{big32(at)} << 32 | big32(at + 4); }

/// A regular file that is open for reading. It is read, never mapped: a mapped file that somebody cuts kills the
/// process that looks at it.
class File {
 public:
  /// Links are followed. Fails with the status of the system's error; what is no regular file cannot be opened.
  static std::shared_ptr<const File> open(const std::string& path);
  /// The same, but a null pointer when there is nothing at the path.
  static std::shared_ptr<const File> openIfThere(const std::string& path);

  File(posix::FileDescriptor descriptor, std::uint64_t size) : descriptor_(std::move(descriptor)), size_(size) {}

  /// The size when it was opened.
  std::uint64_t size() const { return size_; }
  int descriptor() const { return descriptor_.get(); }
  /// Reads as many bytes as there are, at most as `into` takes.
  std::size_t read(std::uint64_t offset, std::span<std::uint8_t> into) const;

 private:
  posix::FileDescriptor descriptor_;
  std::uint64_t size_;
};

/// Bytes that are read when they are needed: a part of a file, or bytes in memory. Cheap to copy.
class ByteSource {
 public:
  ByteSource() = default;
  explicit ByteSource(std::shared_ptr<const File> file);
  explicit ByteSource(TKSData bytes);

  std::uint64_t size() const { return size_; }
  /// A part, which ends where this source ends.
  ByteSource part(std::uint64_t offset, std::uint64_t size) const;

  /// Reads as many bytes as there are, at most as `into` takes.
  std::size_t read(std::uint64_t offset, std::span<std::uint8_t> into) const;
  /// Whether all of `into` could be filled.
  bool readExactly(std::uint64_t offset, std::span<std::uint8_t> into) const {
    return read(offset, into) == into.size();
  }
  /// Everything, or nothing when there is more than `limit`.
  std::optional<TKSData> all(std::size_t limit) const;

 private:
  std::shared_ptr<const File> file_;
  std::shared_ptr<const TKSData> memory_;
  std::uint64_t offset_ = 0;
  std::uint64_t size_ = 0;
};

}  // namespace tks::codesign
