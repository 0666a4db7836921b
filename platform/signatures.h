#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks::platform {

/// Code signatures of bundles and files on disk. macOS: static code objects of the Security framework. Linux: an engine
/// of our own over OpenSSL that gives the same statuses. Any thread; blocks while it reads. Statuses are the platform's
/// OSStatus numbers: 0 good, else for example -67062 (not signed).
class StaticCode {
 public:
  /// How the checks before an installation ended.
  struct InstallingVerdict {
    std::int32_t plain = 0;    ///< status of checkValidity
    std::int32_t inDepth = 0;  ///< status of checkForInstalling, which is not asked after a plain one that is not 0
    std::string details;       ///< of the one that is not 0
  };

  virtual ~StaticCode() = default;

  /// Validity for all architectures (kSecCSCheckAllArchitectures, flags 1), of one signer (else -67045), without a
  /// requirement. `details` receives the description of the framework's error when the status is not 0.
  virtual std::int32_t checkValidity(std::string& details) = 0;

  /// For code that is about to be installed, after the check above: nested code as a whole, all versions of frameworks,
  /// no link that leaves the bundle, nothing outside of what is sealed, also where no seal looks (flags as above,
  /// kSecCSCheckNestedCode, kSecCSStrictValidate, kSecCSRestrictSymlinks). Old forms of the seal are no reason to
  /// refuse (-67007, -67013), as long as everything in the bundle is covered.
  virtual std::int32_t checkForInstalling(std::string& details) = 0;

  /// Both checks above, the plain one first. A back end of which the one in depth finds all that the plain one finds
  /// may read the content once for the two; whatever they read is read and hashed in this call.
  virtual InstallingVerdict checkBeforeInstalling() {
    InstallingVerdict verdict;
    verdict.plain = checkValidity(verdict.details);
    if (verdict.plain == 0) verdict.inDepth = checkForInstalling(verdict.details);
    return verdict;
  }

  /// For code that passed the check above: all code inside, however deep, was signed by who signed this code, by the
  /// same certificate or by one of the same organizational unit below the same root. Not met by code that nobody
  /// signed, outside (-67050) or inside (-67021); what the seal covers by its hash alone is no code of its own.
  virtual std::int32_t checkOneSigner(std::string& details) = 0;

  /// The signing information (flags 30: signing, requirements, dynamic and content information). Keys as the platform
  /// names them: "identifier", "teamid", "flags", "format", "unique", "cdhashes", "certificates" (DER data, leaf first,
  /// of the signer of all architectures), "main-executable" (text, file URL), and so on; unsigned code has the last.
  virtual std::int32_t copySigningInformation(TKSDictionary& information) = 0;
};

class Signatures {
 public:
  virtual ~Signatures() = default;
  /// Makes the code object for a bundle or file (SecStaticCodeCreateWithPath, flags 0). `code` is set when the status
  /// is 0.
  virtual std::int32_t create(std::string_view path, std::unique_ptr<StaticCode>& code) = 0;
  /// The common name of a DER certificate (SecCertificateCopyCommonName). `name` is set when the status is 0.
  virtual std::int32_t commonName(const TKSData& certificate, std::string& name) = 0;
  /// The first organizational unit of a DER certificate's subject. `unit` is set when the status is 0.
  virtual std::int32_t organizationalUnit(const TKSData& certificate, std::string& unit) = 0;
  /// Whether a chain (array of DER data, leaf first) leads by good signatures to its last certificate, and that one is
  /// the pinned root: `rootSHA256` is the SHA-256 of its DER form in 64 hexadecimal digits of either case. Dates are
  /// not looked at; the check of the signature itself does that.
  virtual bool leadsToRoot(const TKSArray& chain, std::string_view rootSHA256) = 0;
};

}  // namespace tks::platform
