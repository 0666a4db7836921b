#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codesign/container/byte_source.h"

// Executable containers.
//
//   image      := header commands ... code signature      numbers in the file's own byte order, offsets from the image
//   header     := magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags [, reserved in 64-bit images]   u32
//   each command    := u32 cmd, u32 cmdsize, rest               cmd 0x1d: u32 dataoff, u32 datasize of the signature
//   universal  := 0xcafebabe, u32 count, records           big-endian
//   record     := u32 cputype, cpusubtype, offset, size, align

namespace tks::codesign {

/// What kind of processor an image is for.
struct Architecture {
  std::uint32_t type = 0;     ///< the processor
  std::uint32_t subtype = 0;  ///< without the feature bits of its top byte

  /// "x86_64", "arm64", ...; the numbers for processors without a name.
  std::string name() const;
  friend bool operator==(const Architecture&, const Architecture&) = default;
};

/// One image inside of a file.
struct Slice {
  Architecture architecture;  ///< what it is for
  std::uint64_t offset = 0;   ///< from the beginning of the file
  std::uint64_t size = 0;     ///< in bytes
};

/// Where the parts of an image are that signatures are about; offsets count from the image.
struct ImageLayout {
  struct Range {
    std::uint64_t offset = 0;  ///< from the beginning of the image
    std::uint64_t size = 0;    ///< in bytes
  };
  std::optional<Range> signature;  ///< where the load command says; nothing without one
  std::optional<Range> infoPlist;  ///< section __info_plist of segment __TEXT
};

/// A Mach-O file, thin or universal.
class MachO {
 public:
  /// Nothing when the file is of no kind that can be signed as code. Fails when it claims to be universal and
  /// its records are malformed.
  static std::optional<MachO> open(const std::shared_ptr<const File>& file);

  bool isUniversal() const { return universal_; }
  /// By ascending processor type and subtype; at least one.
  const std::vector<Slice>& slices() const { return slices_; }
  /// The slice that is described: the best for this machine, else the first in the file.
  std::size_t chosenSlice() const { return chosen_; }

  /// Reads the load commands of a slice. Fails when they are malformed.
  ImageLayout layout(const Slice& slice) const;
  /// Everything from the start of a slice to the end of the file.
  ByteSource fromStartOf(const Slice& slice) const;

  /// "Mach-O thin (arm64)", "Mach-O universal (x86_64 arm64)"
  std::string format() const;

 private:
  explicit MachO(std::shared_ptr<const File> file) : file_(std::move(file)) {}
  void readRecords(std::uint32_t count);

  std::shared_ptr<const File> file_;
  bool universal_ = false;
  std::vector<Slice> slices_;
  std::size_t chosen_ = 0;
};

}  // namespace tks::codesign
