#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"

namespace tks::signing {

/// What a code directory is made from.
struct DirectoryPlan {
  std::string identifier;            ///< the name by which the code calls itself
  std::string team;                  ///< empty: none
  std::uint32_t flags = 0;           ///< as the platform numbers them: 0x2 ad hoc, 0x10000 runtime
  std::uint32_t version = 0x20400;   ///< of the form: which fields the header has
  std::uint32_t runtimeVersion = 0;  ///< of the hardened run-time; 0: none
  std::uint8_t pageSizeLog = 12;     ///< 0: one hash over everything
  codesign::HashType hashType = codesign::HashType::sha256;  ///< by which everything is hashed
  /// What is hashed for each special slot.
  std::map<std::uint32_t, TKSData> components;
};

void append16(TKSData& out, std::uint32_t value);
void append32(TKSData& out, std::uint32_t value);
void append64(TKSData& out, std::uint64_t value);
void store32(TKSData& out, std::size_t at, std::uint32_t value);
/// A blob: magic, length, content.
TKSData makeBlob(std::uint32_t magic, codesign::Bytes content);
/// An embedded signature from blobs by slot.
TKSData makeSuperBlob(const std::map<std::uint32_t, TKSData>& blobs);

/// The code directory for some code.
TKSData makeDirectory(const DirectoryPlan& plan, codesign::Bytes code);

}  // namespace tks::signing
