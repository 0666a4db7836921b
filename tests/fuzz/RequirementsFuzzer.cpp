#include <cstddef>
#include <cstdint>

#include "codesign/requirement/requirement.h"
#include "codesign/resources/rule_patterns.h"
#include "tests/fuzz/Mutators.h"
#include "tests/fuzz/Require.h"

// Requirements in text and binary form, and the expressions of a seal's rules.

using namespace tks::codesign;

namespace {

constexpr std::uint32_t kBlob = 0xfade0c00;
constexpr std::string_view kWords[] = {
    "and ",
    "or ",
    "! ",
    "(",
    ")",
    "always ",
    "never ",
    "identifier ",
    "\"com.tarvo.kovra\" ",
    "cdhash ",
    "anchor ",
    "apple ",
    "generic ",
    "trusted ",
    "certificate ",
    "leaf",
    "root",
    "1",
    "-1",
    "[subject.CN]",
    "[field.1.2.840.113635]",
    "info ",
    "entitlement ",
    "[key]",
    "exists ",
    "absent ",
    "= ",
    "<",
    ">=",
    "*",
    "H\"00112233445566778899aabbccddeeff00112233\" ",
};

/// A word of the grammar comes in, in the place of another one or beside it.
std::string withAWord(std::string text, tks::fuzz::Choice& choice) {
  const std::size_t at = text.find(' ', choice.below(text.size() + 1));
  const std::size_t begin = at == std::string::npos ? text.size() : at + 1;
  const std::size_t end = choice.oneIn(2) ? begin : std::min(text.find(' ', begin), text.size());
  return text.replace(begin, end - begin, kWords[choice.below(std::size(kWords))]);
}

/// A change inside a blob whose length says so, or one number of it that is an operation, a slot or a length.
std::string withAnotherNumber(std::string blob, tks::fuzz::Choice& choice, std::size_t room) {
  if (blob.size() < 12 || choice.oneIn(3)) {
    blob = tks::fuzz::mutated(std::move(blob), room);
  } else {
    tks::fuzz::putBigEndian32(blob, 4 * (2 + choice.below(blob.size() / 4 - 2)), choice.below(24));
  }
  if (blob.size() < 8) return blob;
  tks::fuzz::putBigEndian32(blob, 0, kBlob);
  tks::fuzz::putBigEndian32(blob, 4, blob.size());
  return blob;
}

}  // namespace

/// Texts are changed word by word, blobs number by number with a length that fits; one form becomes the other.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  tks::fuzz::Choice choice(seed);
  std::string input(tks::fuzz::textOf(data, size));
  if (choice.oneIn(6)) return LLVMFuzzerMutate(data, size, room);
  if (size >= 8 && tks::fuzz::bigEndian32(input, 0) == kBlob) {
    return tks::fuzz::putBack(withAnotherNumber(input, choice, room), data, room);
  }
  if (const auto requirement = choice.oneIn(4) ? Requirement::fromText(input) : std::nullopt) {
    const TKSData blob = requirement->blob();
    return tks::fuzz::putBack(std::string(blob.begin(), blob.end()), data, room);
  }
  return tks::fuzz::putBack(withAWord(input, choice), data, room);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tks::fuzz::textOf(data, size);
  const RequirementContext context;
  if (const auto requirement = Requirement::fromText(text)) {
    const auto again = Requirement::fromBlob(requirement->blob());
    tks::fuzz::require(again && again->text() == requirement->text());
    tks::fuzz::require(again->isMetBy(context) == requirement->isMetBy(context));
  }
  if (const auto requirement = Requirement::fromBlob({data, size})) {
    const auto again = Requirement::fromText(requirement->text());
    tks::fuzz::require(!again || again->isMetBy(context) == requirement->isMetBy(context));
  }
  if (const auto set = RequirementSet::fromBlob({data, size})) set->text();
  RulePatterns patterns;
  if (patterns.add(text)) patterns.find("Resources/en.lproj/A.strings");
  return 0;
}
