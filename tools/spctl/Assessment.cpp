#include "tools/spctl/Assessment.h"

#include <memory>
#include <string_view>

#include "platform/linux/signatures/certificates.h"
#include "platform/linux/signatures/status.h"
#include "platform/platform.h"

namespace tks::assessment {
namespace {

namespace status = codesign::status;

constexpr std::string_view kDeveloperMark = "1.2.840.113635.100.6.1.13";
/// Applications that were signed before this moment (7 April 2019) did not need to be notarized.
constexpr double kNotarizationBegins = 1554595200;

/// Line ends in a path would let it write lines of its own.
std::string shown(std::string_view path) {
  std::string text(path);
  for (char& character : text) {
    if (static_cast<unsigned char>(character) < ' ') character = '?';
  }
  return text;
}

/// Where code comes from, by its certificates and its ticket.
struct Source {
  bool accepted = false;
  std::string_view name;
};

Source sourceOf(const TKSDictionary& information, X509* leaf) {
  if (leaf == nullptr || !codesign::hasExtension(leaf, std::string(kDeveloperMark))) return {};
  if (information.contains("stapled-ticket")) return {true, "Notarized Developer ID"};
  const TKSValue& signedAt = information["signing-timestamp"];
  if (signedAt.isDate() && signedAt.date().secondsSince1970 < kNotarizationBegins) return {true, "Developer ID"};
  return {false, "Unnotarized Developer ID"};
}

std::string lines(std::string_view path, std::string_view verdict, std::string_view source, std::string_view origin,
                  int verbosity) {
  std::string text = shown(path).append(": ").append(verdict).append("\n");
  if (verbosity >= 1 && !source.empty()) text.append("source=").append(source).append("\n");
  if (verbosity >= 2 && !origin.empty()) text.append("origin=").append(shown(origin)).append("\n");
  return text;
}

Verdict judgeBroken(const std::string& path, std::int32_t code, int verbosity) {
  if (code == status::kUnsigned) return {kRejected, lines(path, "rejected", "no usable signature", "", verbosity)};
  if (code == status::kWeakResourceRules || code == status::kWeakResourceEnvelope) {
    return {kRejected, lines(path, "rejected", "obsolete resource envelope", "", verbosity)};
  }
  std::string reason = codesign::textOf(code);
  if (reason.empty()) reason = "code " + std::to_string(code);
  return {kRejected, lines(path, reason, "", "", verbosity)};
}

bool isApplication(const TKSDictionary& information) {
  return information["format"].text().find("bundle") != std::string_view::npos;
}

}  // namespace

Verdict assess(const std::string& path, int verbosity) {
  std::unique_ptr<platform::StaticCode> code;
  if (const std::int32_t created = platform::signatures().create(path, code); created != 0) {
    std::string reason = codesign::textOf(created);
    return {kFailure, lines(path, reason.empty() ? "internal error" : reason, "", "", verbosity)};
  }
  std::string details;
  if (const std::int32_t valid = code->checkForInstalling(details); valid != 0)
    return judgeBroken(path, valid, verbosity);

  TKSDictionary information;
  if (code->copySigningInformation(information) != 0)
    return {kFailure, lines(path, "internal error", "", "", verbosity)};
  const TKSData der = information["certificates"][0].data();
  std::string origin;
  if (!der.empty()) platform::signatures().commonName(der, origin);
  if (!isApplication(information)) {
    return {kRejected,
            lines(path, "rejected (the code is valid but does not seem to be an app)", "", origin, verbosity)};
  }
  const codesign::Certificate leaf = codesign::parseCertificate(der);
  const Source source = sourceOf(information, leaf.get());
  return {source.accepted ? kAccepted : kRejected,
          lines(path, source.accepted ? "accepted" : "rejected", source.name, origin, verbosity)};
}

}  // namespace tks::assessment
