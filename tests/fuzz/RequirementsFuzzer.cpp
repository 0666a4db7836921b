#include <cstddef>
#include <cstdint>

#include "codesign/requirement/requirement.h"
#include "codesign/resources/rule_patterns.h"
#include "tests/fuzz/Require.h"

// Requirements in text and binary form, and the expressions of a seal's rules.

using namespace tks::codesign;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tks::fuzz::textOf(data, size);
  const RequirementContext context;
  if (const auto requirement = Requirement::fromText(text)) {
    const auto again = Requirement::fromBlob(requirement->blob());
    tks::fuzz::require(again && again->text() == requirement->text());
    tks::fuzz::require(again->isMetBy(context) == requirement->isMetBy(context));
  }
  if (const auto requirement = Requirement::fromBlob({data, size})) requirement->isMetBy(context);
  if (const auto set = RequirementSet::fromBlob({data, size})) set->text();
  RulePatterns patterns;
  if (patterns.add(text)) patterns.find("Resources/en.lproj/A.strings");
  return 0;
}
