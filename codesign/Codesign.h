#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/hash_type.h"
#include "codesign/container/status.h"
#include "foundation/values/Hexadecimal.h"

// The public face of the signature engine, for tools and for the back end: open, verify, describe, sign. Linux only.
//
//   tks::codesign::Outcome outcome;
//   const std::optional<Code> code = Code::open("/opt/Launcher.app", &outcome);
//   if (code) outcome = code->verify(Depth::strict);
//   if (!outcome.isGood()) std::fprintf(stderr, "%s (%d)\n", outcome.text.c_str(), outcome.status);
//   if (code) for (const CertificateDescription& one : code->describe().chain) std::puts(one.commonName.c_str());
//
// Nothing here throws, but for std::bad_alloc when there is no memory for the answer itself. Everything may be called
// on any thread and blocks while it reads; one Code may be used by several threads. The platform's contracts of
// property lists have to be linked in. docs/codesign.md is the guide.

namespace tks::codesign {

struct AppleRoots;
struct CodeLayout;

/// How a check, or anything else that can fail, ended.
struct Outcome {
  /// The platform's OSStatus number: 0 good, status::kUnsigned and so on (container/status.h).
  Status status = status::kGood;
  /// What the status means, as the platform's tools print it, or what could not be done; empty when it is good, and
  /// for numbers without a text.
  std::string text;
  /// The nested code that it is about; empty for the code itself.
  std::string path;
  /// Resources of the bundle that do not fit its seal, below the folder that the seal covers: the first of each kind.
  std::vector<std::string> added;
  std::vector<std::string> altered;  ///< there, but not as sealed
  std::vector<std::string> missing;  ///< sealed, but not there

  bool isGood() const { return status == status::kGood; }
  /// The reason in one line, as the platform's error describes itself.
  std::string description() const;
};

/// How far a check goes.
enum class Depth {
  /// As the platform checks for all architectures: of nested code its signature, and whether it is the one meant.
  plain,
  /// Nested code as a whole as well, every version of a framework, and everything in the bundle covered or refused: for
  /// code that is about to be installed. Seals of the first version and seals with rules of their own pass when nothing
  /// in the bundle is outside of what they cover.
  strict,
  /// As the platform's assessment judges: nested code as a whole, and no such seal whatever it covers. What a file
  /// browser may have left in the places of the signature and the receipt is not looked for.
  assessing,
};

/// A certificate. Texts are UTF-8, and empty when the certificate has no such field.
struct CertificateDescription {
  std::string commonName;          ///< the name of whom it is for
  std::string organization;        ///< the company
  std::string organizationalUnit;  ///< the team, in certificates of developers
  /// The common name of who issued it.
  std::string issuer;
  /// The serial number in lower-case hexadecimal digits.
  std::string serialNumber;
  /// From when to when it is valid.
  std::time_t notBefore = 0;
  std::time_t notAfter = 0;
  /// The SHA-256 of its DER form in lower-case hexadecimal digits: what pins a root.
  std::string sha256;
  bool isSelfSigned = false;  ///< its issuer is itself, as a root's is
  TKSData der;                ///< the certificate itself in DER form

  bool isValidAt(std::time_t moment) const { return notBefore <= moment && moment <= notAfter; }
};

/// A code directory: the list of hashes that a signature stands for.
struct DirectoryDescription {
  HashType hashType = HashType::sha256;  ///< by which everything in it is hashed
  /// The hash of the directory by its own function: cut to the 20 bytes by which code is known, and in full. Show them
  /// with tks::hexadecimal.
  TKSData cdHash;
  TKSData fullHash;
};

/// One architecture of a Mach-O file.
struct ArchitectureDescription {
  /// "x86_64", "arm64", ...; the numbers for processors without a name.
  std::string name;
  /// Empty when it is not signed, or its signature cannot be read.
  std::vector<DirectoryDescription> directories;
};

/// What a signature says of some code. Nothing in it is a proof: verify() says whether the code is as it was signed.
/// Of a broken signature everything that is still in order is there.
struct Description {
  /// Whether it could be had at all; good for unsigned code as well.
  Outcome outcome;

  /// The file that is signed: a bundle's main executable, or the single file.
  std::string executable;
  /// "app bundle with Mach-O thin (arm64)" and so on; there for unsigned code too.
  std::string format;
  /// By ascending processor type; empty for what is no Mach-O file.
  std::vector<ArchitectureDescription> architectures;

  /// Whether there is a signature that can be read. Without one the rest is empty, but for `signer`.
  bool isSigned = false;
  std::string identifier;   ///< the name by which the code calls itself
  std::uint32_t flags = 0;  ///< of the directory; `flagNames` says what they mean
  /// The flags by the names of the platform's tools: "adhoc", "runtime", ...
  std::vector<std::string> flagNames;
  /// Signed by nobody on purpose: there is no chain then.
  bool isAdHoc = false;
  std::uint8_t platform = 0;         ///< 0: none
  std::uint32_t runtimeVersion = 0;  ///< 0: none
  /// Version of the directories' format, such as 0x20400.
  std::uint32_t directoryVersion = 0;
  /// By ascending hash type. `best` is the one that code is known by.
  std::vector<DirectoryDescription> directories;
  DirectoryDescription best;

  /// How the check of the signer ended: the message over the directories, its attributes, the chain, the time stamp,
  /// one signer for all architectures. Good for code that is signed ad hoc; of code without a signature that can be
  /// read, why it cannot.
  Outcome signer;
  /// Empty when the signature names no team.
  std::optional<std::string> team;
  /// Leaf first; empty unless the signer is good.
  std::vector<CertificateDescription> chain;
  /// When it was signed: as the signer claims, and as a time-stamping authority certifies.
  std::optional<std::time_t> signingTime;
  std::optional<std::time_t> timeStamp;
  /// The message that holds the signature, as it stands there.
  std::optional<TKSData> message;

  /// The requirement by which other code recognises this code; empty when it cannot be told.
  std::string designatedRequirement;
  /// What it would be if the code brought no requirement.
  std::string implicitRequirement;
  /// All that the code brings, a line "designated => ..." each, and as blob.
  std::optional<std::string> requirements;
  TKSData requirementBlob;

  /// The sealed Info.plist; empty unless it is as it was sealed.
  TKSDictionary infoPlist;
  /// Empty unless they are as they were sealed; the blob has a header of eight bytes.
  TKSDictionary entitlements;
  std::optional<TKSData> entitlementsBlob;

  /// The files that a signature is made of.
  std::optional<std::vector<std::string>> files;
  /// The ticket of a notarized bundle, which nothing vouches for here.
  std::optional<TKSData> ticket;
};

/// Code on disk: a bundle, a bundle by its main executable, or a single file. Cheap to copy.
class Code {
 public:
  /// Finds the code at a path; nothing when there is none. `outcome`, when given, receives how it ended. `roots`: those
  /// of the platform's maker when not given; they are copied.
  static std::optional<Code> open(std::string_view path, Outcome* outcome = nullptr, const AppleRoots* roots = nullptr);

  /// Checks the code: each architecture by its signature, its parts and its pages, then the resources, then nested
  /// code. The first thing that is wrong in this order is the outcome.
  Outcome verify(Depth depth = Depth::strict) const;

  /// The strict check, and that all code inside, however deep, was signed by who signed this: by the same certificate,
  /// or one of the same organizational unit below the same root. status::kBadNestedCode and the path of the first code
  /// that was not; status::kRequirementFailed for code that nobody signed.
  Outcome verifyOneSigner() const;

  /// Checks that the code is what a requirement asks for, such as `anchor apple generic and identifier "a.b"`: its
  /// signature as well, but neither pages nor resources. status::kRequirementFailed when it is not,
  /// status::kRequirementInvalid when the text is no requirement.
  Outcome meets(std::string_view requirement) const;

  Description describe() const;

  /// The same under the platform's keys, as the contract of signatures has them (platform/signatures.h). `information`
  /// stays as it is when the outcome is not good.
  Outcome copyInformation(TKSDictionary& information) const;

 private:
  struct Parts;

  explicit Code(std::shared_ptr<const Parts> parts) : parts_(std::move(parts)) {}

  std::shared_ptr<const Parts> parts_;
};

/// The description of a certificate in DER form; nothing when it is malformed.
std::optional<CertificateDescription> describeCertificate(const TKSData& der);

// Signing. These need the library tks_signing; the shared library does not have them.

/// What an identity for tests and development is made of. Names and marks are those that the launcher's checks look
/// for.
struct IdentityPlan {
  std::string team = "T4RV0K0VRA";  ///< the organizational unit of the leaf
  std::string leafName;             ///< "Developer ID Application: Tarvo (TEAM)" when empty
  /// The common name of the authority below the root.
  std::string intermediateName = "Developer ID Certification Authority";
  std::string rootName = "Apple Root CA";  ///< the common name of the root
  std::string organization = "Tarvo";      ///< of the leaf
  /// Further authorities between the root and the intermediate one.
  int extraLevels = 0;
  /// Without an intermediate authority: root and leaf only.
  bool withoutIntermediate = false;
};

/// Where the signature of a file that is no Mach-O image goes.
enum class Storage {
  automatic,   ///< a bundle's folder; a single file's attributes, or the side-car when they do not fit
  attributes,  ///< extended attributes of the file
  sideCar,     ///< an AppleDouble file beside it
  folder,      ///< the bundle's _CodeSignature
};

struct SigningOptions {
  /// Empty: the bundle's identifier, else the file's name.
  std::string identifier;
  /// Empty: the organizational unit of the signer's certificate.
  std::string team;
  /// One directory for each, at least one; the first is the one that the message is over.
  std::vector<HashType> hashTypes{HashType::sha256};
  /// Flags of the directory, such as 0x10000.
  std::uint32_t flags = 0;
  /// A property list in XML form; empty: none.
  std::string entitlements;
  /// The designated requirement as text; empty: none of its own.
  std::string requirement;
  /// When it was signed, as the signer claims; nothing: the signature does not say.
  std::optional<std::time_t> signingTime{};
  /// A time stamp of this moment by the identity's own authority; refused when it has none.
  std::optional<std::time_t> timeStamp{};
  Storage storage = Storage::automatic;  ///< where the signature goes
};

struct SigningParts;

/// Who signs: a key with the chain of its certificate, and perhaps a time-stamping authority. Cheap to copy; never
/// changes. `outcome`, when given, receives what could not be done.
class SigningIdentity {
 public:
  /// Makes keys and certificates.
  static std::optional<SigningIdentity> make(const IdentityPlan& plan, Outcome* outcome = nullptr);
  /// From a folder that save() wrote.
  static std::optional<SigningIdentity> fromFolder(const std::string& folder, Outcome* outcome = nullptr);
  /// From a key and a chain, leaf first, both in PEM form.
  static std::optional<SigningIdentity> fromFiles(const std::string& keyFile, const std::string& chainFile,
                                                  Outcome* outcome = nullptr);
  static std::optional<SigningIdentity> fromPkcs12(const std::string& file, const std::string& password,
                                                   Outcome* outcome = nullptr);

  /// Writes the files key.pem, chain.pem (leaf first), root.pem, tsa-key.pem and tsa.pem to a folder, which is made.
  /// Keys are readable by their owner only.
  Outcome save(const std::string& folder) const;

  /// Leaf first.
  std::vector<CertificateDescription> chain() const;
  /// Whether it has a time-stamping authority of its own.
  bool canStamp() const;

 private:
  friend Outcome sign(const std::string& path, const SigningIdentity* identity, const SigningOptions& options);

  static std::optional<SigningIdentity> from(std::shared_ptr<const SigningParts> parts);
  explicit SigningIdentity(std::shared_ptr<const SigningParts> parts) : parts_(std::move(parts)) {}

  std::shared_ptr<const SigningParts> parts_;
};

/// Signs a bundle, a Mach-O file or any other file in place; code inside of a bundle has to be signed already. A
/// signature that is there is replaced. Without an identity it is signed ad hoc, by nobody.
Outcome sign(const std::string& path, const SigningIdentity* identity, const SigningOptions& options);

}  // namespace tks::codesign
