#include "platform/linux/processes/tool_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <optional>
#include <utility>

#include "platform/linux/processes/child_collector.h"
#include "platform/linux/processes/spawn.h"
#include "platform/platform.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/whole_files.h"

namespace tks::gnulinux {
namespace {

using platform::ChildEnd;
using platform::Tool;
using platform::ToolRequest;
using platform::ToolResult;
using Clock = std::chrono::steady_clock;

/// How often a tool is looked at that cannot be watched, or that may write so much and no more.
constexpr int kLookIntervalMilliseconds = 20;
/// What the system's loader ends a program with that it cannot load, for lack of memory or of a library.
constexpr int kNotLoaded = 127;
constexpr std::string_view kProcessorFile = "/proc/cpuinfo";
/// On a line of its own, never the first one.
constexpr std::string_view kProcessorKey = "\nmodel name";
constexpr std::string_view kProcessorVariable = "machdep.cpu.brand_string";

/// GNU tar leaves extended attributes aside unless it is told; elsewhere they are unpacked as a matter of course.
constexpr const char* kTarOptions = "TAR_OPTIONS=--xattrs --xattrs-include=user.*";

/// One running tool with a process group of its own. Destroying it ends the group and collects the tool.
class RunningTool {
 public:
  RunningTool() = default;
  RunningTool(const RunningTool&) = delete;
  RunningTool& operator=(const RunningTool&) = delete;
  ~RunningTool() { end(); }

  bool start(SpawnRequest request) {
    // In a session of its own it has no terminal to ask questions on, and a group of its own.
    request.group = SpawnRequest::Group::ownSession;
    request.cleanEnvironment = true;
    request.endsWithThread = true;  // nobody would read what it prints
    SpawnedProcess spawned = spawn(request);
    if (!spawned) return false;
    process_ = spawned.identifier;
    descriptor_ = std::move(spawned.descriptor);
    return true;
  }

  int descriptor() const { return descriptor_.get(); }
  /// Bytes that the tool itself has written so far; 0 where the system does not count them.
  std::uint64_t written() const {
    std::ifstream counters("/proc/" + std::to_string(process_) + "/io");
    std::uint64_t count = 0;
    for (std::string name; counters >> name >> count;) {
      if (name == "wchar:") return count;
    }
    return 0;
  }
  bool hasEnded() const { return end_ || childState(process_, descriptor_) != ChildState::running; }

  /// Ends whatever of the group still runs, and collects the tool: how it ended, `unknown` included.
  ChildEnd end() {
    if (end_ || process_ <= 0) return end_.value_or(ChildEnd());
    // As long as the tool is not collected, no other group can have its number.
    if (childState(process_, descriptor_) != ChildState::collected) ::kill(-process_, SIGKILL);
    while (!(end_ = collectChild(process_, descriptor_))) waitForEnd();
    if (end_->how == ChildEnd::How::unknown) end_ = rememberedEnd(descriptor_).value_or(ChildEnd());
    return *end_;
  }

 private:
  void waitForEnd() const {
    pollfd watched{descriptor_.get(), POLLIN, 0};
    ::poll(&watched, 1, descriptor_ ? -1 : kLookIntervalMilliseconds);
  }

  pid_t process_ = 0;
  posix::FileDescriptor descriptor_;
  std::optional<ChildEnd> end_;
};

/// A tool's output, read as it comes; output beyond the limit is thrown away.
class Output {
 public:
  Output(posix::FileDescriptor reader, std::size_t limit) : reader_(std::move(reader)), limit_(limit) {
    ::fcntl(reader_.get(), F_SETFL, O_NONBLOCK);
  }

  /// -1 once everything was read, which poll ignores.
  int descriptor() const { return reader_.get(); }

  /// Reads all that is there now: how much it was.
  std::size_t read() {
    // Not on the stack: hosts call from threads that have little of it.
    if (piece_.empty()) piece_.resize(kPieceSize);
    std::size_t sum = 0;
    while (reader_) {
      const ssize_t count = posix::retried([&] { return ::read(reader_.get(), piece_.data(), piece_.size()); });
      if (count < 0 && errno == EAGAIN) return sum;
      if (count <= 0) {
        reader_.reset();
        return sum;
      }
      sum += static_cast<std::size_t>(count);
      text_.append(piece_.data(), std::min(static_cast<std::size_t>(count), limit_ - text_.size()));
    }
    return sum;
  }

  std::string take() { return std::move(text_); }

 private:
  static constexpr std::size_t kPieceSize = 65536;

  posix::FileDescriptor reader_;
  std::size_t limit_;
  std::string piece_;
  std::string text_;
};

/// When to look again at a tool that may write so much and no more, or whose progress is told. What it prints is not
/// waited for: a tool that unpacks prints a line for each file, and each would wake this thread and cost the tool time.
/// Looks come more often when it prints so much that the pipe could be full before the next one.
class Looks {
 public:
  int intervalAfter(std::size_t printed) {
    interval_ = printed > kMuch ? std::max(interval_ / 2, 1) : std::min(interval_ * 2, kLookIntervalMilliseconds);
    return interval_;
  }

 private:
  /// A quarter of what a pipe holds.
  static constexpr std::size_t kMuch = 16384;
  int interval_ = 1;
};

/// Waits until there is something to read, the tool has ended or so much time is over.
void waitFor(const RunningTool& tool, const Output& output, bool isLookedAt, std::chrono::milliseconds::rep longest) {
  // A tool that cannot be watched tells of its end by that of its output.
  const int printing = isLookedAt && tool.descriptor() >= 0 ? -1 : output.descriptor();
  std::array<pollfd, 2> watched{{{printing, POLLIN, 0}, {tool.descriptor(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), static_cast<int>(longest));
}

/// Reads the output until the tool has ended: 0, or the number of the limit that it reached before.
int readToTheEnd(RunningTool& tool, Output& output, const ToolRequest& request) {
  const Clock::time_point deadline = Clock::now() + request.timeLimit;
  const bool isLookedAt = request.writeLimit || request.onWritten;
  Looks looks;
  while (true) {
    const bool ended = tool.hasEnded();  // ask before the last read: output from before the end is there
    const std::size_t printed = output.read();
    if (ended) return 0;
    const std::uint64_t written = isLookedAt ? tool.written() : 0;
    if (request.writeLimit && written > *request.writeLimit) return EFBIG;
    if (request.onWritten) request.onWritten(written);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return ETIMEDOUT;
    std::chrono::milliseconds::rep longest = tool.descriptor() >= 0 ? 60000 : kLookIntervalMilliseconds;
    if (isLookedAt) longest = looks.intervalAfter(printed);
    waitFor(tool, output, isLookedAt, std::min(left, longest));
  }
}

class ToolRunner final : public platform::SystemTools {
 public:
  explicit ToolRunner(ToolPath path) : path_(std::move(path)) {}

  ToolResult run(const ToolRequest& request) override {
    const bool isProcessorQuestion =
        request.tool == Tool::sysctl && std::ranges::count(request.arguments, kProcessorVariable) > 0;
    if (isProcessorQuestion) return processorText();
    if (request.tool == Tool::gktool && path_(Tool::gktool).empty()) return run(assessmentFor(request));
    if (request.tool == Tool::spctl && path_(Tool::spctl).empty()) return assessHere(request);
    return runTools(request);
  }

 private:
  /// What looks through an application here: the path is the last argument of both.
  static ToolRequest assessmentFor(ToolRequest request) {
    request.tool = Tool::spctl;
    request.arguments = {"-a", request.arguments.empty() ? "" : request.arguments.back()};
    return request;
  }

  ToolResult runTools(const ToolRequest& request) {
    posix::Pipe output = posix::makePipe();
    if (!output.reader) return failure("make a pipe for");
    RunningTool first;
    RunningTool second;
    if (!request.pipedInto) {
      SpawnRequest spawned = requestFor(request.tool, request.arguments);
      spawned.fileSizeLimit = request.writeLimit.value_or(0);
      if (!startLast(first, spawned, request, output.writer)) return unstarted(request.tool, spawned);
      return finish(first, request, std::move(output), spawned.executable);
    }

    posix::Pipe between = posix::makePipe();
    if (!between.reader) return failure("make a pipe for");
    SpawnRequest writing = requestFor(request.tool, request.arguments);
    writing.standardOutput = between.writer.get();
    if (!start(first, writing)) return unstarted(request.tool, writing);
    between.writer.reset();
    SpawnRequest reading = requestFor(*request.pipedInto, {});
    reading.standardInput = between.reader.get();
    if (!startLast(second, reading, request, output.writer)) return unstarted(*request.pipedInto, reading);
    between.reader.reset();
    return finish(second, request, std::move(output), reading.executable);
  }

  SpawnRequest requestFor(Tool tool, std::vector<std::string> arguments) const {
    SpawnRequest request;
    request.executable = path_(tool);
    request.arguments = std::move(arguments);
    if (tool == Tool::tar) request.variables = {kTarOptions};
    request.standardInput = request.standardOutput = request.standardError = SpawnRequest::kNull;
    return request;
  }

  static bool start(RunningTool& tool, const SpawnRequest& request) {
    errno = ENOENT;
    return !request.executable.empty() && tool.start(request);
  }

  /// Starts the tool whose output is wanted.
  static bool startLast(RunningTool& tool, SpawnRequest& spawned, const ToolRequest& request,
                        posix::FileDescriptor& writer) {
    (request.collectStandardError ? spawned.standardError : spawned.standardOutput) = writer.get();
    const bool started = start(tool, spawned);
    writer.reset();
    return started;
  }

  static ToolResult finish(RunningTool& tool, const ToolRequest& request, posix::Pipe pipe, const std::string& path) {
    Output output(std::move(pipe.reader), request.outputLimit);
    ToolResult result;
    const int reached = readToTheEnd(tool, output, request);
    const ChildEnd end = tool.end();
    result.output = output.take();
    result.started = true;
    if (reached != 0) {
      result.cutShort = true;
      result.error = posix::posixError(reached, "wait for", "the tool");
    } else {
      judge(end, path, result);
    }
    return result;
  }

  /// What the way in which a tool ended by itself, or was ended by somebody else, says of it.
  static void judge(const ChildEnd& end, const std::string& path, ToolResult& result) {
    switch (end.how) {
      case ChildEnd::How::exited:
        result.exitCode = end.number;
        if (end.number != kNotLoaded) return;
        result.started = false;
        result.error = posix::posixError(ELIBACC, "run", path);
        return;
      case ChildEnd::How::killed:
        result.cutShort = true;
        result.error = end.number == SIGXFSZ ? posix::posixError(EFBIG, "wait for", "the tool") : endedBy(end.number);
        return;
      case ChildEnd::How::unknown:
        // Somebody else collected it. One that was ended early has most often printed nothing.
        result.cutShort = result.output.empty();
        if (result.cutShort) result.error = posix::posixError(ECHILD, "wait for", "the tool");
        return;
    }
  }

  static TKSError endedBy(int signal) {
    TKSError error = posix::posixError(EINTR, "wait for", "the tool");
    error.localizedDescription.append(" (signal: ").append(std::to_string(signal)).append(")");
    return error;
  }

  static ToolResult failure(std::string_view step, std::string_view path = "a tool") {
    ToolResult result;
    result.error = posix::posixError(errno, step, path);
    return result;
  }

  /// A tool that is missing is named by the places where it was looked for.
  static ToolResult unstarted(Tool tool, const SpawnRequest& request) {
    const int reason = errno;
    const std::string path = request.executable.empty() ? placesOf(tool) : request.executable;
    errno = reason;
    return failure("run", path);
  }

  /// Where the program is missing, its code is run here: a host may ship the library alone. The same words, the same
  /// exit codes.
  static ToolResult assessHere(const ToolRequest& request) {
    assessment::Verdict verdict = platform::assessment().run(request.arguments);
    ToolResult result;
    result.started = true;
    result.exitCode = verdict.exitCode;
    if (request.collectStandardError) result.output = std::move(verdict.text);
    if (result.output.size() > request.outputLimit) result.output.resize(request.outputLimit);
    return result;
  }

  /// Linux has no such variable; the kernel says the same elsewhere.
  static ToolResult processorText() {
    ToolResult result;
    const std::optional<TKSData> file = posix::readWholeFile(kProcessorFile, std::size_t{16} << 20, &result.error);
    if (!file) return result;
    result.started = true;
    result.exitCode = 0;
    const std::string_view text(reinterpret_cast<const char*>(file->data()), file->size());
    const std::size_t key = text.find(kProcessorKey);
    if (key == std::string_view::npos) return result;
    const std::size_t value = text.find_first_not_of(": \t", text.find(':', key));
    result.output = text.substr(value, text.find('\n', value) - value);
    result.output += '\n';
    return result;
  }

  ToolPath path_;
};

}  // namespace

std::unique_ptr<platform::SystemTools> makeSystemTools(ToolPath path) {
  return std::make_unique<ToolRunner>(std::move(path));
}

}  // namespace tks::gnulinux
