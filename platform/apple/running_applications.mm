#import <AppKit/AppKit.h>
#import <CoreServices/CoreServices.h>

#include <libproc.h>
#include <sys/proc_info.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/running_applications.h"

namespace tks::platform {
namespace {

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

/// The application that was looked up, unless its process is gone or its identifier was taken by another.
NSRunningApplication* still(const TKSRunningApplication& application) {
  NSRunningApplication* found =
      [NSRunningApplication runningApplicationWithProcessIdentifier:application.processIdentifier];
  if (found == nil || found.terminated) return nil;
  const bool known = application.startTime != 0;
  return known && startTimeOf(application.processIdentifier) != application.startTime ? nil : found;
}

class AppleApplications final : public RunningApplications {
 public:
  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    @autoreleasepool {
      NSRunningApplication* found = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
      if (found == nil || found.terminated) return std::nullopt;
      return describe(found);
    }
  }

  std::vector<TKSRunningApplication> list() override {
    @autoreleasepool {
      std::vector<TKSRunningApplication> result;
      for (NSRunningApplication* application in NSWorkspace.sharedWorkspace.runningApplications) {
        result.push_back(describe(application));
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
      NSMutableArray<NSString*>* list = [NSMutableArray array];
      for (const std::string& argument : arguments) {
        NSString* text = apple::toString(argument);
        if (text == nil) {
          apple::store(error, nil, "launch application: an argument is no UTF-8 text");
          return std::nullopt;
        }
        [list addObject:text];
      }
      NSError* failure = nil;
// The workspace's newer call answers on another queue only and has no way to report the application to a caller that
// waits.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
      NSRunningApplication* started = nil;
      @try {
        started = [NSWorkspace.sharedWorkspace launchApplicationAtURL:apple::toFileURL(bundlePath)
                                                              options:NSWorkspaceLaunchNewInstance
                                                        configuration:@{NSWorkspaceLaunchConfigurationArguments : list}
                                                                error:&failure];
      } @catch (NSException* exception) {
        apple::store(error, nil, "launch application: " + apple::fromString(exception.reason));
        return std::nullopt;
      }
#pragma clang diagnostic pop
      if (started != nil) return describe(started);
      apple::store(error, failure, "launch application");
      return std::nullopt;
    }
  }

  bool hasLastUsedDate(std::string_view bundlePath) override {
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
