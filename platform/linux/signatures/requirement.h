#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "platform/linux/signatures/byte_source.h"
#include "platform/linux/signatures/certificates.h"

// Requirements: what code has to be to count as some other code's partner.
//
//   expression := term { "or" term }          term := primary { "and" primary }
//   primary    := "!" primary | "(" expression ")" | "always" | "never" | "identifier" text | "cdhash" hash
//               | "anchor" "apple" [ "generic" ] | ( "anchor" | "certificate" slot ) "=" hash
//               | "certificate" slot "[" key "]" match | "info" "[" key "]" match | "entitlement" "[" key "]" match
//   slot       := number | "leaf" | "root" | "anchor"          hash := H"hexadecimal"
//   match      := [ "exists" ] | "absent" | "=" [ "*" ] text [ "*" ] | ( "<" | ">" | "<=" | ">=" ) text
//
// The binary form is the same in prefix order: opcodes as u32, texts and data with their length in front, padded to
// four bytes; all of it in a blob of kind 1. Several requirements, by what they are for, stand in a set.

namespace tks::codesign {

/// What a requirement is compared with.
struct RequirementContext {
  std::string identifier;
  TKSData cdHash;
  Chain chain;
  TKSDictionary info;
  TKSDictionary entitlements;
  const AppleRoots* roots = nullptr;
};

class Requirement {
 public:
  static std::optional<Requirement> fromText(std::string_view text);
  /// A blob with its header.
  static std::optional<Requirement> fromBlob(Bytes blob);

  bool isMetBy(const RequirementContext& context) const;
  std::string text() const;
  TKSData blob() const;

 private:
  friend class RequirementTextReader;
  friend class RequirementBlobReader;

  enum class Operation : std::uint32_t {
    never = 0,
    always = 1,
    identifier = 2,
    appleAnchor = 3,
    anchorHash = 4,
    infoValue = 5,
    both = 6,
    either = 7,
    cdHash = 8,
    negation = 9,
    infoField = 10,
    certificateField = 11,
    trustedCertificate = 12,
    trustedCertificates = 13,
    certificateExtension = 14,
    appleGenericAnchor = 15,
    entitlementField = 16,
    certificatePolicy = 17,
    notarized = 21,
  };
  enum class Match : std::uint32_t {
    exists = 0,
    equal = 1,
    contains = 2,
    beginsWith = 3,
    endsWith = 4,
    less = 5,
    greater = 6,
    lessOrEqual = 7,
    greaterOrEqual = 8,
    absent = 14,
  };
  /// Operands stand before their operators in the list, the whole is its last element.
  struct Term {
    Operation operation = Operation::never;
    std::size_t left = 0;
    std::size_t right = 0;
    std::int32_t slot = 0;
    std::string key;  ///< of a field; of an extension its identifier in DER form
    Match match = Match::exists;
    std::string value;  ///< text or bytes
  };

  static std::size_t operands(Operation operation);
  static bool hasSlot(Operation operation);
  static bool hasKey(Operation operation);
  static bool hasMatch(Operation operation);
  static bool hasValue(Operation operation);
  static bool isKnown(std::uint32_t number);

  bool evaluate(const Term& term, const RequirementContext& context) const;
  std::string describe(const Term& term) const;

  std::vector<Term> terms_;
};

/// What requirements are for.
enum class RequirementType : std::uint32_t { host = 1, guest = 2, designated = 3, library = 4, plugin = 5 };

/// A set of requirements.
class RequirementSet {
 public:
  static std::optional<RequirementSet> fromBlob(Bytes blob);

  const Requirement* find(RequirementType type) const;
  /// A line "designated => ..." each.
  std::string text() const;

 private:
  std::vector<std::pair<std::uint32_t, Requirement>> requirements_;
};

/// The requirement that code has when it brings none: what its name and its certificates, or without these its hash,
/// say.
std::string implicitRequirement(const RequirementContext& context);

/// The requirement that all code of one maker meets: the same root, and the same organizational unit or else the same
/// certificate.
std::string sameMakerRequirement(const Chain& chain);

/// An object identifier in dotted form as DER content, and back. Empty when it is none.
std::string encodeIdentifier(std::string_view dotted);
std::string decodeIdentifier(std::string_view encoded);

}  // namespace tks::codesign
