#include "codesign/signing_information.h"

#include <tksinterface/TKSURL.h>

#include <string>

namespace tks::codesign {
namespace {

TKSValue fileURL(const std::string& path) { return TKSURL::fileURLWithPath(path).absoluteString(); }

void addDirectories(const Description& description, TKSDictionary& information) {
  information.set("identifier", description.identifier);
  information.set("flags", description.flags);
  information.set("source", "embedded");
  information.set("unique", description.best.cdHash);
  information.set("digest-algorithm", static_cast<int>(description.best.hashType));
  if (description.platform != 0) information.set("platform-identifier", description.platform);
  if (description.runtimeVersion != 0) information.set("runtime-version", description.runtimeVersion);

  TKSArray types;
  TKSArray hashes;
  TKSDictionary fullHashes;
  for (const DirectoryDescription& directory : description.directories) {
    const auto number = static_cast<std::uint8_t>(directory.hashType);
    types.append(number);
    hashes.append(directory.cdHash);
    fullHashes.set(std::to_string(number), directory.fullHash);
  }
  information.set("digest-algorithms", types);
  information.set("cdhashes", hashes);
  information.set("cdhashes-full", fullHashes);
}

void addSigner(const Description& description, TKSDictionary& information) {
  if (description.message) information.set("cms", *description.message);
  if (description.team) information.set("teamid", *description.team);
  if (description.chain.empty()) return;
  TKSArray certificates;
  for (const CertificateDescription& certificate : description.chain) certificates.append(certificate.der);
  information.set("certificates", certificates);
  const auto date = [](std::time_t moment) { return TKSDate{static_cast<double>(moment)}; };
  if (description.signingTime) information.set("signing-time", date(*description.signingTime));
  if (description.timeStamp) information.set("signing-timestamp", date(*description.timeStamp));
}

void addRequirements(const Description& description, TKSDictionary& information) {
  if (description.requirements) {
    information.set("requirements", *description.requirements);
    information.set("requirement-data", description.requirementBlob);
  }
  if (description.designatedRequirement.empty()) return;
  information.set("designated-requirement", description.designatedRequirement);
  information.set("implicit-requirement", description.implicitRequirement);
}

void addContents(const Description& description, TKSDictionary& information) {
  if (description.entitlementsBlob) information.set("entitlements", *description.entitlementsBlob);
  if (!description.entitlements.empty()) information.set("entitlements-dict", description.entitlements);
  if (description.files) {
    TKSArray files;
    for (const std::string& path : *description.files) files.append(fileURL(path));
    information.set("changed-files", files);
  }
  if (description.ticket) information.set("stapled-ticket", *description.ticket);
}

}  // namespace

TKSDictionary signingInformation(const Description& description) {
  TKSDictionary information;
  information.set("main-executable", fileURL(description.executable));
  if (!description.isSigned) return information;
  information.set("format", description.format);
  addDirectories(description, information);
  if (!description.infoPlist.empty()) information.set("info-plist", description.infoPlist);
  addSigner(description, information);
  addRequirements(description, information);
  addContents(description, information);
  return information;
}

}  // namespace tks::codesign
