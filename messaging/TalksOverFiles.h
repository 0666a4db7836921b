#pragma once

#include <string_view>

#include <tksinterface/TKSConstants.h>

namespace tks::messaging {

/// Whether this identifier is one of the two hosts that talk to the launcher over files, because their standard input
/// and output belong to somebody else.
inline bool talksOverFiles(std::string_view bundleIdentifier) {
  return bundleIdentifier == TKSIBundleIDHuddle || bundleIdentifier == TKSIBundleIDHuddleDebug;
}

}  // namespace tks::messaging
