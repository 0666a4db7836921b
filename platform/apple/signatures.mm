#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <CommonCrypto/CommonDigest.h>
#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "platform/apple/conversions.h"
#include "platform/apple/seal_coverage.h"
#include "platform/backend.h"
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

class AppleStaticCode final : public StaticCode {
 public:
  AppleStaticCode(SecStaticCodeRef code, std::string path) : code_(code), path_(std::move(path)) {}

  std::int32_t checkValidity(std::string& details) override { return check(kSecCSCheckAllArchitectures, details); }

  std::int32_t checkForInstalling(std::string& details) override {
    constexpr SecCSFlags kDeep = kSecCSCheckAllArchitectures | kSecCSCheckNestedCode | kSecCSRestrictSymlinks;
    const std::int32_t status = check(kDeep | kSecCSStrictValidate, details);
    // The form of the seal was good when it was signed. But without the strict check what the seal does not name, and
    // where links lead, would not be looked at.
    const bool isOfOldForm = status == errSecCSWeakResourceEnvelope || status == errSecCSWeakResourceRules;
    if (!isOfOldForm || !apple::sealNamesEverything(path_)) return status;
    details.clear();
    return check(kDeep, details);
  }

  std::int32_t copySigningInformation(TKSDictionary& information) override {
    @autoreleasepool {
      CFDictionaryRef copied = nullptr;
      const OSStatus status = SecCodeCopySigningInformation(code_.get(), kInformationFlags, &copied);
      if (status != errSecSuccess) return status;
      NSDictionary* found = CFBridgingRelease(copied);
      information = TKSDictionary();
      for (NSString* key in found) information.set(apple::fromString(key), fromInformation(key, found[key]));
      return status;
    }
  }

 private:
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

bool hasDigest(const TKSData& certificate, std::string_view hexadecimal) {
  unsigned char digest[CC_SHA256_DIGEST_LENGTH];
  CC_SHA256(certificate.data(), static_cast<CC_LONG>(certificate.size()), digest);
  std::string text;
  for (const unsigned char byte : digest) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return std::equal(text.begin(), text.end(), hexadecimal.begin(), hexadecimal.end(), [](char ours, char theirs) {
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
