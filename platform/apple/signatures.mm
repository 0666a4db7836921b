#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <CommonCrypto/CommonDigest.h>
#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/values/Hexadecimal.h"
#include "platform/apple/code_inside.h"
#include "platform/apple/conversions.h"
#include "platform/apple/seal_coverage.h"
#include "platform/apple/signature_folders.h"
#include "platform/backend.h"
#include "platform/posix/bundle_links.h"
#include "platform/posix/paths.h"
#include "platform/signatures.h"

namespace tks::platform {
namespace {

/// Owns an object of a framework.
template <class Reference>
class Owned {
 public:
  explicit Owned(Reference object = nullptr) : object_(object) {}
  Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Owned& operator=(Owned&&) = delete;
  ~Owned() {
    if (object_ != nullptr) CFRelease(object_);
  }
  Reference get() const { return object_; }

 private:
  Reference object_;
};

constexpr SecCSFlags kInformationFlags =
    kSecCSSigningInformation | kSecCSRequirementInformation | kSecCSDynamicInformation | kSecCSContentInformation;
static_assert(kInformationFlags == 30);

/// What of the signing information has a form of its own outside the framework.
TKSValue fromInformation(NSString* key, id object) {
  if ([key isEqualToString:(__bridge NSString*)kSecCodeInfoCertificates]) {
    TKSArray certificates;
    for (id certificate in static_cast<NSArray*>(object)) {
      NSData* der = CFBridgingRelease(SecCertificateCopyData((__bridge SecCertificateRef)certificate));
      certificates.append(apple::fromData(der));
    }
    return certificates;
  }
  if ([object isKindOfClass:NSURL.class]) return apple::fromString([object absoluteString]);
  return apple::fromObject(object);
}

/// A certificate as the language of requirements names it.
std::string hashTextOf(id certificate) {
  NSData* der = CFBridgingRelease(SecCertificateCopyData((__bridge SecCertificateRef)certificate));
  unsigned char digest[CC_SHA1_DIGEST_LENGTH];
  CC_SHA1(der.bytes, static_cast<CC_LONG>(der.length), digest);
  return "H\"" + hexadecimal({digest, sizeof digest}) + "\"";
}

/// One of the properties that the framework takes apart: its value, or nil.
id propertyOf(SecCertificateRef certificate, CFStringRef key) {
  NSDictionary* values = CFBridgingRelease(
      SecCertificateCopyValues(certificate, (__bridge CFArrayRef) @[ (__bridge NSString*)key ], nullptr));
  return values[(__bridge NSString*)key][(__bridge NSString*)kSecPropertyKeyValue];
}

/// The first organizational unit of the subject, or nil.
NSString* unitOf(SecCertificateRef certificate) {
  for (NSDictionary* part in propertyOf(certificate, kSecOIDX509V1SubjectName)) {
    if ([part[(__bridge NSString*)kSecPropertyKeyLabel] isEqual:(__bridge NSString*)kSecOIDOrganizationalUnitName]) {
      return part[(__bridge NSString*)kSecPropertyKeyValue];
    }
  }
  return nil;
}

/// What all code of one maker meets: the same leaf, or the same root and organizational unit.
Owned<SecRequirementRef> requirementOf(NSArray* certificates) {
  std::string text = "certificate leaf = " + hashTextOf(certificates.firstObject);
  NSString* unit = unitOf((__bridge SecCertificateRef)certificates.firstObject);
  if (unit != nil && [unit rangeOfString:@"\""].location == NSNotFound &&
      [unit rangeOfString:@"\\"].location == NSNotFound) {
    text += " or (certificate root = " + hashTextOf(certificates.lastObject) +
            " and certificate leaf[subject.OU] = \"" + apple::fromString(unit) + "\")";
  }
  SecRequirementRef created = nullptr;
  if (SecRequirementCreateWithString((__bridge CFStringRef)apple::toString(text), kSecCSDefaultFlags, &created) !=
      errSecSuccess) {
    created = nullptr;
  }
  return Owned<SecRequirementRef>(created);
}

class AppleStaticCode final : public StaticCode {
 public:
  AppleStaticCode(SecStaticCodeRef code, std::string path) : code_(code), path_(std::move(path)) {}

  std::int32_t checkValidity(std::string& details) override {
    const std::int32_t status = check(kSecCSCheckAllArchitectures, details);
    if (status != errSecSuccess || hasOneSigner()) return status;
    details = "The architectures are not of one signer.";
    return errSecCSSignatureInvalid;
  }

  std::int32_t checkForInstalling(std::string& details) override {
    // Before anything is read through them.
    if (const std::optional<std::string> link = posix::findLinkOut(path_)) {
      details = "A link leads out of the bundle: " + *link;
      return errSecCSInvalidSymlink;
    }
    if (!apple::holdsOnlyPartsOfSignatures(path_)) {
      details = "Beside the parts of a signature there is something else.";
      return errSecCSBadResource;
    }
    constexpr SecCSFlags kDeep = kSecCSCheckAllArchitectures | kSecCSCheckNestedCode | kSecCSRestrictSymlinks;
    const std::int32_t status = check(kDeep | kSecCSStrictValidate, details);
    // The form of the seal was good when it was signed. But without the strict check what the seal does not name, and
    // where links lead, would not be looked at.
    const bool isOfOldForm = status == errSecCSWeakResourceEnvelope || status == errSecCSWeakResourceRules;
    if (!isOfOldForm || !apple::sealNamesEverything(path_)) return status;
    details.clear();
    return check(kDeep, details);
  }

  std::int32_t checkOneSigner(std::string& details) override {
    @autoreleasepool {
      NSArray* certificates = certificatesOf(code_.get());
      const Owned<SecRequirementRef> sameMaker(certificates.count == 0 ? Owned<SecRequirementRef>()
                                                                       : requirementOf(certificates));
      if (sameMaker.get() == nullptr) {
        details = "Nobody signed the code.";
        return errSecCSReqFailed;
      }
      const std::optional<std::vector<std::string>> inside = apple::codeInside(path_);
      if (!inside) {
        details = "The bundle cannot be looked through.";
        return kPOSIXErrorBase + errno;
      }
      for (const std::string& path : *inside) {
        if (isSealedAlone(path) || meets(path, sameMaker.get())) continue;
        details = "Code inside is not of the same signer: " + path;
        return errSecCSBadNestedCode;
      }
      return errSecSuccess;
    }
  }

  std::int32_t copySigningInformation(TKSDictionary& information) override {
    @autoreleasepool {
      CFDictionaryRef copied = nullptr;
      const OSStatus status = SecCodeCopySigningInformation(code_.get(), kInformationFlags, &copied);
      if (status != errSecSuccess) return status;
      NSDictionary* found = CFBridgingRelease(copied);
      information = TKSDictionary();
      for (NSString* key in found) information.set(apple::fromString(key), fromInformation(key, found[key]));
      // They are shown for all of the code: whoever asks goes by them for every architecture.
      if (!hasOneSigner()) information.erase("certificates");
      return status;
    }
  }

 private:
  static NSArray* certificatesOf(SecStaticCodeRef code) {
    CFDictionaryRef copied = nullptr;
    if (SecCodeCopySigningInformation(code, kSecCSSigningInformation, &copied) != errSecSuccess) return nil;
    NSDictionary* information = CFBridgingRelease(copied);
    return information[(__bridge NSString*)kSecCodeInfoCertificates];
  }

  static Owned<SecStaticCodeRef> codeAt(const std::string& path) {
    SecStaticCodeRef created = nullptr;
    const OSStatus status =
        SecStaticCodeCreateWithPath((__bridge CFURLRef)apple::toFileURL(path), kSecCSDefaultFlags, &created);
    return Owned<SecStaticCodeRef>(status == errSecSuccess ? created : nullptr);
  }

  static OSStatus signerStatus(const std::string& path, SecRequirementRef requirement) {
    constexpr SecCSFlags kSignerAlone = kSecCSCheckAllArchitectures | kSecCSBasicValidateOnly;
    const Owned<SecStaticCodeRef> code = codeAt(path);
    return code.get() == nullptr ? errSecCSBadObjectFormat
                                 : SecStaticCodeCheckValidity(code.get(), kSignerAlone, requirement);
  }

  /// An image without a signature in it is a resource: the seal around it has its hash, and so its signer's word.
  static bool isSealedAlone(const std::string& path) { return signerStatus(path, nullptr) == errSecCSUnsigned; }
  static bool meets(const std::string& path, SecRequirementRef requirement) {
    return signerStatus(path, requirement) == errSecSuccess;
  }

  /// Whether the signer of the architecture that answers questions has signed all of them. True when nobody has signed
  /// this one: then there is nobody to be taken for the signer. Of universal code the framework looks at the Info.plist
  /// on the way, so that such code with an altered one has no signer that could be told.
  bool hasOneSigner() const {
    @autoreleasepool {
      CFDictionaryRef copied = nullptr;
      if (SecCodeCopySigningInformation(code_.get(), kSecCSSigningInformation, &copied) != errSecSuccess) return false;
      NSDictionary* information = CFBridgingRelease(copied);
      NSArray* certificates = information[(__bridge NSString*)kSecCodeInfoCertificates];
      NSString* format = information[(__bridge NSString*)kSecCodeInfoFormat];
      if (certificates.count == 0 || [format rangeOfString:@"universal"].location == NSNotFound) return true;
      const Owned<SecRequirementRef> sameMaker = requirementOf(certificates);
      constexpr SecCSFlags kSignerAlone = kSecCSCheckAllArchitectures | kSecCSBasicValidateOnly;
      return sameMaker.get() != nullptr &&
             SecStaticCodeCheckValidity(code_.get(), kSignerAlone, sameMaker.get()) == errSecSuccess;
    }
  }

  std::int32_t check(SecCSFlags flags, std::string& details) {
    @autoreleasepool {
      CFErrorRef failure = nullptr;
      const OSStatus status = SecStaticCodeCheckValidityWithErrors(code_.get(), flags, nullptr, &failure);
      NSError* error = CFBridgingRelease(failure);
      if (status != errSecSuccess) details = apple::fromString(error.description);
      return status;
    }
  }

  Owned<SecStaticCodeRef> code_;
  std::string path_;
};

Owned<SecCertificateRef> parse(const TKSData& certificate) {
  return Owned<SecCertificateRef>(
      SecCertificateCreateWithData(kCFAllocatorDefault, (__bridge CFDataRef)apple::toData(certificate)));
}

bool hasDigest(const TKSData& certificate, std::string_view expected) {
  unsigned char digest[CC_SHA256_DIGEST_LENGTH];
  CC_SHA256(certificate.data(), static_cast<CC_LONG>(certificate.size()), digest);
  const std::string text = hexadecimal({digest, sizeof digest});
  return std::equal(text.begin(), text.end(), expected.begin(), expected.end(), [](char ours, char theirs) {
    return ours == (theirs >= 'A' && theirs <= 'F' ? theirs + 32 : theirs);
  });
}

/// Whether the chain that was evaluated is the one that was given, and not another that leads to the same end.
bool isChain(SecTrustRef trust, NSArray* certificates) {
  if (SecTrustGetCertificateCount(trust) != static_cast<CFIndex>(certificates.count)) return false;
  for (NSUInteger i = 0; i < certificates.count; ++i) {
    SecCertificateRef found = SecTrustGetCertificateAtIndex(trust, static_cast<CFIndex>(i));
    if (found == nullptr || !CFEqual(found, (__bridge CFTypeRef)certificates[i])) return false;
  }
  return true;
}

/// Evaluates a chain at a moment when its leaf was valid, with its last certificate as the only anchor.
bool leadsToLast(NSArray* certificates) {
  const Owned<SecPolicyRef> policy(SecPolicyCreateBasicX509());
  SecTrustRef created = nullptr;
  if (SecTrustCreateWithCertificates((__bridge CFArrayRef)certificates, policy.get(), &created) != errSecSuccess) {
    return false;
  }
  const Owned<SecTrustRef> trust(created);
  SecTrustSetAnchorCertificates(trust.get(), (__bridge CFArrayRef) @[ certificates.lastObject ]);
  SecTrustSetAnchorCertificatesOnly(trust.get(), true);
  SecTrustSetNetworkFetchAllowed(trust.get(), false);
  NSNumber* validFrom =
      propertyOf((__bridge SecCertificateRef)certificates.firstObject, kSecOIDX509V1ValidityNotBefore);
  NSDate* moment = [NSDate dateWithTimeIntervalSinceReferenceDate:validFrom.doubleValue + 1];
  SecTrustSetVerifyDate(trust.get(), (__bridge CFDateRef)moment);
  return SecTrustEvaluateWithError(trust.get(), nullptr) && isChain(trust.get(), certificates);
}

class AppleSignatures final : public Signatures {
 public:
  std::int32_t create(std::string_view path, std::unique_ptr<StaticCode>& code) override {
    // No path at all would stand for the working folder.
    if (!posix::isPath(path)) return kPOSIXErrorBase + errno;
    @autoreleasepool {
      SecStaticCodeRef created = nullptr;
      const OSStatus status =
          SecStaticCodeCreateWithPath((__bridge CFURLRef)apple::toFileURL(path), kSecCSDefaultFlags, &created);
      if (status == errSecSuccess) code = std::make_unique<AppleStaticCode>(created, std::string(path));
      return status;
    }
  }

  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    @autoreleasepool {
      const Owned<SecCertificateRef> parsed = parse(certificate);
      if (parsed.get() == nullptr) return errSecDecode;
      CFStringRef copied = nullptr;
      const OSStatus status = SecCertificateCopyCommonName(parsed.get(), &copied);
      NSString* text = CFBridgingRelease(copied);
      if (status == errSecSuccess) name = apple::fromString(text);
      return status;
    }
  }

  std::int32_t organizationalUnit(const TKSData& certificate, std::string& unit) override {
    @autoreleasepool {
      const Owned<SecCertificateRef> parsed = parse(certificate);
      NSString* found = parsed.get() == nullptr ? nil : unitOf(parsed.get());
      if (found == nil) return errSecDecode;
      unit = apple::fromString(found);
      return errSecSuccess;
    }
  }

  bool leadsToRoot(const TKSArray& chain, std::string_view rootSHA256) override {
    @autoreleasepool {
      NSMutableArray* certificates = [NSMutableArray array];
      for (const TKSValue& der : chain) {
        const Owned<SecCertificateRef> parsed = parse(der.data());
        if (parsed.get() == nullptr) return false;
        [certificates addObject:(__bridge id)parsed.get()];
      }
      if (certificates.count == 0) return false;
      return hasDigest(chain[chain.size() - 1].data(), rootSHA256) && leadsToLast(certificates);
    }
  }
};

}  // namespace

template <>
Signatures& backend<Signatures>() {
  static auto& signatures = *new AppleSignatures;
  return signatures;
}

}  // namespace tks::platform
