#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSRunningApplication.h>

namespace tks::platform {

/// Running applications of this user. macOS: NSRunningApplication and the shared NSWorkspace. Linux: the process table;
/// an application is a live process (no zombie) of this user whose executable lies in a bundle. Any thread.
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;
  /// Whether applications can be looked up at all; else nothing is ever found. Linux: not without the process table of
  /// this process's own name space under /proc.
  virtual bool canLookUp(TKSError* error) {
    (void)error;
    return true;
  }
  /// The application that runs as `pid`; looks at this one process only. Nothing when there is none.
  virtual std::optional<TKSRunningApplication> find(std::int32_t pid) = 0;
  /// All of them, in the order the system gives.
  virtual std::vector<TKSRunningApplication> list() = 0;
  /// Asks the process that was looked up to end at once; whether the request was accepted. A process that is gone,
  /// or whose identifier was reused, refuses. An application without a start time is whatever has the
  /// identifier now.
  virtual bool forceTerminate(const TKSRunningApplication& application) = 0;
  /// The same, politely.
  virtual bool terminate(const TKSRunningApplication& application) = 0;
  /// Starts a new instance of a bundle through the workspace, independent of this process (on Linux in a session of its
  /// own), and notes the bundle's last-used date. Nothing, and `error`, when it did not start.
  virtual std::optional<TKSRunningApplication> launch(std::string_view bundlePath,
                                                      const std::vector<std::string>& arguments, TKSError* error) = 0;
  /// Whether the bundle at the path has a last-used date. macOS: Spotlight's kMDItemLastUsedDate. Linux: the attribute
  /// com.apple.lastuseddate#PS that `launch` writes.
  virtual bool hasLastUsedDate(std::string_view bundlePath) = 0;
  /// Asks the application of this very process to end in good order. macOS: NSApp terminate. Linux: SIGTERM to itself.
  virtual void terminateThisApplication() = 0;
};

}  // namespace tks::platform
