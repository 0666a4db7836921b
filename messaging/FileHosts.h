#pragma once

#include <string_view>

#include <tksinterface/TKSConstants.h>

namespace tks::messaging {

/// Whether this is the identifier of a host whose standard input and output belong to somebody else: the two of them
/// talk to the launcher over files.
inline bool talksOverFiles(std::string_view bundleIdentifier) {
  return bundleIdentifier == TKSIBundleIDHuddle || bundleIdentifier == TKSIBundleIDHuddleDebug;
}

}  // namespace tks::messaging
