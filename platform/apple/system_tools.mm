#import <Foundation/Foundation.h>

#include <unistd.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/known_folders.h"
#include "platform/platform.h"
#include "platform/system_tools.h"

namespace tks::platform {
namespace {

NSString* pathOf(Tool tool) {
  switch (tool) {
    case Tool::unzip:
      return @"/usr/bin/unzip";
    case Tool::tar:
      return @"/usr/bin/tar";
    case Tool::spctl:
      return @"/usr/sbin/spctl";
    case Tool::lsof:
      return @"/usr/sbin/lsof";
    case Tool::shasum:
      return @"/usr/bin/shasum";
    case Tool::tccutil:
      return @"/usr/bin/tccutil";
    case Tool::sysctl:
      return @"/usr/sbin/sysctl";
  }
  return @"";
}

NSTask* prepare(Tool tool, const std::vector<std::string>& arguments) {
  NSTask* task = [[NSTask alloc] init];
  task.executableURL = [NSURL fileURLWithPath:pathOf(tool)];
  NSMutableArray<NSString*>* list = [NSMutableArray array];
  for (const std::string& argument : arguments) [list addObject:apple::toPath(argument)];
  task.arguments = list;
  task.environment = @{
    @"PATH" : @"/usr/bin:/bin:/usr/sbin:/sbin",
    @"LC_ALL" : @"en_US.UTF-8",
    @"HOME" : apple::toPath(knownFolders().realHome()),
  };
  task.standardInput = NSFileHandle.fileHandleWithNullDevice;
  task.standardOutput = NSFileHandle.fileHandleWithNullDevice;
  task.standardError = NSFileHandle.fileHandleWithNullDevice;
  return task;
}

/// Reads to the end; what is beyond the limit is read and thrown away.
std::string drain(NSFileHandle* handle, std::size_t limit) {
  std::string output;
  for (;;) {
    @autoreleasepool {
      NSData* piece = [handle readDataUpToLength:65536 error:nil];
      if (piece.length == 0) return output;
      const std::size_t room = limit - output.size();
      output.append(static_cast<const char*>(piece.bytes), std::min<std::size_t>(room, piece.length));
    }
  }
}

class AppleTools final : public SystemTools {
 public:
  ToolResult run(const ToolRequest& request) override {
    @autoreleasepool {
      ToolResult result;
      NSTask* first = prepare(request.tool, request.arguments);
      NSPipe* output = [NSPipe pipe];
      NSTask* last = first;
      NSPipe* between = nil;
      if (request.pipedInto) {
        between = [NSPipe pipe];
        last = prepare(*request.pipedInto, {});
        first.standardOutput = between;
        last.standardInput = between;
        last.standardOutput = output;
      } else if (request.collectStandardError) {
        first.standardError = output;
      } else {
        first.standardOutput = output;
      }
      NSError* failure = nil;
      if (![first launchAndReturnError:&failure]) {
        result.error = apple::fromError(failure, "start tool");
        return result;
      }
      if (last != first && ![last launchAndReturnError:&failure]) {
        [first terminate];
        result.error = apple::fromError(failure, "start tool");
        return result;
      }
      [between.fileHandleForReading closeFile];
      [between.fileHandleForWriting closeFile];
      result.started = true;
      dispatch_source_t limit = endAfter(request.timeLimit, first, last);
      result.output = drain(output.fileHandleForReading, request.outputLimit);
      [last waitUntilExit];
      dispatch_source_cancel(limit);
      if (last.terminationReason == NSTaskTerminationReasonExit) result.exitCode = last.terminationStatus;
      return result;
    }
  }

 private:
  /// Ends the tools, which lead process groups of their own, when they outlive the limit.
  static dispatch_source_t endAfter(std::chrono::seconds limit, NSTask* first, NSTask* last) {
    dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
    dispatch_source_t timer = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue);
    dispatch_source_set_timer(timer,
                              dispatch_time(DISPATCH_TIME_NOW, limit.count() * static_cast<int64_t>(NSEC_PER_SEC)),
                              DISPATCH_TIME_FOREVER, NSEC_PER_SEC);
    dispatch_source_set_event_handler(timer, ^{
      for (NSTask* task in @[ first, last ]) {
        if (!task.running) continue;
        const pid_t group = getpgid(task.processIdentifier);
        kill(group == task.processIdentifier ? -group : task.processIdentifier, SIGKILL);
      }
    });
    dispatch_resume(timer);
    return timer;
  }
};

}  // namespace

template <>
SystemTools& backend<SystemTools>() {
  static auto& tools = *new AppleTools;
  return tools;
}

}  // namespace tks::platform
