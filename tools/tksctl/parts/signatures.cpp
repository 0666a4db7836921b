#include "tools/tksctl/parts/signatures.h"

#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSURL.h>

#include <ctime>
#include <filesystem>

#include "codesign/Codesign.h"
#include "foundation/values/Hexadecimal.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

using codesign::CertificateDescription;
using codesign::Description;
using codesign::DirectoryDescription;
using codesign::Outcome;

template <class Texts>
TKSArray textsOf(const Texts& texts) {
  TKSArray array;
  for (const std::string& text : texts) array.append(text);
  return array;
}

std::string moment(std::time_t time) { return momentText(static_cast<double>(time)); }

TKSDictionary certificateDocument(const CertificateDescription& certificate) {
  return {{"commonName", certificate.commonName},
          {"organization", certificate.organization},
          {"organizationalUnit", certificate.organizationalUnit},
          {"issuer", certificate.issuer},
          {"serialNumber", certificate.serialNumber},
          {"notBefore", moment(certificate.notBefore)},
          {"notAfter", moment(certificate.notAfter)},
          {"validNow", certificate.isValidAt(std::time(nullptr))},
          {"sha256", certificate.sha256}};
}

TKSDictionary hashesOf(const std::vector<DirectoryDescription>& directories) {
  TKSDictionary hashes;
  for (const DirectoryDescription& directory : directories) {
    hashes.set(codesign::hashName(directory.hashType), hexadecimal(directory.fullHash));
  }
  return hashes;
}

void addOutcome(TKSDictionary& report, const Outcome& outcome) {
  report.set("status", outcome.status);
  report.set("statusText", outcome.text);
  if (!outcome.path.empty()) report.set("concerns", outcome.path);
  report.set("added", textsOf(outcome.added));
  report.set("altered", textsOf(outcome.altered));
  report.set("missing", textsOf(outcome.missing));
}

void addMaker(TKSDictionary& report, const std::string& path) {
  TKSError error;
  const bool isMakers = KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(path), &error);
  report.set("maker", isMakers);
  if (!isMakers) report.set("makerText", error.localizedDescription);
}

void addDescription(TKSDictionary& report, const Description& description) {
  report.set("format", description.format);
  report.set("executable", description.executable);
  TKSArray architectures;
  for (const auto& architecture : description.architectures) architectures.append(architecture.name);
  report.set("architectures", architectures);
  report.set("signed", description.isSigned);
  if (!description.isSigned) return;
  report.set("identifier", description.identifier);
  report.set("adHoc", description.isAdHoc);
  report.set("flags", textsOf(description.flagNames));
  report.set("flagBits", description.flags);
  report.set("hashes", hashesOf(description.directories));
  report.set("cdHash", hexadecimal(description.best.cdHash));
  if (description.team) report.set("team", *description.team);
  TKSArray chain;
  for (const CertificateDescription& certificate : description.chain) chain.append(certificateDocument(certificate));
  report.set("chain", chain);
  if (description.signingTime) report.set("signingTime", moment(*description.signingTime));
  if (description.timeStamp) report.set("timeStamp", moment(*description.timeStamp));
  report.set("requirement", description.designatedRequirement);
  report.set("entitlements", description.entitlements);
  report.set("notarizationTicket", description.ticket.has_value());
}

}  // namespace

TKSDictionary signatureReport(const std::string& path, bool deep) {
  TKSDictionary report{{"path", path}, {"deep", deep}};
  Outcome outcome;
  const auto code = codesign::Code::open(path, &outcome);
  if (!code) {
    addOutcome(report, outcome);
    return report;
  }
  addOutcome(report, code->verify(deep ? codesign::Depth::strict : codesign::Depth::plain));
  addMaker(report, std::filesystem::absolute(path).lexically_normal().string());
  addDescription(report, code->describe());
  return report;
}

}  // namespace tks::ctl
