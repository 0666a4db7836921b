#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSFormat.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "BuildValues.h"
#include "foundation/Options.h"
#include "foundation/values/ErrorReasons.h"
#include "install/MakerRules.h"
#include "install/SignatureErrors.h"
#include "platform/platform.h"

namespace tks {
namespace {

/// Statuses that have a text of their own.
struct StatusText {
  std::int32_t status;
  std::string_view text;
};
constexpr StatusText kStatusTexts[] = {
    {-67062, "Code object is not signed at all."},
    {-67054, "A sealed resource is missing or invalid."},
    {-67050, "Code failed to satisfy specified code requirement(s)."},
    {-67030, "invalid Info.plist (plist or signature have been modified)."},
};

std::string statusText(std::int32_t status) {
  for (const StatusText& known : kStatusTexts) {
    if (known.status == status) return std::string(known.text);
  }
  return formatted("Codesign verify failed, error code: %d.", status);
}

std::int32_t makeStaticCode(const TKSURL& url, std::unique_ptr<platform::StaticCode>& code) {
  const std::int32_t status = platform::signatures().create(url.path(), code);
  return status == 0 && code == nullptr ? kInternalComponentError : status;
}

/// The names of a chain that is not made of three certificates, one clause each.
std::string wrongStructureMessage(const TKSArray& certificates) {
  std::string message = "Codesign verify failed, wrong certificate structure.";
  for (const TKSValue& certificate : certificates) {
    std::string name;
    if (platform::signatures().commonName(certificate.data(), name) != 0) continue;
    message = formatted("%@. Certificate common name: %@", message, name);
  }
  return message;
}

/// The message about the names of three certificates; empty when they are the maker's.
std::string namesMessage(const MakerRules& rules, const TKSArray& certificates) {
  std::array<std::string, 3> names;
  std::array<std::int32_t, 3> statuses{};
  for (const std::size_t index : {2u, 1u, 0u}) {
    statuses[index] = platform::signatures().commonName(certificates[index].data(), names[index]);
  }
  if (statuses != std::array<std::int32_t, 3>{}) {
    return formatted("Copy common names failed: %d, %d, %d", statuses[2], statuses[1], statuses[0]);
  }
  if (names[2] == rules.rootName && names[1] == rules.intermediateName && names[0] == rules.leafName) return {};
  return formatted("Codesign verify failed, topLevel name: %@, secondLevel name: %@, thirdLevel name: %@.", names[2],
                   names[1], names[0]);
}

bool isOfTeam(const TKSValue& leaf, std::string_view team) {
  std::string unit;
  return platform::signatures().organizationalUnit(leaf.data(), unit) == 0 && unit == team;
}

bool leadsTo(const TKSArray& certificates, std::string_view root) {
  return platform::signatures().leadsToRoot(certificates, root);
}

/// The message about what the names do not prove; empty when the rules ask for no more, or are met.
std::string strictMessage(const MakerRules& rules, const TKSArray& certificates) {
  const bool leads = (!rules.strict || leadsTo(certificates, rules.pinnedRootSHA256)) &&
                     (rules.alsoRootSHA256.empty() || leadsTo(certificates, rules.alsoRootSHA256));
  if (!leads) return "Codesign verify failed, the certificates do not lead to the pinned root.";
  const bool isTeams = (!rules.strict || isOfTeam(certificates[0], rules.team)) &&
                       (rules.alsoTeam.empty() || isOfTeam(certificates[0], rules.alsoTeam));
  if (!isTeams) return "Codesign verify failed, the signing certificate is not the team's.";
  return {};
}

/// Why the signature is not the maker's; empty when it is.
std::string makerMessage(const MakerRules& rules, const TKSURL& bundleURL) {
  std::string discarded;
  const std::optional<TKSDictionary> information = KVRXCodeSignUtil::codeSignInfo(bundleURL, &discarded);
  if (!information) return "No code signature info.";

  const TKSValue& team = (*information)["teamid"];
  const TKSValue& certificates = (*information)["certificates"];
  constexpr std::string_view kNoCertificates = "No certificate info included in code signature info.";
  const bool isMakers = team.isText() && team.text() == rules.team;
  if (!isMakers || (!rules.alsoTeam.empty() && team.text() != rules.alsoTeam)) {
    // A missing team identifier is told apart nowhere: it is "not from Tarvo" like a wrong one.
    return certificates.isArray() ? "Codesign verify failed, not from Tarvo." : std::string(kNoCertificates);
  }
  if (!certificates.isArray()) return std::string(kNoCertificates);

  const TKSArray chain = certificates.array();
  if (chain.size() != 3) return wrongStructureMessage(chain);
  if (std::string message = namesMessage(rules, chain); !message.empty()) return message;
  return strictMessage(rules, chain);
}

}  // namespace

const MakerRules& builtInMakerRules() {
  static const MakerRules rules{.team = TKSTarvoCodeSignTeamID,
                                .leafName = kTarvoCertificate,
                                .intermediateName = "Developer ID Certification Authority",
                                .rootName = "Apple Root CA",
                                .strict = TKS_STRICT_MAKER_CHECK != 0,
                                .pinnedRootSHA256 = TKS_PINNED_ROOT_SHA256};
  return rules;
}

MakerRules makerRulesInForce() {
  MakerRules rules = builtInMakerRules();
  rules.alsoRootSHA256 = options().pinnedRoot;
  rules.alsoTeam = options().pinnedTeam;
  return rules;
}

bool signatureSatisfies(const MakerRules& rules, const TKSURL& bundleURL, TKSError* error) {
  return reportSignatureMessage(makerMessage(rules, bundleURL), error);
}

bool reportSignatureMessage(std::string message, TKSError* error) {
  if (message.empty()) return true;
  if (error != nullptr) {
    *error = makeError(TKSErrorReason::notTrusted, "com.tarvo.kovra.codesign", 0, std::move(message));
  }
  return false;
}

std::unique_ptr<platform::StaticCode> codeToCheck(const TKSURL& url, TKSError* error) {
  std::unique_ptr<platform::StaticCode> code;
  const std::int32_t status = makeStaticCode(url, code);
  if (status == 0) return code;
  reportSignatureMessage(formatted("Failed to get static code when check CodeSign. Target path: %@, return code: %d",
                                   url.absoluteString(), status),
                         error);
  return nullptr;
}

bool reportSignatureStatus(std::int32_t status, std::string_view details, TKSError* error) {
  return status == 0 ||
         reportSignatureMessage(formatted("%@ Internal error details: %@", statusText(status), details), error);
}

}  // namespace tks

std::optional<TKSDictionary> KVRXCodeSignUtil::codeSignInfo(const TKSURL& bundleURL, std::string* errorInfo) {
  std::unique_ptr<tks::platform::StaticCode> code;
  if (tks::makeStaticCode(bundleURL, code) != 0) {
    if (errorInfo != nullptr) *errorInfo = "Failed to get static code.";
    return std::nullopt;
  }
  TKSDictionary information;
  if (code->copySigningInformation(information) != 0) {
    if (errorInfo != nullptr) *errorInfo = "Failed to copy signing information.";
    return std::nullopt;
  }
  return information;
}

bool KVRXCodeSignUtil::codeSignIsValid(const TKSURL& bundleURL, TKSError* error) {
  const std::unique_ptr<tks::platform::StaticCode> code = tks::codeToCheck(bundleURL, error);
  if (code == nullptr) return false;
  std::string details;
  const std::int32_t status = code->checkValidity(details);
  return tks::reportSignatureStatus(status, details, error);
}

bool KVRXCodeSignUtil::codeSignBelongToTarvo(const TKSURL& bundleURL, TKSError* error) {
  return tks::signatureSatisfies(tks::makerRulesInForce(), bundleURL, error);
}
