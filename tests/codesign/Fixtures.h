#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "codesign/container/digest.h"
#include "codesign/signing/directory_writer.h"
#include "codesign/signing/identity.h"
#include "codesign/signing/mach_o_writer.h"
#include "codesign/signing/signer.h"
#include "codesign/static_code.h"
#include "codesign/trust/certificates.h"
#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

/// An identity that is made once for all tests of the program.
inline const signing::Identity& identity(const std::string& kind = "maker") {
  static auto& made = *new std::map<std::string, signing::Identity>;
  const auto found = made.find(kind);
  if (found != made.end()) return found->second;
  signing::IdentityPlan plan;
  plan.rsa = false;
  if (kind == "other team") plan.team = "OTHERTEAM1";
  if (kind == "named alike") {  // another team, with the maker's name
    plan.team = "OTHERTEAM1";
    plan.leafName = "Developer ID Application: Tarvo (T4RV0K0VRA)";
  }
  if (kind == "two levels") plan.withoutIntermediate = true;
  if (kind == "four levels") plan.extraLevels = 1;
  if (kind == "other usage") plan.codeSigningUsage = false;
  if (kind == "no signing") plan.digitalSignature = false;
  if (kind == "unknown extension") plan.unknownCriticalExtension = true;
  if (kind == "no authority") plan.intermediateIsAuthority = false;
  if (kind == "other leaf name") plan.leafName = "Developer ID Application: Tarvo (OTHERTEAM1)";
  if (kind == "expired") {
    plan.notBefore = 1500000000;
    plan.notAfter = 1600000000;
  }
  return made.emplace(kind, signing::makeIdentity(plan)).first->second;
}

inline std::string infoPlist(std::string_view executable, std::string_view package = "APPL") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" +
         std::string(executable) + "</string><key>CFBundleIdentifier</key><string>com.tarvo." +
         std::string(executable) + "</string><key>CFBundlePackageType</key><string>" + std::string(package) +
         "</string></dict></plist>\n";
}

inline void writeBytes(const std::string& path, const TKSData& bytes) {
  writeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

inline TKSData bytesIn(const std::string& path) {
  const std::string content = contentOf(path);
  return {content.begin(), content.end()};
}

/// An application of a folder's own, unsigned.
inline std::string makeApp(const std::string& path, const TKSData& executable) {
  const std::string name = std::filesystem::path(path).stem().string();
  writeFile(path + "/Contents/Info.plist", infoPlist(name));
  writeBytes(path + "/Contents/MacOS/" + name, executable);
  writeFile(path + "/Contents/Resources/notes.txt", "notes");
  writeFile(path + "/Contents/Resources/en.lproj/A.strings", "strings");
  std::filesystem::create_symlink("notes.txt", path + "/Contents/Resources/link");
  return path;
}

/// A Mach-O image of a kind: 2 a program, 6 a library, 8 a bundle.
inline TKSData imageOf(std::uint32_t fileType) {
  signing::ImagePlan plan;
  plan.fileType = fileType;
  return signing::makeImage(plan);
}

inline TKSData elfProgram() {
  TKSData bytes(5000, 7);
  bytes[0] = 0x7f;
  bytes[1] = 'E';
  bytes[2] = 'L';
  bytes[3] = 'F';
  return bytes;
}

inline void signAs(const std::string& path, const std::string& kind = "maker",
                   const std::function<void(signing::SigningOptions&)>& adjust = {}) {
  signing::SigningOptions options;
  if (kind != "nobody") options.identity = &identity(kind);
  if (adjust) adjust(options);
  signing::sign(path, options);
}

/// Gives an application of `elfProgram()` a seal, and a directory by nobody over it; the Info.plist counts on demand.
inline void sealAs(const std::string& app, const TKSData& seal, bool withInfoPlist = false) {
  const std::string parts = app + "/Contents/_CodeSignature/";
  writeBytes(parts + "CodeResources", seal);
  signing::DirectoryPlan plan;
  plan.identifier = "a";
  plan.flags = 2;
  plan.pageSizeLog = 0;
  if (withInfoPlist) plan.components[1] = bytesIn(app + "/Contents/Info.plist");
  plan.components[3] = seal;
  writeBytes(parts + "CodeDirectory", signing::makeDirectory(plan, elfProgram()));
}

inline void sealAs(const std::string& app, std::string_view seal) { sealAs(app, TKSData(seal.begin(), seal.end())); }

/// Roots of the test identities in place of the platform maker's.
inline codesign::AppleRoots rootsOf(const signing::Identity& whose) {
  codesign::AppleRoots roots;
  const TKSData der = codesign::derOf(whose.chain.back().get());
  const codesign::Digest digest = codesign::hashOf(codesign::ByteSource(der), codesign::HashType::sha256);
  std::array<std::uint8_t, 32> bytes{};
  std::copy_n(digest.storage.begin(), bytes.size(), bytes.begin());
  roots.digests.push_back(bytes);
  return roots;
}

/// The status of creating and then checking code.
inline std::int32_t statusOf(const std::string& path, std::string* details = nullptr,
                             platform::Signatures& signatures = platform::signatures()) {
  std::unique_ptr<platform::StaticCode> code;
  if (const std::int32_t created = signatures.create(path, code); created != 0) return created;
  std::string unused;
  return code->checkValidity(details != nullptr ? *details : unused);
}

/// Also that both checks in one reading say what each of them says.
inline std::int32_t installStatusOf(const std::string& path) {
  std::unique_ptr<platform::StaticCode> code;
  if (const std::int32_t created = platform::signatures().create(path, code); created != 0) return created;
  std::string plainDetails;
  const std::int32_t plain = code->checkValidity(plainDetails);
  std::string details;
  const std::int32_t status = code->checkForInstalling(details);
  const platform::StaticCode::InstallingVerdict both = code->checkBeforeInstalling();
  if (both.plain != plain || both.inDepth != (plain == 0 ? status : 0) ||
      both.details != (plain == 0 ? details : plainDetails)) {
    throw std::logic_error("in one reading the checks of " + path + " say something else");
  }
  return status;
}

inline TKSDictionary informationOf(const std::string& path, platform::Signatures& signatures = platform::signatures()) {
  std::unique_ptr<platform::StaticCode> code;
  TKSDictionary information;
  if (signatures.create(path, code) == 0) code->copySigningInformation(information);
  return information;
}

/// Changes one byte of a file.
inline void flip(const std::string& path, std::size_t at, std::uint8_t mask = 1) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(static_cast<std::streamoff>(at));
  const char byte = static_cast<char>(file.get() ^ mask);
  file.seekp(static_cast<std::streamoff>(at));
  file.put(byte);
}

inline void append(const std::string& path, std::string_view text) {
  std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

}  // namespace tks::test
