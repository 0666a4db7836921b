#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/linux/apple_double.h"
#include "platform/linux/signatures/code_directory.h"
#include "platform/linux/signatures/code_resources.h"
#include "platform/linux/signatures/requirement.h"
#include "platform/linux/signatures/rule_patterns.h"
#include "platform/linux/signatures/status.h"
#include "platform/linux/signatures/super_blob.h"

// The parts of signatures that are ours to read: container, directories, seals, requirements, expressions, side-cars.

namespace {

using namespace tks::codesign;

template <class Work>
void quietly(Work work) {
  try {
    work();
  } catch (const Failure&) {
    // What is malformed ends in a status.
  }
}

void readContainer(const ByteSource& source) {
  const SuperBlob super(source);
  for (const std::uint32_t slot :
       {slot::kCodeDirectory, slot::kRequirements, slot::kSignature, slot::kFirstAlternate}) {
    quietly([&] {
      const std::optional<ByteSource> part = super.component(slot);
      if (part && slot == slot::kCodeDirectory) CodeDirectory(*part).specialHash(1);
    });
  }
}

void readSeal(const ByteSource& source) {
  CodeResources seal(source, {HashType::sha1, HashType::sha256}, HashType::sha256);
  seal.prepareRules();
  for (std::size_t i = 0; i < seal.size(); ++i) {
    const Seal entry = seal.seal(i);
    seal.verdict(entry.path);
    if (!seal.find(entry.path)) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const TKSData bytes(data, data + size);
  const ByteSource source(bytes);
  quietly([&] { readContainer(source); });
  quietly([&] { CodeDirectory directory(source); });
  quietly([&] { readSeal(source); });
  if (const auto set = RequirementSet::fromBlob(bytes)) set->text();
  Requirement::fromText({reinterpret_cast<const char*>(data), size});
  tks::gnulinux::parseAppleDouble(bytes);
  RulePatterns patterns;
  if (patterns.add({reinterpret_cast<const char*>(data), size})) patterns.find("Resources/en.lproj/A.strings");
  return 0;
}
