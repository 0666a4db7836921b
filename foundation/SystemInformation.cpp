#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <string>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/LimitedTools.h"
#include "foundation/SystemInformation.h"
#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/Utf8.h"
#include "platform/platform.h"

// What the rest of the library wants to know of the machine and its user.

std::string gDeviceCPUInfo;

namespace {

constexpr std::string_view kLocaleKey = "AppleLocale";
constexpr std::string_view kFallbackLocale = "en_US";
constexpr std::uint64_t kMegabyte = 1'000'000;
/// At most this many free bytes are worth a warning.
constexpr std::uint64_t kFewBytes = 999'999'999;

/// Guards gDeviceCPUInfo, which is written once.
std::mutex deviceInfoMutex;

bool findOutProcessor() {
  tks::platform::ToolRequest request;
  request.tool = tks::platform::Tool::sysctl;
  request.arguments = {"-n", "machdep.cpu.brand_string"};
  const tks::platform::ToolResult result = tks::runWithinLimit(request);
  if (!result.started) {
    TKSILog::logWithLevel(TKSILogLevelError, "Device arch info is not to be had: %@", tks::masked(result.error));
    return false;
  }
  const TKSValue brand = tks::utf8::isValid(result.output) ? TKSValue(result.output) : TKSValue();
  {
    const std::scoped_lock lock(deviceInfoMutex);
    gDeviceCPUInfo = brand.text();
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Device arch info: %@", brand);
  return tks::platform::text().lowerCase(brand.text()).find("apple") != std::string::npos;
}

}  // namespace

std::string TKSUtilBase::getSystemLanguage() {
  const TKSValue locale = tks::platform::preferences().value(kLocaleKey);
  if (!locale.text().empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "System default language: %@", locale);
    return std::string(locale.text());
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Fail to get system locale language, set it to en_US");
  return std::string(kFallbackLocale);
}

std::string TKSUtilBase::createUUID() {
  return tks::platform::text().lowerCase(tks::platform::thisProcess().randomUUID());
}

bool TKSUtilBase::isLabDevice() {
  const TKSValue value = getPreference({std::string(TKSUserDefaultsKeyIsLabDevice)});
  if (value.isNothing()) return false;
  if (!value.isNumber()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Type incorrect (%@) for key: %@", tks::masked(value),
                          TKSUserDefaultsKeyIsLabDevice);
    return false;
  }
  if (!value.boolean()) return false;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Is Lab Device.");
  return true;
}

std::optional<std::string> TKSUtilBase::getDeviceInfo() {
  const std::scoped_lock lock(deviceInfoMutex);
  return gDeviceCPUInfo.empty() ? std::nullopt : std::optional(gDeviceCPUInfo);
}

std::optional<std::string> TKSUtilBase::formatedSize(const TKSValue& number) {
  if (!number.isNumber()) return std::nullopt;
  return tks::platform::text().decimal(number);
}

TKSDictionary TKSUtilBase::checkDiskSpaceInfo(TKSError* error) {
  TKSError reason;
  const std::optional<tks::platform::VolumeSpace> space =
      tks::platform::files().volumeSpace(tks::platform::knownFolders().documents(), &reason);
  if (!space) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error obtaining file system info: %@", tks::masked(reason));
    if (error != nullptr) *error = reason;
    return {};
  }
  const TKSValue free = space->freeBytes / kMegabyte;
  const TKSValue total = space->totalBytes / kMegabyte;
  if (space->freeBytes <= kFewBytes) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Running out disk space! %lu Mb left.", free.integer());
  }
  return {
      {TKSCallResultKeyFreeSpaceMBytes, free},
      {TKSCallResultKeyTotalSpaceMBytes, total},
      {TKSCallResultKeyDiskInfo,
       tks::formatted("%@ M free / %@ M total", formatedSize(free).value_or(""), formatedSize(total).value_or(""))},
  };
}

bool TKSUtilBase::isAppleSiliconDevice() {
  const tks::HeldLines lines;
  // Whatever the check came to, it is made once: also when it failed.
  static const bool isAppleSilicon = [] {
    try {
      return findOutProcessor();
    } catch (const std::exception&) {
      return false;
    }
  }();
  return isAppleSilicon;
}
