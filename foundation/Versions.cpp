#include "foundation/Versions.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/IntegerValue.h"
#include "platform/platform.h"

// Versions as texts: "44.10.1", "4.2 (10)", "V4-2".

namespace {

constexpr bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

bool isAllDigits(std::string_view text) { return std::all_of(text.begin(), text.end(), isDigit); }

/// Whether something is left besides digits once the usual separators are taken out.
bool hasUnusualCharacters(std::string_view version) {
  return std::any_of(version.begin(), version.end(),
                     [](char byte) { return !isDigit(byte) && byte != ' ' && byte != ',' && byte != '.'; });
}

/// Versions with different numbers of parts: a change of format counts as an update.
bool isNewerByFormat(std::string_view candidate, std::size_t candidateParts, std::size_t localParts) {
  if (hasUnusualCharacters(candidate)) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Version format different, and contains more parts, consider as newer version.");
    return candidateParts > localParts;
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Version format different, consider as newer version.");
  return true;
}

}  // namespace

namespace tks::versions {

std::vector<std::string> parts(std::string_view version) {
  std::vector<std::string> found;
  bool inPart = false;
  for (const char byte : version) {
    if (byte == ' ') continue;
    if (isDigit(byte)) {
      if (!inPart) found.emplace_back();
      found.back() += byte;
    }
    inPart = isDigit(byte);
  }
  return found;
}

bool isNewerByParts(const std::vector<std::string>& candidate, const std::vector<std::string>& local) {
  for (std::size_t i = 0; i < std::min(candidate.size(), local.size()); ++i) {
    if (isAllDigits(candidate[i]) && isAllDigits(local[i])) {
      const std::int32_t number = integerValue(std::string_view(candidate[i]));
      const std::int32_t localNumber = integerValue(std::string_view(local[i]));
      if (number != localNumber) return number > localNumber;
    } else if (candidate[i] != local[i]) {
      // Not reached by versions that parts() took apart.
      TKSILog::logWithLevel(TKSILogLevelWarning,
                            "Version contains non digits, consider as newer version when version string different.");
      return platform::text().compareNumerically(candidate[i], local[i]) > 0;
    }
  }
  return false;
}

}  // namespace tks::versions

bool TKSUtilBase::isNewerVersion(std::string_view newVersion, std::string_view localVersion) {
  if (newVersion == localVersion) return false;
  if (newVersion.empty() || localVersion.empty()) return true;
  const std::vector<std::string> parts = tks::versions::parts(newVersion);
  const std::vector<std::string> localParts = tks::versions::parts(localVersion);
  if (parts.size() != localParts.size()) return isNewerByFormat(newVersion, parts.size(), localParts.size());
  return tks::versions::isNewerByParts(parts, localParts);
}
