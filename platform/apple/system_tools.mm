#import <Foundation/Foundation.h>

#include <errno.h>
#include <fcntl.h>
#include <libproc.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/apple/conversions.h"
#include "platform/apple/tool_runner.h"
#include "platform/backend.h"
#include "platform/known_folders.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/system_tools.h"

namespace tks::platform {
namespace apple {

std::string standardToolPath(Tool tool) {
  switch (tool) {
    case Tool::unzip:
      return "/usr/bin/unzip";
    case Tool::tar:
      return "/usr/bin/tar";
    case Tool::spctl:
      return "/usr/sbin/spctl";
    case Tool::lsof:
      return "/usr/sbin/lsof";
    case Tool::shasum:
      return "/usr/bin/shasum";
    case Tool::tccutil:
      return "/usr/bin/tccutil";
    case Tool::sysctl:
      return "/usr/sbin/sysctl";
  }
  return {};
}

}  // namespace apple

namespace {

using Time = std::chrono::steady_clock;

/// How often is looked whether a tool has ended or has written too much.
constexpr std::chrono::milliseconds kLookInterval{20};
/// How long is waited for a tool whose output nobody reads any more.
constexpr std::chrono::seconds kGrace{2};
/// The system counts the blocks that a tool makes dirty, so that small files and what is written twice count for more
/// than their bytes.
constexpr std::uint64_t kBlocksForBytes = 2;
constexpr std::uint64_t kRoomForBlocks = std::uint64_t{64} * 1024 * 1024;

NSTask* prepare(const std::string& path, const std::vector<std::string>& arguments) {
  NSTask* task = [[NSTask alloc] init];
  task.executableURL = [NSURL fileURLWithPath:apple::toPath(path)];
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

NSFileHandle* handleOn(const posix::FileDescriptor& descriptor) {
  return [[NSFileHandle alloc] initWithFileDescriptor:descriptor.get() closeOnDealloc:NO];
}

/// A tool. NSTask's own way to wait would run other work of the thread meanwhile.
class Running {
 public:
  Running(const std::string& path, const std::vector<std::string>& arguments)
      : path_(path), task_(prepare(path, arguments)), ended_(dispatch_semaphore_create(0)) {
    dispatch_semaphore_t ended = ended_;
    task_.terminationHandler = ^(NSTask*) {
      dispatch_semaphore_signal(ended);
    };
  }

  NSTask* task() const { return task_; }

  bool launch(TKSError& error) {
    if (path_.empty() || access(path_.c_str(), X_OK) != 0) {
      error = posix::posixError(path_.empty() ? ENOENT : errno, "run", path_.empty() ? "a tool" : path_);
      return false;
    }
    NSError* failure = nil;
    @try {
      started_ = [task_ launchAndReturnError:&failure];
    } @catch (NSException* exception) {
      started_ = false;
    }
    if (!started_) error = apple::fromError(failure, "run", path_);
    return started_;
  }

  bool waitUntil(Time::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Time::now()).count();
    const dispatch_time_t until = dispatch_time(DISPATCH_TIME_NOW, std::max<std::int64_t>(left, 0));
    if (started_ && !hasEnded_) hasEnded_ = dispatch_semaphore_wait(ended_, until) == 0;
    return hasEnded_;
  }

  /// Bytes of files that the tool itself has written so far, in whole blocks; 0 where the system does not tell.
  std::uint64_t written() const {
    rusage_info_v4 facts{};
    if (proc_pid_rusage(task_.processIdentifier, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&facts)) != 0)
      return 0;
    return std::max(facts.ri_logical_writes, facts.ri_diskio_byteswritten);
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
  std::string path_;
  NSTask* task_;
  dispatch_semaphore_t ended_;
  bool started_ = false;
  bool hasEnded_ = false;
};

/// What a tool prints, read as it comes; what is beyond the limit is thrown away.
class Output {
 public:
  Output(posix::FileDescriptor reader, std::size_t limit) : reader_(std::move(reader)), limit_(limit) {
    fcntl(reader_.get(), F_SETFL, O_NONBLOCK);
  }

  bool isOpen() const { return static_cast<bool>(reader_); }
  std::uint64_t size() const { return size_; }

  /// Reads all that is there now.
  void read() {
    std::vector<char> piece(65536);
    while (reader_) {
      const ssize_t count = posix::retried([&] { return ::read(reader_.get(), piece.data(), piece.size()); });
      if (count < 0 && errno == EAGAIN) return;
      if (count <= 0) return reader_.reset();
      size_ += static_cast<std::uint64_t>(count);
      text_.append(piece.data(), std::min(limit_ - text_.size(), static_cast<std::size_t>(count)));
    }
  }

  void waitUntil(Time::time_point deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Time::now()).count();
    pollfd watched{reader_.get(), POLLIN, 0};
    poll(&watched, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
  }

  std::string take() { return std::move(text_); }

 private:
  posix::FileDescriptor reader_;
  std::size_t limit_;
  std::uint64_t size_ = 0;
  std::string text_;
};

bool wroteTooMuch(const ToolRequest& request, const Running& tool, const Output& output) {
  if (!request.writeLimit) return false;
  if (output.size() > *request.writeLimit) return true;
  const std::uint64_t written = tool.written();
  return written > kRoomForBlocks && (written - kRoomForBlocks) / kBlocksForBytes > *request.writeLimit;
}

/// Reads the output until the tool has ended: 0, or the number of the limit that it reached before. Another process
/// may hold the output open for longer, and the tool may close it earlier.
int readToTheEnd(Running& tool, Output& output, const ToolRequest& request) {
  const Time::time_point deadline = Time::now() + request.timeLimit;
  for (;;) {
    const bool ended = tool.waitUntil(Time::now());  // asked before the last read: what was printed by then is there
    output.read();
    if (ended) return 0;
    if (wroteTooMuch(request, tool, output)) return EFBIG;
    if (Time::now() >= deadline) return ETIMEDOUT;
    const Time::time_point look = std::min(deadline, Time::now() + kLookInterval);
    if (output.isOpen()) output.waitUntil(look);
    if (!output.isOpen()) tool.waitUntil(look);
  }
}

class AppleTools final : public SystemTools {
 public:
  explicit AppleTools(apple::ToolPath path) : path_(std::move(path)) {}

  ToolResult run(const ToolRequest& request) override {
    const auto hasNul = [](const std::string& argument) { return argument.find('\0') != std::string::npos; };
    if (std::ranges::any_of(request.arguments, hasNul)) return unstarted(posix::posixError(EINVAL, "run", "a tool"));
    @autoreleasepool {
      posix::Pipe output = posix::makePipe();
      if (!output.reader) return unstarted(posix::posixError(errno, "make a pipe for", "a tool"));
      Running first(path_(request.tool), request.arguments);
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
      Running second(path_(*request.pipedInto), {});
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

  static ToolResult collect(const ToolRequest& request, Running& last, Running* first, posix::Pipe pipe) {
    pipe.writer.reset();
    Output output(std::move(pipe.reader), request.outputLimit);
    ToolResult result;
    result.started = true;
    const int reached = readToTheEnd(last, output, request);
    if (reached != 0) {
      result.cutShort = true;
      result.error = posix::posixError(reached, "wait for", "the tool");
      last.end();
      output.read();
    } else {
      result.exitCode = last.exitCode();
      result.cutShort = result.exitCode < 0;
      if (result.cutShort) result.error = posix::posixError(EINTR, "wait for", "the tool");
    }
    // Nobody reads what it writes any more.
    if (first != nullptr && (reached != 0 || !first->waitUntil(Time::now() + kGrace))) first->end();
    result.output = output.take();
    return result;
  }

  apple::ToolPath path_;
};

}  // namespace

namespace apple {

std::unique_ptr<SystemTools> makeSystemTools(ToolPath path) { return std::make_unique<AppleTools>(std::move(path)); }

}  // namespace apple

template <>
SystemTools& backend<SystemTools>() {
  static auto& tools = *apple::makeSystemTools(apple::standardToolPath).release();
  return tools;
}

}  // namespace tks::platform
