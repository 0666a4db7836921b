#include "codesign/container/status.h"

#include "platform/posix/posix_error.h"

namespace tks::codesign {
namespace {

struct StatusText {
  Status status;
  std::string_view text;
};
constexpr StatusText kTexts[] = {
    {status::kUnsigned, "code object is not signed at all"},
    {status::kSignatureFailed, "invalid signature (code or signature have been modified)"},
    {status::kSignatureUnsupported, "unsupported type or version of signature"},
    {status::kBadDictionaryFormat, "a required plist file or resource is malformed"},
    {status::kResourcesNotFound, "code has no resources but signature indicates they must be present"},
    {status::kResourcesInvalid, "the sealed resource directory is invalid"},
    {status::kBadResource, "a sealed resource is missing or invalid"},
    {status::kResourceRulesInvalid, "invalid resource specification rule(s)"},
    {status::kRequirementInvalid, "invalid or corrupted code requirement(s)"},
    {status::kRequirementFailed, "code failed to satisfy specified code requirement(s)"},
    {status::kBadObjectFormat, "object file format unrecognized, invalid, or unsuitable"},
    {status::kSignatureInvalid, "invalid or unsupported format for signature"},
    {status::kInfoPlistFailed, "invalid Info.plist (plist or signature have been modified)"},
    {status::kBadBundleFormat, "bundle format unrecognized, invalid, or unsuitable"},
    {status::kResourceDirectoryFailed, "invalid resource directory (directory or signature have been modified)"},
    {status::kBadNestedCode, "nested code is modified or invalid"},
    {status::kUnsealedRoot, "unsealed contents present in the bundle root"},
    {status::kWeakResourceRules, "resource envelope is obsolete (custom omit rules)"},
    {status::kStoreFileIsLink, "unsealed symbolic link in place of a .DS_Store file"},
    {status::kAmbiguousBundle, "bundle format is ambiguous (could be app or framework)"},
    {status::kBadFrameworkVersion, "embedded framework contains modified or invalid version"},
    {status::kUnsealedFrameworkRoot, "unsealed contents present in the root directory of an embedded framework"},
    {status::kWeakResourceEnvelope, "resource envelope is obsolete (version 1 signature)"},
    {status::kInvalidLink, "invalid destination for symbolic link in bundle"},
    {status::kUnsupportedDigest, "code object has unsupported digest algorithm"},
    {status::kBadTeamIdentifier, "the team identifier in the signature does not match the certificate"},
    {status::kNotFound, "cannot find code object on disk"},
    {status::kUnknownFormat, "Unknown format in import."},
    {status::kExpired, "CSSMERR_TP_CERT_EXPIRED"},
    {status::kNotTrusted, "CSSMERR_TP_NOT_TRUSTED"},
    {status::kUnknownCriticalExtension, "CSSMERR_APPLETP_UNKNOWN_CRITICAL_EXTEN"},
    {status::kInvalidExtendedKeyUsage, "CSSMERR_APPLETP_INVALID_EXTENDED_KEY_USAGE"},
    {status::kInvalidKeyUsage, "CSSMERR_APPLETP_INVALID_KEY_USAGE"},
};
constexpr Status kFirstErrno = 100000;
constexpr Status kLastErrno = 100255;

}  // namespace

std::string statusText(Status status) {
  for (const StatusText& known : kTexts) {
    if (known.status == status) return std::string(known.text);
  }
  if (status > kFirstErrno && status <= kLastErrno) return posix::reasonText(status - kFirstErrno);
  return {};
}

}  // namespace tks::codesign
