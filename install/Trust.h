#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks {

/// The trust check directly before a bundle is installed: checkTrust, and then the check in depth, which also looks at
/// nested code with its pages and resources, links that leave the bundle, and files outside of what is sealed.
bool checkTrustForInstalling(std::string_view path, TKSError* error);

/// isTestModeTKS of a library that was built with or without the permission to have a test mode. Logs the same either
/// way.
bool isTestMode(bool allowedByBuild);

}  // namespace tks
