#include <algorithm>
#include <string_view>

#include "codesign/requirement/requirement.h"
#include "codesign/trust/certificate_facts.h"

// Which code meets a requirement.

namespace tks::codesign {
namespace {

using requirement::Match;
using requirement::Operation;
using requirement::Term;

/// Compares texts so that numbers inside count by their value.
int compareNumerically(std::string_view left, std::string_view right) {
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  while (!left.empty() && !right.empty()) {
    if (!isDigit(left.front()) || !isDigit(right.front())) {
      if (left.front() != right.front()) return left.front() < right.front() ? -1 : 1;
      left.remove_prefix(1);
      right.remove_prefix(1);
      continue;
    }
    const auto takeDigits = [&](std::string_view& text) {
      const std::size_t size =
          static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
      std::string_view digits = text.substr(0, size);
      text.remove_prefix(size);
      while (digits.size() > 1 && digits.front() == '0') digits.remove_prefix(1);
      return digits;
    };
    const std::string_view one = takeDigits(left);
    const std::string_view other = takeDigits(right);
    if (one.size() != other.size()) return one.size() < other.size() ? -1 : 1;
    if (one != other) return one < other ? -1 : 1;
  }
  return left.empty() ? (right.empty() ? 0 : -1) : 1;
}

/// A single value; what is no text can only be equal.
bool valueMatches(const TKSValue& value, const Term& term) {
  if (term.match == Match::absent) return false;
  if (term.match == Match::exists) return value != TKSValue(false);
  if (value.isData()) {
    return term.match == Match::equal && value.data() == TKSData(term.value.begin(), term.value.end());
  }
  if (!value.isText()) return false;
  const std::string_view text = value.text();
  switch (term.match) {
    case Match::equal:
      return text == term.value;
    case Match::contains:
      return text.find(term.value) != std::string_view::npos;
    case Match::beginsWith:
      return text.starts_with(term.value);
    case Match::endsWith:
      return text.ends_with(term.value);
    case Match::less:
      return compareNumerically(text, term.value) < 0;
    case Match::greater:
      return compareNumerically(text, term.value) > 0;
    case Match::lessOrEqual:
      return compareNumerically(text, term.value) <= 0;
    case Match::greaterOrEqual:
      return compareNumerically(text, term.value) >= 0;
    default:
      return false;
  }
}

/// Of an array any element may match.
bool fieldMatches(const TKSValue& field, const Term& term) {
  if (field.isNothing()) return term.match == Match::absent;
  const auto matches = [&term](const TKSValue& value) { return valueMatches(value, term); };
  if (!field.isArray()) return matches(field);
  const TKSArray array = field.array();
  return std::ranges::any_of(array, matches);
}

bool certificateMeets(X509* certificate, const Term& term) {
  switch (term.operation) {
    case Operation::anchorHash:
      return !term.value.empty() && term.value == hashOfCertificate(certificate);
    case Operation::certificateField:
      return fieldMatches(subjectField(certificate, term.key), term);
    case Operation::certificateExtension:
      return fieldMatches(extensionValue(certificate, term.key), term);
    case Operation::certificatePolicy:
      return fieldMatches(hasPolicy(certificate, term.key) ? TKSValue(true) : TKSValue(), term);
    default:
      return false;  // trust settings are not to be had here
  }
}

/// A term that is no operator.
bool meets(const RequirementContext& context, const Term& term) {
  if (requirement::formOf(term.operation).slot) {
    X509* certificate = certificateAt(context.chain, term.slot);
    return certificate != nullptr && certificateMeets(certificate, term);
  }
  switch (term.operation) {
    case Operation::always:
      return true;
    case Operation::identifier:
      return context.identifier == term.value;
    case Operation::appleAnchor:
      return isSignedByApple(context.chain, context.roots);
    case Operation::appleGenericAnchor:
      return !context.chain.empty() && context.roots->contains(context.chain.back());
    case Operation::cdHash:
      return context.cdHash == TKSData(term.value.begin(), term.value.end());
    case Operation::infoValue:
      return context.info[term.key] == TKSValue(term.value);
    case Operation::infoField:
      return fieldMatches(context.info[term.key], term);
    case Operation::entitlementField:
      return fieldMatches(context.entitlements[term.key], term);
    default:
      return false;  // nor are tickets
  }
}

}  // namespace

bool Requirement::isMetBy(const RequirementContext& context) const {
  std::vector<bool> results(terms_.size());
  for (std::size_t i = 0; i < terms_.size(); ++i) {
    const Term& term = terms_[i];
    switch (term.operation) {
      case Operation::both:
        results[i] = results[term.left] && results[term.right];
        break;
      case Operation::either:
        results[i] = results[term.left] || results[term.right];
        break;
      case Operation::negation:
        results[i] = !results[term.left];
        break;
      default:
        results[i] = meets(context, term);
    }
  }
  return !results.empty() && results.back();
}

}  // namespace tks::codesign
