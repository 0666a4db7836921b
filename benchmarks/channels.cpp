#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/standard_handles.h"

// Two processes that send a message to and fro: with bare read and write, and through the library's channels and loop.
// The peer is this very program, started with "--peer=NAME size core [path]".

extern char** environ;

namespace {

using tks::platform::ByteSink;
using tks::platform::ByteSource;
using tks::platform::channels;
using tks::platform::mainLoop;
using tks::posix::FileDescriptor;
using tks::posix::makePipe;
using tks::posix::Pipe;

void pinTo(int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  ::sched_setaffinity(0, sizeof set, &set);
}

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

/// Writes a whole message, waiting as long as it takes. False when the other side is gone.
bool writeWhole(int descriptor, std::string_view message) {
  while (!message.empty()) {
    const ssize_t count = ::write(descriptor, message.data(), message.size());
    if (count <= 0) return false;
    message.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool readWhole(int descriptor, std::string& message) {
  for (std::size_t at = 0; at < message.size();) {
    const ssize_t count = ::read(descriptor, message.data() + at, message.size() - at);
    if (count <= 0) return false;
    at += static_cast<std::size_t>(count);
  }
  return true;
}

/// One end of a conversation over the library's channels: gathers whole messages of a fixed size, and sends them.
class Talker {
 public:
  Talker(std::unique_ptr<ByteSource> source, std::shared_ptr<ByteSink> sink, std::size_t size)
      : source_(std::move(source)), sink_(std::move(sink)), message_(size, 'x') {}

  /// `arrived` is called with each whole message that came.
  void listen(std::function<void()> arrived) {
    arrived_ = std::move(arrived);
    source_->watch([this] { onReadable(); });
  }

  void send() {
    sink_->expect(message_.size());
    sent_ = 0;
    sendRest();
  }

 private:
  void sendRest() {
    sent_ += sink_->write(std::string_view(message_).substr(sent_)).count;
    if (sent_ < message_.size()) sink_->whenWritable([this] { sendRest(); });
  }

  void onReadable() {
    const auto transfer = source_->read(std::span(message_).subspan(received_));
    if (transfer.end || transfer.error) return mainLoop().stop();
    received_ += transfer.count;
    if (received_ < message_.size()) return;
    received_ = 0;
    arrived_();
  }

  std::unique_ptr<ByteSource> source_;
  std::shared_ptr<ByteSink> sink_;
  std::string message_;
  std::size_t received_ = 0;
  std::size_t sent_ = 0;
  std::function<void()> arrived_;
};

// The peers

void playBareEcho(std::size_t size) {
  std::string message(size, 'x');
  while (readWhole(STDIN_FILENO, message) && writeWhole(STDOUT_FILENO, message)) {
  }
}

void playChannelEcho(std::size_t size) {
  Talker talker(channels().standardInput(nullptr), channels().standardOutput(nullptr), size);
  talker.listen([&] { talker.send(); });
  mainLoop().run();
}

/// Appends a message to a file whenever a byte comes.
void playAppender(const char* path, std::size_t size) {
  const FileDescriptor file(::open(path, O_WRONLY | O_APPEND | O_CLOEXEC));
  const std::string message(size, 'x');
  std::string request(1, ' ');
  while (readWhole(STDIN_FILENO, request) && writeWhole(file.get(), message)) {
  }
}

int playPeer(int argc, char** argv) {
  const std::string_view name = std::string_view(argv[1]).substr(std::strlen("--peer="));
  const std::size_t size = std::strtoul(argv[2], nullptr, 10);
  pinTo(std::atoi(argv[3]));
  if (name == "bare") playBareEcho(size);
  if (name == "channel") playChannelEcho(size);
  if (name == "appender" && argc > 4) playAppender(argv[4], size);
  return 0;
}

/// A peer, with the ends of pipes that lead to its standard input and from its standard output.
class Peer {
 public:
  Peer(std::string name, std::size_t size, int core, std::string path = "") {
    Pipe there = makePipe();
    Pipe back = makePipe();
    name.insert(0, "--peer=");
    std::vector<std::string> texts{"channel_benchmark", std::move(name), std::to_string(size), std::to_string(core)};
    if (!path.empty()) texts.push_back(std::move(path));
    std::vector<char*> arguments;
    for (std::string& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, there.reader.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, back.writer.get(), STDOUT_FILENO);
    if (::posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, arguments.data(), environ) != 0) fail("posix_spawn");
    ::posix_spawn_file_actions_destroy(&actions);
    to_ = std::move(there.writer);
    from_ = std::move(back.reader);
  }
  ~Peer() {
    to_.reset();
    from_.reset();
    ::waitpid(pid_, nullptr, 0);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  int to() const { return to_.get(); }
  int from() const { return from_.get(); }

 private:
  pid_t pid_ = 0;
  FileDescriptor to_;
  FileDescriptor from_;
};

/// Puts pipes in the place of this process's standard input and output, as a launch does, for a scope.
class JoinedHandles {
 public:
  explicit JoinedHandles(const Peer& peer)
      : input_(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)), output_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    ::dup2(peer.from(), STDIN_FILENO);
    ::dup2(peer.to(), STDOUT_FILENO);
  }
  ~JoinedHandles() {
    ::dup2(input_.get(), STDIN_FILENO);
    ::dup2(output_.get(), STDOUT_FILENO);
  }
  JoinedHandles(const JoinedHandles&) = delete;
  JoinedHandles& operator=(const JoinedHandles&) = delete;

 private:
  FileDescriptor input_;
  FileDescriptor output_;
};

// Round trips. One iteration is a number of them, so that the loop runs as it does in a conversation.

void bareRoundTrips(benchmark::State& state, std::size_t size, int trips, int peerCore) {
  pinTo(0);
  const Peer peer("bare", size, peerCore);
  std::string message(size, 'x');
  for (auto _ : state) {
    for (int trip = 0; trip < trips; ++trip) {
      if (!writeWhole(peer.to(), message) || !readWhole(peer.from(), message)) fail("round trip");
    }
  }
}

void channelRoundTrips(benchmark::State& state, std::size_t size, int trips, int peerCore) {
  pinTo(0);
  const Peer peer("channel", size, peerCore);
  std::unique_ptr<Talker> talker;
  {
    const JoinedHandles joined(peer);
    talker = std::make_unique<Talker>(channels().standardInput(nullptr), channels().standardOutput(nullptr), size);
  }
  int left = 0;
  talker->listen([&] { --left > 0 ? talker->send() : mainLoop().stop(); });
  for (auto _ : state) {
    left = trips;
    talker->send();
    mainLoop().run();
  }
}

// Wake-ups by a file that another process appends to. One iteration is a request by a pipe and the wake-up.

constexpr std::size_t kAppended = 300;

struct WatchedFile {
  WatchedFile() {
    std::string name = std::filesystem::temp_directory_path() / "tks-benchmark-XXXXXX";
    const FileDescriptor file(::mkstemp(name.data()));
    path = name;
  }
  ~WatchedFile() { std::filesystem::remove(path); }
  WatchedFile(const WatchedFile&) = delete;
  WatchedFile& operator=(const WatchedFile&) = delete;
  std::string path;
};

void bareFileWakeUps(benchmark::State& state) {
  pinTo(0);
  const WatchedFile watched;
  const Peer peer("appender", kAppended, 1, watched.path);
  const FileDescriptor file(::open(watched.path.c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor inotify(::inotify_init1(IN_CLOEXEC));
  ::inotify_add_watch(inotify.get(), watched.path.c_str(), IN_MODIFY);
  std::string event(4096, ' ');
  std::string message(4096, ' ');
  for (auto _ : state) {
    if (!writeWhole(peer.to(), "x")) fail("request");
    if (::read(inotify.get(), event.data(), event.size()) <= 0) fail("inotify");
    if (::read(file.get(), message.data(), message.size()) != kAppended) fail("message");
  }
}

void channelFileWakeUps(benchmark::State& state) {
  pinTo(0);
  const WatchedFile watched;
  const Peer peer("appender", kAppended, 1, watched.path);
  const auto source = channels().fileSource(watched.path, nullptr);
  std::string message(4096, ' ');
  bool come = false;
  source->watch([&] {
    if (source->read(message).count != kAppended) fail("message");
    come = true;
    mainLoop().stop();
  });
  for (auto _ : state) {
    if (!writeWhole(peer.to(), "x")) fail("request");
    mainLoop().run();
  }
}

// What an open file channel costs while nothing comes: the processor time of ten seconds.

void idleFileChannel(benchmark::State& state) {
  const WatchedFile watched;
  const auto source = channels().fileSource(watched.path, nullptr);
  source->watch([] {});
  const auto micros = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  };
  mainLoop().drain();
  for (auto _ : state) {
    const double before = micros();
    const auto timer = mainLoop().after(std::chrono::seconds(10), [] { mainLoop().stop(); });
    mainLoop().run();
    state.SetIterationTime((micros() - before) / 1e6);
  }
}

using benchmark::RegisterBenchmark;

constexpr std::size_t kKibi = 1024;
constexpr std::size_t kLargest = 10 * kKibi * kKibi;

struct Row {
  const char* name;
  std::size_t size;
  int trips;
  int peerCore;
};

constexpr Row kRows[] = {{"pipe_roundtrip_1k_channel", kKibi, 100, 1},
                         {"pipe_roundtrip_1k_channel_one_core", kKibi, 100, 0},
                         {"pipe_roundtrip_10m_channel", kLargest, 1, 1}};

void registerAll() {
  for (const Row& row : kRows) {
    RegisterBenchmark((std::string("limit/") + row.name).c_str(), bareRoundTrips, row.size, row.trips, row.peerCore)
        ->UseRealTime();
    RegisterBenchmark((std::string("ours/") + row.name).c_str(), channelRoundTrips, row.size, row.trips, row.peerCore)
        ->UseRealTime();
  }
  RegisterBenchmark("limit/file_wakeup", bareFileWakeUps)->UseRealTime();
  RegisterBenchmark("ours/file_wakeup", channelFileWakeUps)->UseRealTime();
  RegisterBenchmark("alone/idle_file_channel", idleFileChannel)->UseManualTime()->Iterations(1);
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  if (argc > 3 && std::string_view(argv[1]).starts_with("--peer=")) return playPeer(argc, argv);
  registerAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
