#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"

// A code directory: the list of hashes that a signature stands for. All numbers are big-endian; a field exists from a
// version on, and the identifier or the hashes may start right after the last one that exists.
//
//    0  magic 0xfade0c02    4  length           8  version          12  flags         16  hashOffset   20  identOffset
//   24  nSpecialSlots      28  nCodeSlots      32  codeLimit        36  u8 hashSize, u8 hashType, u8 platform, u8
//   pageSize 40  spare              44  scatterOffset (0x20100)              48  teamOffset (0x20200) 52  spare, 56 u64
//   codeLimit64 (0x20300)    64  u64 execSegBase, execSegLimit, execSegFlags (0x20400) 88  runtime, 92 preEncryptOffset
//   (0x20500)
//
// The hash of page k stands at hashOffset + k * hashSize, that of special slot n at hashOffset - n * hashSize.

namespace tks::codesign {

/// Flags of a directory: what the code wants of the system, and how it was signed.
namespace directory_flag {
inline constexpr std::uint32_t kHost = 0x1;                  ///< it may host guest code
inline constexpr std::uint32_t kAdHoc = 0x2;                 ///< signed by nobody
inline constexpr std::uint32_t kHard = 0x100;                ///< no page that does not match is loaded
inline constexpr std::uint32_t kKill = 0x200;                ///< such a page ends the process
inline constexpr std::uint32_t kExpires = 0x400;             ///< certificates that have expired count as such
inline constexpr std::uint32_t kRestrict = 0x800;            ///< nothing is injected from outside
inline constexpr std::uint32_t kEnforcement = 0x1000;        ///< every page is checked
inline constexpr std::uint32_t kLibraryValidation = 0x2000;  ///< libraries have to be of the same team
inline constexpr std::uint32_t kRuntime = 0x10000;           ///< the hardened runtime
inline constexpr std::uint32_t kLinkerSigned = 0x20000;      ///< ad hoc by a linker: a directory and nothing else
}  // namespace directory_flag

/// One code directory.
class CodeDirectory {
 public:
  /// Reads and checks the directory's integrity; fails when something does not fit.
  explicit CodeDirectory(ByteSource blob);

  std::uint32_t version() const { return version_; }
  std::uint32_t flags() const { return flags_; }
  bool hasFlag(std::uint32_t flag) const { return (flags_ & flag) != 0; }
  /// As written; may be one that is not supported.
  std::uint8_t hashTypeNumber() const { return hashTypeNumber_; }
  const std::string& identifier() const { return identifier_; }
  const std::optional<std::string>& team() const { return team_; }
  std::uint8_t platform() const { return platform_; }
  std::uint32_t runtimeVersion() const { return runtimeVersion_; }
  std::uint32_t specialSlots() const { return specialSlots_; }
  std::uint32_t codeSlots() const { return codeSlots_; }
  /// Bytes of code that the pages cover.
  std::uint64_t limit() const { return limit_; }
  /// Bytes of a page; 0: one hash over everything.
  std::uint64_t pageSize() const { return pageSize_; }

  /// The hash of a special slot; nothing when it is absent.
  std::optional<Digest> specialHash(std::uint32_t slot) const;
  /// Reads the hashes of pages from `first` on into `hashes`, one after the other; false when there are fewer.
  bool readCodeHashes(std::uint32_t first, std::span<std::uint8_t> hashes) const;

  const ByteSource& blob() const { return blob_; }
  /// Hash of the whole blob by the directory's own function, in full length. Fails for hash types that are not
  /// supported.
  const Digest& fullHash() const;
  /// The same, cut to the 20 bytes by which a directory is known.
  TKSData cdHash() const;

 private:
  std::string textAt(std::uint32_t offset) const;
  void checkHashes() const;
  void checkScatter(std::uint32_t offset) const;
  void checkPages(std::uint8_t pageSizeLog) const;

  ByteSource blob_;
  std::uint32_t version_ = 0;
  std::uint32_t flags_ = 0;
  std::uint32_t hashOffset_ = 0;
  std::uint32_t specialSlots_ = 0;
  std::uint32_t codeSlots_ = 0;
  std::uint64_t limit_ = 0;
  std::uint64_t pageSize_ = 0;
  std::uint8_t hashSize_ = 0;
  std::uint8_t hashTypeNumber_ = 0;
  std::uint8_t platform_ = 0;
  std::uint32_t runtimeVersion_ = 0;
  std::string identifier_;
  std::optional<std::string> team_;
  mutable std::optional<Digest> fullHash_;
};

/// The directories of one signature, by hash type.
class DirectorySet {
 public:
  /// Adds a directory; `primary` marks the one that the signature is over. Fails when one of its type is there.
  void add(CodeDirectory&& directory, bool primary);
  /// To be called when all are there. Fails when no hash type is supported.
  void choose();

  bool empty() const { return directories_.empty(); }
  std::size_t size() const { return directories_.size(); }
  const CodeDirectory& primary() const { return directories_.at(primary_); }
  const CodeDirectory& best() const { return directories_.at(static_cast<std::uint8_t>(best_)); }
  HashType bestType() const { return best_; }
  /// All hash types, ascending, also those that are not supported.
  const std::map<std::uint8_t, CodeDirectory>& byType() const { return directories_; }
  /// The supported ones, ascending.
  const std::vector<HashType>& types() const { return types_; }

 private:
  std::map<std::uint8_t, CodeDirectory> directories_;
  std::uint8_t primary_ = 0;
  HashType best_ = HashType::sha1;
  std::vector<HashType> types_;
};

}  // namespace tks::codesign
