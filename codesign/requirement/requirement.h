#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/requirement/requirement_terms.h"
#include "codesign/trust/certificates.h"

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
  std::string identifier;             ///< of the code directory
  TKSData cdHash;                     ///< the hash of the best code directory
  Chain chain;                        ///< of the signer; empty for unsigned and ad-hoc signed code
  TKSDictionary info;                 ///< the sealed Info.plist
  TKSDictionary entitlements;         ///< the sealed entitlements
  const AppleRoots* roots = nullptr;  ///< those of the platform's maker; somebody else's
};

/// A requirement, which is written in requirement_text.cpp and requirement_blob.cpp and met in requirement_match.cpp.
class Requirement {
 public:
  /// Nothing when the text is malformed.
  static std::optional<Requirement> fromText(std::string_view text);
  /// A blob with its header. Nothing when it is malformed.
  static std::optional<Requirement> fromBlob(Bytes blob);

  bool isMetBy(const RequirementContext& context) const;
  /// As the platform's tools write it.
  std::string text() const;
  /// With its header.
  TKSData blob() const;

 private:
  explicit Requirement(std::vector<requirement::Term> terms) : terms_(std::move(terms)) {}

  std::vector<requirement::Term> terms_;
};

/// What requirements are for.
enum class RequirementType : std::uint32_t {
  host = 1,        ///< what the code wants to run in
  guest = 2,       ///< what it lets run in itself
  designated = 3,  ///< what others know it by
  library = 4,     ///< what it loads as libraries
  plugin = 5,      ///< what it loads as plug-ins
};

/// The requirements that code brings, by what they are for.
class RequirementSet {
 public:
  /// Nothing when the blob or a requirement in it is malformed.
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

}  // namespace tks::codesign
