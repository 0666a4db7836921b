#include "codesign/requirement/requirement_terms.h"

#include <algorithm>
#include <iterator>

namespace tks::codesign::requirement {
namespace {

constexpr OperationForm kOperations[] = {
    {.operation = Operation::never, .text = "never"},
    {.operation = Operation::always, .text = "always"},
    {.operation = Operation::identifier, .value = true, .text = "identifier %v"},
    {.operation = Operation::appleAnchor, .text = "anchor apple"},
    {.operation = Operation::anchorHash, .slot = true, .value = true, .text = "certificate %s = %h"},
    {.operation = Operation::infoValue, .key = true, .value = true, .text = "info[%q] = %v"},
    {.operation = Operation::both, .operands = 2, .text = " and "},
    {.operation = Operation::either, .operands = 2, .text = " or "},
    {.operation = Operation::cdHash, .value = true, .text = "cdhash %h"},
    {.operation = Operation::negation, .operands = 1, .text = "! "},
    {.operation = Operation::infoField, .key = true, .match = true, .text = "info[%q]%m"},
    {.operation = Operation::certificateField,
     .slot = true,
     .key = true,
     .match = true,
     .text = "certificate %s[%k]%m"},
    {.operation = Operation::trustedCertificate, .slot = true, .text = "certificate %s trusted"},
    {.operation = Operation::trustedCertificates, .text = "anchor trusted"},
    {.operation = Operation::certificateExtension,
     .slot = true,
     .key = true,
     .match = true,
     .text = "certificate %s[field.%i]%m"},
    {.operation = Operation::appleGenericAnchor, .text = "anchor apple generic"},
    {.operation = Operation::entitlementField, .key = true, .match = true, .text = "entitlement[%Q]%m"},
    {.operation = Operation::certificatePolicy,
     .slot = true,
     .key = true,
     .match = true,
     .text = "certificate %s[policy.%i]%m"},
    {.operation = Operation::notarized, .text = "notarized"},
};

constexpr MatchForm kMatches[] = {
    {.match = Match::exists, .value = false, .text = " /* exists */"},
    {.match = Match::equal, .text = " = %v"},
    {.match = Match::contains, .text = " = *%v*"},
    {.match = Match::beginsWith, .text = " = %v*"},
    {.match = Match::endsWith, .text = " = *%v"},
    {.match = Match::less, .text = " < %v"},
    {.match = Match::greater, .text = " > %v"},
    {.match = Match::lessOrEqual, .text = " <= %v"},
    {.match = Match::greaterOrEqual, .text = " >= %v"},
    {.match = Match::absent, .value = false, .text = " absent"},
};

}  // namespace

const OperationForm* formOf(std::uint32_t operation) {
  const auto* const found =
      std::ranges::find(kOperations, static_cast<Operation>(operation), &OperationForm::operation);
  return found == std::end(kOperations) ? nullptr : found;
}

const OperationForm& formOf(Operation operation) {
  return *std::ranges::find(kOperations, operation, &OperationForm::operation);
}

const MatchForm* matchFormOf(std::uint32_t match) {
  const auto* const found = std::ranges::find(kMatches, static_cast<Match>(match), &MatchForm::match);
  return found == std::end(kMatches) ? nullptr : found;
}

}  // namespace tks::codesign::requirement
