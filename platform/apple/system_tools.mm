#include "platform/system_tools.h"

#include <errno.h>
#include <fcntl.h>
#include <libproc.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/apple/child_watch.h"
#include "platform/apple/spawn.h"
#include "platform/apple/tool_runner.h"
#include "platform/backend.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::platform {
namespace {

/// The system's tools, in the order of Tool.
struct ToolRow {
  Tool tool;
  const char* name;
  const char* path;
};
constexpr auto kTools = std::to_array<ToolRow>({
    {Tool::unzip, "unzip", "/usr/bin/unzip"},
    {Tool::tar, "tar", "/usr/bin/tar"},
    {Tool::spctl, "spctl", "/usr/sbin/spctl"},
    {Tool::lsof, "lsof", "/usr/sbin/lsof"},
    {Tool::shasum, "shasum", "/usr/bin/shasum"},
    {Tool::tccutil, "tccutil", "/usr/bin/tccutil"},
    {Tool::sysctl, "sysctl", "/usr/sbin/sysctl"},
    {Tool::gktool, "gktool", "/usr/bin/gktool"},
});

const ToolRow& rowOf(Tool tool) { return *std::ranges::find(kTools, tool, &ToolRow::tool); }

}  // namespace

namespace apple {

std::string standardToolPath(Tool tool) { return rowOf(tool).path; }

}  // namespace apple

namespace {

using Time = std::chrono::steady_clock;
using apple::ChildWatch;
using posix::SpawnRequest;

/// How often is looked whether a tool has ended or has written too much.
constexpr std::chrono::milliseconds kLookInterval{20};
/// How long is waited for a tool that was killed, or whose output nobody reads any more. What the system does not let
/// go by then is collected later.
constexpr std::chrono::seconds kGrace{2};
/// The system counts the blocks that a tool makes dirty, so that small files and what is written twice count for more
/// than their bytes.
constexpr std::uint64_t kBlocksForBytes = 2;
constexpr std::uint64_t kRoomForBlocks = std::uint64_t{64} * 1024 * 1024;

/// One running tool in a session of its own, where it has no terminal to ask questions on. Destroying it ends it with
/// its group.
class Running {
 public:
  Running() = default;
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  ~Running() { end(); }

  /// False, and errno, when it cannot be started.
  bool start(SpawnRequest request) {
    errno = ENOENT;
    if (request.executable.empty()) return false;
    request.group = SpawnRequest::Group::ownSession;
    request.cleanEnvironment = true;
    const pid_t process = apple::spawn(request);
    if (process == 0) return false;
    watch_ = ChildWatch::begin(process, ChildWatch::Kind::leadsGroup, nullptr);
    return true;
  }

  std::optional<ChildEnd> waitUntil(Time::time_point deadline) const {
    return watch_ ? watch_->waitUntil(deadline) : ChildEnd();
  }

  /// Bytes of files that the tool itself has written so far, in whole blocks; 0 where the system does not tell.
  std::uint64_t written() const {
    rusage_info_v4 facts{};
    if (proc_pid_rusage(watch_->process(), RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&facts)) != 0) return 0;
    return std::max(facts.ri_logical_writes, facts.ri_diskio_byteswritten);
  }

  /// Ends the tool with its group.
  void end() {
    if (waitUntil(Time::now())) return;
    watch_->kill();
    waitUntil(Time::now() + kGrace);
  }

 private:
  std::shared_ptr<ChildWatch> watch_;
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
int readToTheEnd(const Running& tool, Output& output, const ToolRequest& request) {
  const Time::time_point deadline = Time::now() + request.timeLimit;
  for (;;) {
    const bool ended =
        tool.waitUntil(Time::now()).has_value();  // asked before the last read: what was printed by then is there
    output.read();
    if (ended) return 0;
    if (wroteTooMuch(request, tool, output)) return EFBIG;
    if (request.onWritten) request.onWritten(tool.written());
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
    posix::Pipe output = posix::makePipe();
    if (!output.reader) return failure("make a pipe for", "a tool");
    Running first;
    Running second;
    if (!request.pipedInto) {
      SpawnRequest only = requestFor(request.tool, request.arguments);
      if (!startLast(first, only, request, output.writer)) return unstarted(request.tool, only);
      return finish(first, request, std::move(output));
    }

    posix::Pipe between = posix::makePipe();
    if (!between.reader) return failure("make a pipe for", "a tool");
    SpawnRequest writing = requestFor(request.tool, request.arguments);
    writing.standardOutput = between.writer.get();
    if (!first.start(writing)) return unstarted(request.tool, writing);
    between.writer.reset();
    SpawnRequest reading = requestFor(*request.pipedInto, {});
    reading.standardInput = between.reader.get();
    if (!startLast(second, reading, request, output.writer)) return unstarted(*request.pipedInto, reading);
    between.reader.reset();
    return finish(second, request, std::move(output));
  }

 private:
  SpawnRequest requestFor(Tool tool, std::vector<std::string> arguments) const {
    SpawnRequest request;
    request.executable = path_(tool);
    request.arguments = std::move(arguments);
    request.standardInput = request.standardOutput = request.standardError = SpawnRequest::kNull;
    return request;
  }

  /// Starts the tool whose output is wanted.
  static bool startLast(Running& tool, SpawnRequest& spawned, const ToolRequest& request,
                        posix::FileDescriptor& writer) {
    (request.collectStandardError ? spawned.standardError : spawned.standardOutput) = writer.get();
    const bool started = tool.start(spawned);
    writer.reset();
    return started;
  }

  static ToolResult finish(Running& tool, const ToolRequest& request, posix::Pipe pipe) {
    Output output(std::move(pipe.reader), request.outputLimit);
    ToolResult result;
    result.started = true;
    const int reached = readToTheEnd(tool, output, request);
    tool.end();
    if (reached != 0) {
      output.read();
      result.cutShort = true;
      result.error = posix::posixError(reached, "wait for", "the tool");
    }
    result.output = output.take();
    if (reached == 0) judge(tool.waitUntil(Time::now()).value_or(ChildEnd()), result);
    return result;
  }

  /// What the way in which a tool ended by itself, or was ended by somebody else, says of it.
  static void judge(const ChildEnd& end, ToolResult& result) {
    switch (end.how) {
      case ChildEnd::How::exited:
        result.exitCode = end.number;
        return;
      case ChildEnd::How::killed:
        result.cutShort = true;
        result.error = posix::posixError(EINTR, "wait for", "the tool");
        result.error.localizedDescription.append(" (signal: ").append(std::to_string(end.number)).append(")");
        return;
      case ChildEnd::How::unknown:
        // Somebody else collected it. One that was ended early has most often printed nothing.
        result.cutShort = result.output.empty();
        if (result.cutShort) result.error = posix::posixError(ECHILD, "wait for", "the tool");
        return;
    }
  }

  static ToolResult failure(std::string_view step, std::string_view path) {
    ToolResult result;
    result.error = posix::posixError(errno, step, path);
    return result;
  }

  /// A tool that has no path is named.
  static ToolResult unstarted(Tool tool, const SpawnRequest& request) {
    return failure("run", request.executable.empty() ? rowOf(tool).name : request.executable);
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
