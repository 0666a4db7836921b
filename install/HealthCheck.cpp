#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>
#include <tksinterface/TKSUtilBaseHelper.h>

#include "foundation/LimitedTools.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/OutOfMemory.h"
#include "foundation/values/Utf8.h"
#include "install/RunTool.h"
#include "platform/platform.h"

namespace {

using tks::masked;

constexpr std::string_view kNotarizedMark = "Notarized Developer ID";

/// What the tool ends with when it could not look at everything, for lack of memory or of descriptors.
constexpr int kCouldNotLook = 75;

/// The system's assessment of an application, as its tool prints it. Nothing, with a line that says why, without a
/// verdict: the tool is missing, cannot be started or was ended before it was done.
std::optional<std::string> assess(std::string_view appPath) {
  tks::platform::ToolRequest request{tks::platform::Tool::spctl, {"-a", "-vvv", tks::pathArgument(appPath)}};
  request.collectStandardError = true;
  tks::platform::ToolResult result = tks::runWithinLimit(request);
  const std::string output = tks::utf8::isValid(result.output) ? std::move(result.output) : std::string();
  if (result.started && !result.cutShort && result.exitCode != kCouldNotLook) return output;
  const std::string reason = result.exitCode == kCouldNotLook ? output : result.error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "No verdict of spctl, consider the app as not broken: %@. Reason: %@",
                        masked(appPath), masked(reason));
  return std::nullopt;
}

/// Whether a line begins with the path and says that it is accepted, in any letter case. Only the tool's own words
/// count: a path that holds them stands at the beginning as a whole.
bool isAccepted(std::string_view output, std::string_view appPath) {
  tks::platform::Text& text = tks::platform::text();
  const std::string wanted = text.lowerCase(std::string(appPath) + ": accepted");
  const std::string found = text.lowerCase(output);
  for (std::size_t at = found.find(wanted); at != std::string::npos; at = found.find(wanted, at + 1)) {
    if (at == 0 || found[at - 1] == '\n') return true;
  }
  return false;
}

/// The output without what it echoes: the path, and the names of files inside.
std::string withoutEchoes(std::string_view output, std::string_view appPath) {
  std::string rest;
  while (!output.empty()) {
    const std::size_t at = output.find(appPath);
    rest.append(output.substr(0, at));
    if (at == std::string_view::npos) break;
    output.remove_prefix(at + appPath.size());
    if (output.starts_with('/')) output.remove_prefix(std::min(output.find('\n'), output.size()));
  }
  return rest;
}

/// What the lines of a verdict that is not "accepted" say of where an application comes from.
struct Origin {
  bool notarized = false;
  bool makersCertificate = false;
};

Origin originIn(std::string_view output, std::string_view appPath) {
  const std::string told = withoutEchoes(output, appPath);
  Origin origin;
  for (std::string_view rest = told; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    // A line with both marks counts for the first alone.
    if (line.find(kNotarizedMark) != std::string_view::npos) {
      origin.notarized = true;
    } else if (line.find(kTarvoCertificate) != std::string_view::npos) {
      origin.makersCertificate = true;
    }
  }
  return origin;
}

bool isBrokenBy(std::string_view output, std::string_view givenPath) {
  const std::string appPath = tks::pathArgument(givenPath);  // as the tool echoes it
  if (isAccepted(output, appPath)) return false;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Verify result not accepted, go further check");
  const Origin origin = originIn(output, appPath);
  const bool broken = !(origin.notarized && origin.makersCertificate);
  TKSILog::logWithLevel(TKSILogLevelWarning, "Further verify result: %d, %d, %d", broken, origin.notarized,
                        origin.makersCertificate);
  if (broken) TKSILog::logWithLevel(TKSILogLevelError, "Broken details: %@", masked(output));
  return broken;
}

/// Whether the application is what it was when it was found healthy.
bool isAsRecorded(std::string_view appPath) {
  const std::string recorded = TKSUtilBaseHelper::getHashValueOfAppPath(appPath).value_or("");
  if (recorded.empty()) return false;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Has recorded hashValue:%@ with app:%@. Check with it.", recorded,
                        masked(appPath));
  const TKSValue current = TKSUtilBase::hashFilePropertiesWithAppPath(appPath);
  if (current == TKSValue(recorded)) {
    TKSILog::logWithLevel(TKSILogLevelInfo,
                          "Verify app's broken status, end. Matched hashValue. Broken status:%d [0:healthy, 1:broken] "
                          "for app:%@.",
                          0, masked(appPath));
    return true;
  }
  TKSILog::logWithLevel(TKSILogLevelWarning,
                        "Dismatched hashValue, need further check. RecordedHashValue:%@, currentHashValue:%@.",
                        recorded, current);
  return false;
}

bool isBroken(std::string_view appPath) {
  if (!tks::platform::files().exists(appPath)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "App doesn't exist. Consider it broken.");
    return true;
  }
  if (TKSUtilBase::isTestModeTKS()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Is TEST Mode. Ignore app broken check.");
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Verify app's broken status, begin.");
  if (isAsRecorded(appPath)) return false;
  TKSILog::logWithLevel(TKSILogLevelInfo,
                        "No recorded hashValue or dismatched. Continue checking broken status with spctl.");
  const std::optional<std::string> verdict = assess(appPath);
  if (!verdict) return false;
  const bool broken = isBrokenBy(*verdict, appPath);
  TKSILog::logWithLevel(TKSILogLevelInfo,
                        "Verify app's broken status, end. Broken status:%d.[0:healthy, 1:broken] for app: %@.", broken,
                        masked(appPath));
  if (!broken) TKSUtilBaseHelper::setHashValueOfAppPath(appPath);
  return broken;
}

}  // namespace

/// Out of memory there is no verdict either.
bool TKSUtilBase::isBrokenApp(std::string_view appPath) {
  return tks::unlessOutOfMemory([&] { return isBroken(appPath); });
}

std::optional<std::string> TKSUtilBase::hashFilePropertiesWithAppPath(std::string_view appPath) {
  if (!tks::platform::files().exists(appPath)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "App doesn't exist. Nil hash of file properties with app:%@.",
                          masked(appPath));
    return std::nullopt;
  }
  tks::platform::ToolRequest request{tks::platform::Tool::lsof, {"-g", "-o", "-R", tks::pathArgument(appPath)}};
  request.pipedInto = tks::platform::Tool::shasum;
  const std::string output = tks::install::runTool(request).output;
  return std::string(tks::trimmed(output));
}

bool TKSUtilBase::appHaveBeenUsed(std::string_view appPath) {
  return tks::platform::runningApplications().hasLastUsedDate(appPath);
}

bool TKSUtilBase::willShowVerifyDialogFor(std::string_view appPath) {
  return tks::platform::thisProcess().isCatalinaOrLater() && !appHaveBeenUsed(appPath);
}
