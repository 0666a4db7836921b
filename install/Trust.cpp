#include "install/Trust.h"

#include <cstdint>
#include <memory>
#include <string>

#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "BuildValues.h"
#include "install/SignatureErrors.h"
#include "platform/platform.h"

namespace tks {

bool checkTrustForInstalling(std::string_view path, TKSError* error) {
  // Both are made: neither is taken to see all that the other sees.
  if (!TKSUtilBase::checkTrust(path, error)) return false;
  std::unique_ptr<platform::StaticCode> code;
  std::string details;
  std::int32_t status = platform::signatures().create(path, code);
  if (status == 0) status = code == nullptr ? kInternalComponentError : code->checkForInstalling(details);
  return status == 0 || reportSignatureMessage(signatureStatusMessage(status, details), error);
}

bool isTestMode(bool allowedByBuild) {
  TKSILog::logWithLevel(TKSILogLevelWarning, "Is INSIDER package.");
  const bool labDevice = TKSUtilBase::isLabDevice();
  return allowedByBuild && labDevice;
}

}  // namespace tks

bool TKSUtilBase::checkTrust(std::string_view path, TKSError* error) {
  const TKSURL url = TKSURL::fileURLWithPath(path);
  return KVRXCodeSignUtil::codeSignIsValid(url, error) && KVRXCodeSignUtil::codeSignBelongToTarvo(url, error);
}

bool TKSUtilBase::checkTrustForLaunch(std::string_view path, TKSError* error) {
  if (isTestModeTKS()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Is TEST Mode. Ignore trust check. More info: %@",
                          TKS_TEST_MODE_HELP_URL);
    return true;
  }
  return KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(path), error);
}

bool TKSUtilBase::isTestModeTKS() { return tks::isTestMode(TKS_ALLOW_TEST_MODE != 0); }
