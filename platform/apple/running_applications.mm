#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>

#include <libproc.h>
#include <signal.h>
#include <sys/proc_info.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/running_applications.h"

namespace tks::platform {
namespace {

/// Whether something is at the path. Sets errno when not. No path at all would stand for the working folder.
bool isThere(std::string_view path) {
  struct stat facts {};
  return posix::isPath(path) && stat(std::string(path).c_str(), &facts) == 0;
}

/// When a process was started, in microseconds from 1970; 0 when it is gone.
std::uint64_t startTimeOf(pid_t pid) {
  proc_bsdinfo information{};
  const int size = proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &information, sizeof information);
  if (size != static_cast<int>(sizeof information)) return 0;
  return information.pbi_start_tvsec * 1'000'000 + information.pbi_start_tvusec;
}

TKSRunningApplication describe(NSRunningApplication* application) {
  TKSRunningApplication result;
  result.processIdentifier = application.processIdentifier;
  result.bundleIdentifier = apple::fromString(application.bundleIdentifier);
  result.localizedName = apple::fromString(application.localizedName);
  result.bundlePath = apple::fromString(application.bundleURL.path);
  result.startTime = startTimeOf(application.processIdentifier);
  return result;
}

/// What the system still lists of a process that is gone; it learns of ends only while the main run loop runs.
bool isGone(NSRunningApplication* application) {
  return application.terminated || (kill(application.processIdentifier, 0) != 0 && errno == ESRCH);
}

/// The application that runs as `pid`, or nil.
NSRunningApplication* running(pid_t pid) {
  NSRunningApplication* found = pid > 0 ? [NSRunningApplication runningApplicationWithProcessIdentifier:pid] : nil;
  return found == nil || isGone(found) ? nil : found;
}

/// The application that was looked up, unless its process is gone or its identifier was taken by another.
NSRunningApplication* still(const TKSRunningApplication& application) {
  NSRunningApplication* found = running(application.processIdentifier);
  const bool known = application.startTime != 0;
  return known && startTimeOf(application.processIdentifier) != application.startTime ? nil : found;
}

class AppleApplications final : public RunningApplications {
 public:
  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    @autoreleasepool {
      NSRunningApplication* found = running(pid);
      if (found == nil) return std::nullopt;
      return describe(found);
    }
  }

  std::vector<TKSRunningApplication> list() override {
    @autoreleasepool {
      std::vector<TKSRunningApplication> result;
      for (NSRunningApplication* application in NSWorkspace.sharedWorkspace.runningApplications) {
        if (!isGone(application)) result.push_back(describe(application));
      }
      return result;
    }
  }

  bool forceTerminate(const TKSRunningApplication& application) override {
    @autoreleasepool {
      return [still(application) forceTerminate];
    }
  }

  bool terminate(const TKSRunningApplication& application) override {
    @autoreleasepool {
      return [still(application) terminate];
    }
  }

  std::optional<TKSRunningApplication> launch(std::string_view bundlePath, const std::vector<std::string>& arguments,
                                              TKSError* error) override {
    @autoreleasepool {
      NSArray<NSString*>* list = apple::toArguments(arguments);
      if (list == nil || !isThere(bundlePath)) {
        posix::fail(error, "launch", bundlePath);
        return std::nullopt;
      }
      NSError* failure = nil;
// The workspace's newer call answers on another queue, which a caller that waits on the main thread could hold up.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
      NSRunningApplication* started = nil;
      @try {
        started = [NSWorkspace.sharedWorkspace launchApplicationAtURL:apple::toFileURL(bundlePath)
                                                              options:NSWorkspaceLaunchNewInstance
                                                        configuration:@{NSWorkspaceLaunchConfigurationArguments : list}
                                                                error:&failure];
      } @catch (NSException* exception) {
        apple::store(error, nil, "launch: " + apple::fromString(exception.reason));
        return std::nullopt;
      }
#pragma clang diagnostic pop
      if (started != nil) return describe(started);
      if (error != nullptr) *error = apple::fromError(failure, "launch", bundlePath);
      return std::nullopt;
    }
  }

  bool hasLastUsedDate(std::string_view bundlePath) override {
    if (!isThere(bundlePath)) return false;
    @autoreleasepool {
      MDItemRef item = MDItemCreateWithURL(kCFAllocatorDefault, (__bridge CFURLRef)apple::toFileURL(bundlePath));
      if (item == nullptr) return false;
      const id date = CFBridgingRelease(MDItemCopyAttribute(item, kMDItemLastUsedDate));
      CFRelease(item);
      return date != nil;
    }
  }

  void terminateThisApplication() override {
    dispatch_async(dispatch_get_main_queue(), ^{
      // A process without an application object is none; one is not made for this.
      [NSApp terminate:nil];
    });
  }
};

}  // namespace

template <>
RunningApplications& backend<RunningApplications>() {
  static auto& applications = *new AppleApplications;
  return applications;
}

}  // namespace tks::platform
