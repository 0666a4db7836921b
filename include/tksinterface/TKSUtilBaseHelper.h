#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>

/// Fingerprints of applications that were found healthy, for the life of the process. Any thread.
class TKS_EXPORT TKSUtilBaseHelper {
 public:
  /// `sharedInstance` The process-wide instance.
  static TKSUtilBaseHelper& sharedInstance();
  /// `appHashDict` Application path, exactly as passed in, to fingerprint: a copy of what is recorded.
  std::map<std::string, std::string> appHashDict() const;

  /// `hasHashValueWithAppPath:` Whether a fingerprint is recorded for the path.
  static bool hasHashValueWithAppPath(std::string_view appPath);
  /// `setHashValueOfAppPath:` Computes the current fingerprint and records it.
  static void setHashValueOfAppPath(std::string_view appPath);
  /// `getHashValueOfAppPath:` The recorded fingerprint, or nothing.
  static std::optional<std::string> getHashValueOfAppPath(std::string_view appPath);
};
