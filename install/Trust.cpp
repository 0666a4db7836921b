#include "install/Trust.h"

#include <cstdint>
#include <optional>
#include <string>

#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "BuildValues.h"
#include "foundation/Options.h"
#include "foundation/values/ErrorReasons.h"
#include "install/AcceptedVersion.h"
#include "install/ContentCheck.h"
#include "install/SignatureErrors.h"
#include "platform/platform.h"

namespace tks {
namespace {

constexpr std::string_view kIdentifier = "identifier";
constexpr std::string_view kSealedInformation = "info-plist";
constexpr std::string_view kVersion = "CFBundleVersion";

/// What a launcher's signature says of it. Its Info.plist is that of the seal: one that was changed says nothing.
struct SignedFacts {
  std::string identifier;
  std::string version;
};

SignedFacts signedFacts(std::string_view path) {
  const std::optional<TKSDictionary> information =
      KVRXCodeSignUtil::codeSignInfo(TKSURL::fileURLWithPath(path), nullptr);
  if (!information) return {};
  const TKSValue& version = (*information)[kSealedInformation][kVersion];
  return {std::string((*information)[kIdentifier].text()), version.isNothing() ? "" : version.description()};
}

bool checkIdentifier(const SignedFacts& facts, TKSError* error) {
  const std::string& required = options().requiredIdentifier;
  if (required.empty() || facts.identifier == required) return true;
  return reportSignatureMessage(
      formatted("Codesign verify failed, the identifier is not the required one: %@", facts.identifier), error);
}

/// What the options ask of the launcher at a path, beside what is asked of every launcher.
bool meetsOptions(std::string_view path, bool starts, TKSError* error) {
  const TKSOptions& asked = options();
  if (!install::checkContent(path, {asked.checkContent, asked.oneSignerInside}, error)) return false;
  if (asked.requiredIdentifier.empty() && !asked.refuseDowngrades) return true;
  const SignedFacts facts = signedFacts(path);
  if (!checkIdentifier(facts, error)) return false;
  if (!asked.refuseDowngrades) return true;
  if (!install::isNotOlderThanAccepted(path, facts.version, error)) return false;
  if (starts) install::noteAcceptedVersion(path, facts.version);
  return true;
}

bool checkTrustForLaunch(std::string_view path, bool starts, TKSError* error) {
  if (TKSUtilBase::isTestModeTKS()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Is TEST Mode. Ignore trust check. More info: %@",
                          TKS_TEST_MODE_HELP_URL);
    return true;
  }
  return isNotShared(path, platform::Reach::content, error) &&
         KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(path), error) &&
         meetsOptions(path, starts, error);
}

}  // namespace

bool checkTrustForInstalling(std::string_view path, TKSError* error) {
  const install::CheckBeforeInstalling content(path);
  if (!content.passedPlain(error) || !KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(path), error) ||
      !content.passedInDepth(error)) {
    return false;
  }
  // The options are about launchers; a library by itself is none.
  if (!platform::files().isDirectory(path)) return true;
  if (options().oneSignerInside && !install::checkOneSigner(path, error)) return false;
  return options().requiredIdentifier.empty() || checkIdentifier(signedFacts(path), error);
}

bool checkTrustForStart(std::string_view path, TKSError* error) { return checkTrustForLaunch(path, true, error); }

bool isNotShared(std::string_view path, platform::Reach reach, TKSError* error) {
  if (!options().refuseShared) return true;
  TKSError reason;
  const std::optional<std::string> found = platform::files().writableByOthers(path, reach, &reason);
  if (found && found->empty()) return true;
  if (error != nullptr) {
    *error = makeError(TKSErrorReason::notTrusted, TKSUtilErrorDomain, 0,
                       found ? formatted("Others can write to %@", *found)
                             : formatted("Who can write to it can not be told: %@", reason));
  }
  return false;
}

bool isTestMode(bool allowedByBuild) {
  TKSILog::logWithLevel(TKSILogLevelWarning, "Is INSIDER package.");
  const bool labDevice = TKSUtilBase::isLabDevice();
  return allowedByBuild && labDevice && !options().refuseTestMode;
}

}  // namespace tks

bool TKSUtilBase::checkTrust(std::string_view path, TKSError* error) {
  const TKSURL url = TKSURL::fileURLWithPath(path);
  return KVRXCodeSignUtil::codeSignIsValid(url, error) && KVRXCodeSignUtil::codeSignBelongToTarvo(url, error);
}

bool TKSUtilBase::checkTrustForLaunch(std::string_view path, TKSError* error) {
  return tks::checkTrustForLaunch(path, false, error);
}

bool TKSUtilBase::isTestModeTKS() { return tks::isTestMode(TKS_ALLOW_TEST_MODE != 0); }
