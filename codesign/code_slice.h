#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/code_directory.h"
#include "codesign/container/code_layout.h"
#include "codesign/container/signature_components.h"
#include "codesign/container/status.h"
#include "codesign/requirement/requirement.h"
#include "codesign/trust/certificates.h"
#include "codesign/trust/cms_signature.h"

namespace tks::codesign {

/// The signature of one architecture of some code. Reads each part when it is first asked for, and remembers how that
/// ended; every member fails when what it needs is not in order. Used by one thread.
class CodeSlice {
 public:
  /// The arguments have to outlive this.
  CodeSlice(const CodeLayout& layout, std::size_t slice, const AppleRoots& roots);

  /// Its number among the architectures of the code.
  std::size_t number() const { return slice_; }

  /// The code directories, by themselves consistent. Fails with "unsigned" when there are none.
  const DirectorySet& directories();
  /// Whether there are directories that can be read.
  bool isSigned();

  /// Checks who signed the directories, unless they are signed by nobody on purpose.
  void checkSigner();
  /// The same; who it was. Nothing for code that is signed ad hoc.
  const std::optional<Signer>& signer();
  /// The message that holds the signature; fails with "unsigned" when there is none. Not checked.
  TKSData signatureMessage();

  /// A part of the signature that is sealed and as sealed; nothing when it is not sealed.
  std::optional<ByteSource> component(std::uint32_t slot);
  /// All special slots but the resources' one.
  void checkComponents();
  /// The list of parts that must exist, when there is one.
  void checkTopDirectory();
  void checkCodePages();
  /// Nothing follows what is signed.
  void checkNothingFollows();
  /// The signature seals the Info.plist and the resources of the bundle as they are: code of a bundle may leave them
  /// out.
  void checkBundleIsSealed();
  /// Another architecture of the same code is signed by the same signer, or neither is by anybody.
  void checkSameSigner(CodeSlice& other);
  void checkRequirement(const Requirement& requirement);

  /// What requirements are compared with.
  RequirementContext requirementContext();
  TKSDictionary infoPlist();
  TKSDictionary entitlements();
  std::vector<std::string> files() const { return components_.files(); }
  /// Names of the parts in the signature's folder that count: what else lies there is no part of this signature.
  std::vector<std::string_view> countedFiles();

 private:
  void loadDirectories();
  bool addDirectory(std::uint32_t slot);
  bool isAdHoc();
  Status failureOf(std::uint32_t slot) const;

  const CodeLayout& layout_;
  std::size_t slice_;
  const AppleRoots& roots_;
  SignatureComponents components_;
  bool loaded_ = false;
  DirectorySet directories_;
  std::optional<Failure> loadFailure_;
  bool signerChecked_ = false;
  std::optional<Failure> signerFailure_;
  std::optional<Signer> signer_;
};

}  // namespace tks::codesign
