#include <cstddef>
#include <cstdint>

#include "codesign/container/status.h"
#include "codesign/resources/code_resources.h"
#include "tests/fuzz/Require.h"

// The seal over a bundle's resources, in either form of property lists, with its rules.

using namespace tks::codesign;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const TKSData bytes(data, data + size);
  try {
    CodeResources seal(ByteSource(bytes), {HashType::sha1, HashType::sha256}, HashType::sha256);
    tks::fuzz::require(seal.digest().matches(Hasher(HashType::sha256).hash(bytes).bytes()));
    seal.exclude("_CodeSignature");
    seal.prepareRules();
    seal.hasWeakRules();
    for (std::size_t i = 0; i < seal.size(); ++i) {
      const Seal entry = seal.seal(i);
      seal.verdict(entry.path);
      tks::fuzz::require(seal.find(entry.path) == i);
      const bool complete = entry.kind == Seal::Kind::file && !entry.withoutHash && !entry.neverMatches;
      tks::fuzz::require(!complete || entry.hashes.size() == 20 + 32);
    }
  } catch (const Failure&) {
    // A rule that is no expression.
  }
  return 0;
}
