#import <Foundation/Foundation.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/child_processes.h"
#include "platform/platform.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::platform {
namespace {

using posix::StandardHandles;

NSFileHandle* handleOn(int descriptor) {
  return [[NSFileHandle alloc] initWithFileDescriptor:descriptor closeOnDealloc:NO];
}

ChildEnd endOf(NSTask* task) {
  const bool exited = task.terminationReason == NSTaskTerminationReasonExit;
  return {exited ? ChildEnd::How::exited : ChildEnd::How::killed, task.terminationStatus};
}

/// A task that is ready to be launched; nil, and errno, when an argument cannot be passed on.
NSTask* prepare(const ChildRequest& request) {
  NSTask* task = [[NSTask alloc] init];
  task.executableURL = apple::toFileURL(request.executable);
  if (request.arguments.empty()) return task;
  NSArray<NSString*>* arguments = apple::toArguments(request.arguments);
  if (arguments == nil) return nil;
  task.arguments = arguments;
  return task;
}

/// Launches a task. From then on it keeps itself alive until the child ends, and collects it.
std::int32_t launch(NSTask* task, std::function<void(ChildEnd)> ended, TKSError* error) {
  __block NSTask* kept = task;
  task.terminationHandler = ^(NSTask* finished) {
    const ChildEnd end = endOf(finished);
    kept = nil;
    if (!ended) return;
    const std::uint64_t untold = posix::UntoldEnds::shared().add(finished.processIdentifier, end);
    mainLoop().post([untold, ended, end] {
      posix::UntoldEnds::shared().remove(untold);
      ended(end);
    });
  };
  NSError* failure = nil;
  @try {
    if ([task launchAndReturnError:&failure]) return task.processIdentifier;
  } @catch (NSException* exception) {
    failure = nil;
  }
  task.terminationHandler = nil;
  if (error != nullptr) *error = apple::fromError(failure, "start", apple::fromString(task.executableURL.path));
  return 0;
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

/// In place of handles that are closed here the child gets the null device.
void fillGaps(NSTask* task) {
  if (!isOpen(STDIN_FILENO)) task.standardInput = NSFileHandle.fileHandleWithNullDevice;
  if (!isOpen(STDOUT_FILENO)) task.standardOutput = NSFileHandle.fileHandleWithNullDevice;
  if (!isOpen(STDERR_FILENO)) task.standardError = NSFileHandle.fileHandleWithNullDevice;
}

/// Joins the child's standard input and output to this process's own.
std::int32_t launchJoined(NSTask* task, const std::string& executable, std::function<void(ChildEnd)> ended,
                          TKSError* error) {
  StandardHandles& handles = StandardHandles::shared();
  StandardHandles::Joint joint = handles.begin();
  if (!handles.prepare(joint)) {
    posix::fail(error, "start", executable);
    return 0;
  }
  fillGaps(task);
  task.standardInput = handleOn(joint.childInput());
  task.standardOutput = handleOn(joint.childOutput());
  const auto number = std::make_shared<std::atomic<std::uint64_t>>(0);
  const std::int32_t process = launch(
      task,
      [number, tell = std::move(ended)](ChildEnd end) {
        StandardHandles::shared().childEnded(*number);
        if (tell) tell(end);
      },
      error);
  if (process == 0) return 0;
  *number = joint.putInForce();
  if (*number != 0) return process;
  posix::fail(error, "start", executable);
  kill(process, SIGKILL);
  return 0;
}

/// Shares this process's standard handles with the child, but never the pipes to another child.
std::int32_t launchSharing(NSTask* task, std::function<void(ChildEnd)> ended, TKSError* error) {
  return StandardHandles::shared().whileUnchanged([&](bool joined) {
    fillGaps(task);
    if (joined) {
      task.standardInput = NSFileHandle.fileHandleWithNullDevice;
      task.standardOutput = NSFileHandle.fileHandleWithNullDevice;
    }
    return launch(task, std::move(ended), error);
  });
}

class AppleChildProcesses final : public ChildProcesses {
 public:
  std::int32_t start(const ChildRequest& request, std::function<void(ChildEnd)> ended, TKSError* error) override {
    @autoreleasepool {
      @try {
        NSTask* task = prepare(request);
        if (task == nil) {
          posix::fail(error, "start", request.executable);
          return 0;
        }
        return request.joinStandardHandles ? launchJoined(task, request.executable, std::move(ended), error)
                                           : launchSharing(task, std::move(ended), error);
      } @catch (NSException* exception) {
        apple::store(error, nil, "start: " + apple::fromString(exception.reason));
        return 0;
      }
    }
  }

  // The task tells of its end on a queue of its own, whatever the main thread does.
  std::optional<ChildEnd> untoldEnd(std::int32_t process) override { return posix::UntoldEnds::shared().find(process); }

  int originalStandardInput() override { return StandardHandles::shared().originalInput(); }
  int originalStandardOutput() override { return StandardHandles::shared().originalOutput(); }
};

}  // namespace

template <>
ChildProcesses& backend<ChildProcesses>() {
  static auto& processes = *new AppleChildProcesses;
  return processes;
}

}  // namespace tks::platform
