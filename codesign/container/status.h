#pragma once

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

// Outcomes of checks, by the platform's numbers. Inside this folder a failed check travels as a thrown Failure, as it
// ends everything up to the operation that was asked for; outcome.h turns it into an outcome there, and nothing leaves
// the folder.

namespace tks::codesign {

using Status = std::int32_t;

namespace status {
inline constexpr Status kGood = 0;
inline constexpr Status kNotEnoughMemory = -108;
inline constexpr Status kBadParameter = -50;
inline constexpr Status kInternalError = -26276;
inline constexpr Status kUnknownFormat = -25257;  ///< the signature does not decode
inline constexpr Status kUnsigned = -67062;
inline constexpr Status kSignatureFailed = -67061;
inline constexpr Status kSignatureUnsupported = -67059;
inline constexpr Status kBadDictionaryFormat = -67058;
inline constexpr Status kResourcesNotFound = -67056;
inline constexpr Status kResourcesInvalid = -67055;
inline constexpr Status kBadResource = -67054;
inline constexpr Status kResourceRulesInvalid = -67053;
inline constexpr Status kRequirementInvalid = -67052;  ///< a text that is no requirement
inline constexpr Status kRequirementFailed = -67050;
inline constexpr Status kBadObjectFormat = -67049;
inline constexpr Status kSignatureInvalid = -67045;
inline constexpr Status kInfoPlistFailed = -67030;
inline constexpr Status kBadBundleFormat = -67028;
inline constexpr Status kResourceDirectoryFailed = -67023;
inline constexpr Status kBadNestedCode = -67021;
inline constexpr Status kUnsealedRoot = -67014;
inline constexpr Status kWeakResourceRules = -67013;
inline constexpr Status kStoreFileIsLink = -67012;
inline constexpr Status kAmbiguousBundle = -67011;
inline constexpr Status kBadFrameworkVersion = -67009;
inline constexpr Status kUnsealedFrameworkRoot = -67008;
inline constexpr Status kWeakResourceEnvelope = -67007;
inline constexpr Status kInvalidLink = -67003;
inline constexpr Status kUnsupportedDigest = -67000;
inline constexpr Status kBadTeamIdentifier = -66997;
inline constexpr Status kNotFound = -67068;

inline constexpr Status kExpired = -2147409654;
inline constexpr Status kNotTrusted = -2147409622;
inline constexpr Status kUnknownCriticalExtension = -2147408895;
inline constexpr Status kInvalidExtendedKeyUsage = -2147408889;
inline constexpr Status kInvalidKeyUsage = -2147408890;

/// A system call that failed.
constexpr Status ofErrno(int number) { return number == ENOEXEC ? kBadObjectFormat : 100000 + number; }
}  // namespace status

/// What a status means, as the platform's tools print it; empty for numbers that have no text.
std::string statusText(Status status);

/// A check that did not pass.
struct Failure {
  Status status = status::kInternalError;  ///< what is wrong
};

[[noreturn]] inline void fail(Status status) { throw Failure{status}; }
[[noreturn]] inline void failByErrno() { throw Failure{status::ofErrno(errno)}; }

}  // namespace tks::codesign
