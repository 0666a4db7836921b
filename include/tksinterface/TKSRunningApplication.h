#pragma once

#include <cstdint>
#include <string>

#include <tksinterface/TKSExport.h>

/// A running application: a live process whose executable lies in an application bundle, as it was when it was looked
/// up.
struct TKS_EXPORT TKSRunningApplication {
  /// The system's process identifier.
  std::int32_t processIdentifier = 0;
  /// Empty when the bundle declares none.
  std::string bundleIdentifier;
  /// What the user sees as its name.
  std::string localizedName;
  /// Absolute path of the bundle's folder.
  std::string bundlePath;
  /// When the process was started, in the system's own unit: together with the process identifier it names one process,
  /// so that a later process with a reused identifier is not taken for this one. 0 when unknown.
  std::uint64_t startTime = 0;

  /// pid: PID, path: PATH
  std::string description() const;
  friend bool operator==(const TKSRunningApplication&, const TKSRunningApplication&) = default;
};
