#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks {

/// The trust check directly before a bundle is installed: checkTrust, and then the check in depth, which also looks at
/// nested code with its pages and resources, links that leave the bundle, and files outside of what is sealed. Beside
/// that what the options ask of launchers.
bool checkTrustForInstalling(std::string_view path, TKSError* error);

/// checkTrustForLaunch directly before a launcher is started: one that passed counts as accepted from then on.
bool checkTrustForStart(std::string_view path, TKSError* error);

/// Whether nobody else can write to what lies at a path, or to a folder on the way to it, as far as `reach` says; asked
/// only where the options want it. With the error `notTrusted` that names the first such place.
bool isNotShared(std::string_view path, platform::Reach reach, TKSError* error);

/// isTestModeTKS of a library that was built with or without the permission to have a test mode. Logs the same either
/// way.
bool isTestMode(bool allowedByBuild);

}  // namespace tks
