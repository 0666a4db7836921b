#pragma once

#include <optional>
#include <string>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSValue.h>

/// Code signatures of bundles and files on disk. Stateless; any thread; each call waits while the bundle is read.
/// Errors: domain "com.tarvo.kovra.codesign", code 0, the reason in the localized description.
class TKS_EXPORT KVRXCodeSignUtil {
 public:
  /// `codeSignInfo:errorInfo:` The signing information: "identifier", "teamid", "certificates" (array of DER data, leaf
  /// first), "cdhashes" and so on. Nothing, and the message in `errorInfo` (never null), when there is none.
  static std::optional<TKSDictionary> codeSignInfo(const TKSURL& bundleURL, std::string* errorInfo);
  /// `codeSignIsValid:error:` Whether the signature is there and intact, for all architectures.
  static bool codeSignIsValid(const TKSURL& bundleURL, TKSError* error = nullptr);
  /// `codeSignBelongToTarvo:error:` Whether the maker signed it: team and names of the three certificates.
  static bool codeSignBelongToTarvo(const TKSURL& bundleURL, TKSError* error = nullptr);
};
