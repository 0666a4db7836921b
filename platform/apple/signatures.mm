#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <string>
#include <utility>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
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
  explicit AppleStaticCode(SecStaticCodeRef code) : code_(code) {}

  std::int32_t checkValidity(std::string& details) override {
    @autoreleasepool {
      CFErrorRef failure = nullptr;
      const OSStatus status =
          SecStaticCodeCheckValidityWithErrors(code_.get(), kSecCSCheckAllArchitectures, nullptr, &failure);
      NSError* error = CFBridgingRelease(failure);
      if (status != errSecSuccess) details = apple::fromString(error.description);
      return status;
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
      return status;
    }
  }

 private:
  Owned<SecStaticCodeRef> code_;
};

class AppleSignatures final : public Signatures {
 public:
  std::int32_t create(std::string_view path, std::unique_ptr<StaticCode>& code) override {
    @autoreleasepool {
      SecStaticCodeRef created = nullptr;
      const OSStatus status =
          SecStaticCodeCreateWithPath((__bridge CFURLRef)apple::toFileURL(path), kSecCSDefaultFlags, &created);
      if (status == errSecSuccess) code = std::make_unique<AppleStaticCode>(created);
      return status;
    }
  }

  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    @autoreleasepool {
      const Owned<SecCertificateRef> parsed(
          SecCertificateCreateWithData(kCFAllocatorDefault, (__bridge CFDataRef)apple::toData(certificate)));
      if (parsed.get() == nullptr) return errSecDecode;
      CFStringRef copied = nullptr;
      const OSStatus status = SecCertificateCopyCommonName(parsed.get(), &copied);
      NSString* text = CFBridgingRelease(copied);
      if (status == errSecSuccess) name = apple::fromString(text);
      return status;
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
