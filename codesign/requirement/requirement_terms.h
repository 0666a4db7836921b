#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tks::codesign::requirement {

/// What one term of a requirement asks. The numbers are those of the binary form.
enum class Operation : std::uint32_t {
  never = 0,                  ///< nothing meets it
  always = 1,                 ///< everything meets it
  identifier = 2,             ///< the code's identifier is a text
  appleAnchor = 3,            ///< signed by the platform's maker itself
  anchorHash = 4,             ///< a certificate has a SHA-1 hash
  infoValue = 5,              ///< the Info.plist has a text under a key
  both = 6,                   ///< two terms
  either = 7,                 ///< one of two terms
  cdHash = 8,                 ///< the best code directory has a hash
  negation = 9,               ///< not a term
  infoField = 10,             ///< a field of the Info.plist matches
  certificateField = 11,      ///< a field of a certificate's subject matches
  trustedCertificate = 12,    ///< the user's settings trust a certificate
  trustedCertificates = 13,   ///< the user's settings trust the chain
  certificateExtension = 14,  ///< an extension of a certificate matches
  appleGenericAnchor = 15,    ///< the chain ends in a root of the platform's maker
  entitlementField = 16,      ///< an entitlement matches
  certificatePolicy = 17,     ///< a certificate has a policy
  notarized = 21,             ///< a notary has seen the code
};

/// How a field is compared with a term's value. The numbers are those of the binary form.
enum class Match : std::uint32_t {
  exists = 0,          ///< there, and not false
  equal = 1,           ///< the whole value, letter by letter
  contains = 2,        ///< somewhere in the value
  beginsWith = 3,      ///< at its beginning
  endsWith = 4,        ///< at its end
  less = 5,            ///< this and the next three: numbers inside of texts count by their value
  greater = 6,         ///< the value is greater
  lessOrEqual = 7,     ///< the value is less or equal
  greaterOrEqual = 8,  ///< the value is greater or equal
  absent = 14,         ///< not there
};

/// Operands stand before their operators in the list, the whole is its last element.
struct Term {
  Operation operation = Operation::never;  ///< what it asks
  std::size_t left = 0;                    ///< place of the first operand
  std::size_t right = 0;                   ///< place of the second one
  std::int32_t slot = 0;                   ///< which certificate: 0 the leaf, -1 the root
  std::string key;                         ///< of a field; of an extension its identifier in DER form
  Match match = Match::exists;             ///< how the field is compared
  std::string value;                       ///< text or bytes
};

/// What belongs to an operation, in both forms of a requirement.
struct OperationForm {
  Operation operation = Operation::never;  ///< whose form it is
  std::size_t operands = 0;                ///< how many terms it joins
  bool slot = false;                       ///< it names a certificate
  bool key = false;                        ///< it names a field
  bool match = false;                      ///< a comparison, with a value when it needs one
  bool value = false;                      ///< a value without a comparison
  /// The text form. %s: the slot, %k the key as it is, %q the key in quotes where it needs them, %Q in any case, %i the
  /// key as a dotted identifier, %m the comparison, %v the value, %h the value as a hash. Of operators what stands
  /// between or before their operands.
  std::string_view text;
};

/// The form of an operation by its number; a null pointer when there is none.
const OperationForm* formOf(std::uint32_t operation);
const OperationForm& formOf(Operation operation);

/// What belongs to a comparison.
struct MatchForm {
  Match match = Match::exists;  ///< whose form it is
  bool value = true;            ///< it compares with a value
  /// The text form; %v: the value.
  std::string_view text;
};

/// The form of a comparison by its number; a null pointer when there is none.
const MatchForm* matchFormOf(std::uint32_t match);

/// Most terms that a requirement may have.
inline constexpr std::size_t kMostTerms = 4096;

}  // namespace tks::codesign::requirement
