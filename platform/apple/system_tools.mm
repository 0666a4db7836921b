#import <Foundation/Foundation.h>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/known_folders.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
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

using Time = std::chrono::steady_clock;

/// How long is waited for what a tool that was ended leaves in its pipe.
constexpr std::chrono::seconds kGrace{2};

/// Reads to the end, or to the deadline: somebody else may hold the pipe open. What is beyond the limit is read and
/// thrown away.
std::string drain(int descriptor, std::size_t limit, Time::time_point deadline) {
  std::string output;
  std::vector<char> piece(65536);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Time::now()).count();
    pollfd entry{descriptor, POLLIN, 0};
    if (left <= 0 ||
        posix::retried([&] { return poll(&entry, 1, static_cast<int>(std::min<long long>(left, INT_MAX))); }) <= 0) {
      if (Time::now() >= deadline) return output;
      continue;
    }
    const ssize_t count = posix::retried([&] { return read(descriptor, piece.data(), piece.size()); });
    if (count <= 0) return output;
    output.append(piece.data(), std::min(limit - output.size(), static_cast<std::size_t>(count)));
  }
}

NSFileHandle* handleOn(const posix::FileDescriptor& descriptor) {
  return [[NSFileHandle alloc] initWithFileDescriptor:descriptor.get() closeOnDealloc:NO];
}

/// A tool that was prepared. NSTask's own way to wait would run other work of the thread meanwhile.
class Running {
 public:
  explicit Running(NSTask* task) : task_(task), ended_(dispatch_semaphore_create(0)) {
    dispatch_semaphore_t ended = ended_;
    task_.terminationHandler = ^(NSTask*) {
      dispatch_semaphore_signal(ended);
    };
  }

  NSTask* task() const { return task_; }

  bool launch(TKSError& error) {
    NSError* failure = nil;
    @try {
      started_ = [task_ launchAndReturnError:&failure];
    } @catch (NSException* exception) {
      started_ = false;
    }
    if (!started_) error = apple::fromError(failure, "start", apple::fromString(task_.executableURL.path));
    return started_;
  }

  bool waitUntil(Time::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Time::now()).count();
    const dispatch_time_t until = dispatch_time(DISPATCH_TIME_NOW, std::max<std::int64_t>(left, 0));
    if (!ended()) hasEnded_ = dispatch_semaphore_wait(ended_, until) == 0;
    return hasEnded_;
  }

  /// Ends the tool with its process group, where it leads one.
  void end() {
    if (!started_ || waitUntil(Time::now())) return;
    const pid_t process = task_.processIdentifier;
    kill(getpgid(process) == process ? -process : process, SIGKILL);
    dispatch_semaphore_wait(ended_, DISPATCH_TIME_FOREVER);
    hasEnded_ = true;
  }

  int exitCode() const {
    const bool exited = hasEnded_ && task_.terminationReason == NSTaskTerminationReasonExit;
    return exited ? task_.terminationStatus : -1;
  }

 private:
  bool ended() const { return hasEnded_ || !started_; }

  NSTask* task_;
  dispatch_semaphore_t ended_;
  bool started_ = false;
  bool hasEnded_ = false;
};

class AppleTools final : public SystemTools {
 public:
  ToolResult run(const ToolRequest& request) override {
    @autoreleasepool {
      posix::Pipe output = posix::makePipe();
      Running first(prepare(request.tool, request.arguments));
      if (!output.reader) return unstarted(posix::posixError(errno, "make a pipe for", "a tool"));
      if (!request.pipedInto) {
        NSFileHandle* into = handleOn(output.writer);
        if (request.collectStandardError) first.task().standardError = into;
        if (!request.collectStandardError) first.task().standardOutput = into;
        TKSError error;
        if (!first.launch(error)) return unstarted(std::move(error));
        return collect(request, first, nullptr, std::move(output));
      }
      posix::Pipe between = posix::makePipe();
      if (!between.reader) return unstarted(posix::posixError(errno, "make a pipe for", "a tool"));
      Running second(prepare(*request.pipedInto, {}));
      first.task().standardOutput = handleOn(between.writer);
      second.task().standardInput = handleOn(between.reader);
      second.task().standardOutput = handleOn(output.writer);
      TKSError error;
      if (!first.launch(error)) return unstarted(std::move(error));
      const bool started = second.launch(error);
      between = {};
      if (started) return collect(request, second, &first, std::move(output));
      first.end();
      return unstarted(std::move(error));
    }
  }

 private:
  static ToolResult unstarted(TKSError error) {
    ToolResult result;
    result.error = std::move(error);
    return result;
  }

  static ToolResult collect(const ToolRequest& request, Running& last, Running* first, posix::Pipe output) {
    const Time::time_point deadline = Time::now() + request.timeLimit;
    output.writer.reset();
    ToolResult result;
    result.started = true;
    result.output = drain(output.reader.get(), request.outputLimit, deadline);
    if (!last.waitUntil(deadline)) {
      last.end();
      if (first != nullptr) first->end();
      result.output += drain(output.reader.get(), request.outputLimit - result.output.size(), Time::now() + kGrace);
      return result;
    }
    result.exitCode = last.exitCode();
    // Nobody reads what it writes any more.
    if (first != nullptr && !first->waitUntil(Time::now() + kGrace)) first->end();
    return result;
  }
};

}  // namespace

template <>
SystemTools& backend<SystemTools>() {
  static auto& tools = *new AppleTools;
  return tools;
}

}  // namespace tks::platform
