#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::install {

/// The hidden file beside a launcher that keeps the highest version that was ever accepted in its place.
std::string acceptedVersionFile(std::string_view launcherPath);

/// That version; nothing when none was kept, or when the file holds none, which has its line.
std::optional<std::string> acceptedVersion(std::string_view launcherPath);

/// Whether a version is not older than the accepted one; `wrongVersion` with both versions when it is. A launcher
/// without a version is older than any.
bool isNotOlderThanAccepted(std::string_view launcherPath, std::string_view version, TKSError* error);

/// Keeps a version that is newer than the accepted one. What cannot be kept has its line.
void noteAcceptedVersion(std::string_view launcherPath, std::string_view version);

}  // namespace tks::install
