// Messages between two processes: an interface host here, a launcher host in a child, real pipes or files between them,
// against bare reads and writes of the same bytes. The child is this program, started once more.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include "benchmarks/bare_ends.h"
#include "tests/support/PipeChannels.h"
#include "tests/support/TemporaryFolder.h"

extern char** environ;

namespace {

using tks::benchmarks::BareLoop;
using tks::benchmarks::giveUp;
using tks::benchmarks::kHeaderBytes;
using tks::benchmarks::readAll;
using tks::benchmarks::writeAll;
using tks::test::Pipe;
using tks::test::PipeChannels;

constexpr int kBurst = 100'000;
constexpr std::size_t kBurstMessageBytes = 300;

void runOnCore(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  if (::sched_setaffinity(0, sizeof cores, &cores) != 0) giveUp("sched_setaffinity");
}

/// All cores again.
void runAnywhere() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  for (int core = 0; core < CPU_SETSIZE; ++core) CPU_SET(core, &cores);
  ::sched_setaffinity(0, sizeof cores, &cores);
}

/// A message whose frame carries exactly as many bytes.
TKSMessage messageOf(std::size_t payloadBytes) {
  TKSMessage message;
  message.messageType = "message";
  message.message = "";
  const std::size_t empty = message.dumpJSONString()->size();
  message.message = std::string(payloadBytes - empty, 'x');
  return message;
}

// The children.

/// Sends back each message.
int echoByLoop(std::size_t frameBytes, bool parses) {
  BareLoop loop(STDIN_FILENO, STDOUT_FILENO, frameBytes, parses);
  while (loop.receive()) loop.send(loop.message());
  return 0;
}

/// Sends back each frame of one size.
int echoBare(std::size_t frameBytes) {
  std::vector<char> frame(frameBytes);
  while (readAll(STDIN_FILENO, frame.data(), frame.size())) writeAll(STDOUT_FILENO, {frame.data(), frame.size()});
  return 0;
}

/// Writes many frames for each byte that it reads.
int burstBare() {
  const std::string frame(kHeaderBytes + kBurstMessageBytes, 'x');
  for (char order = 0; readAll(STDIN_FILENO, &order, 1);) {
    for (int i = 0; i < kBurst; ++i) writeAll(STDOUT_FILENO, frame);
  }
  return 0;
}

/// Sends back each message; for one of the type "burst", many.
class Echo : public TKSMessageHandlerDelegate {
 public:
  explicit Echo(TKSMessageHost& host) : host_(host) {}
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override {
    if (message.messageType == "end") return TKSMainLoop::stop();
    if (message.messageType != "burst") return host_.sendMessage(message);
    for (int i = 0; i < kBurst; ++i) host_.sendMessage(small_);
  }
  void handleMessageHostFatalError(const std::string&) override { TKSMainLoop::stop(); }

 private:
  TKSMessageHost& host_;
  const TKSMessage small_ = messageOf(kBurstMessageBytes);
};

int echoThroughTheLibrary() {
  TKSMessageHost& host = TKSMessageHost::sharedMessengeHost();
  Echo echo(host);
  host.openWithMessengeHandler(&echo);
  TKSMainLoop::run();
  host.close();
  return 0;
}

/// Appends an answer of the same size to the other file, whenever inotify tells that one has come.
int echoFilesBare(const std::string& from, const std::string& to, std::size_t bytes) {
  const int input = ::open(from.c_str(), O_RDONLY);
  const int output = ::open(to.c_str(), O_WRONLY | O_APPEND);
  const int watcher = ::inotify_init1(0);
  if (input < 0 || output < 0 || ::inotify_add_watch(watcher, from.c_str(), IN_MODIFY) < 0) giveUp("files");
  std::vector<char> buffer(bytes);
  alignas(inotify_event) char events[sizeof(inotify_event) + NAME_MAX + 1];
  for (std::size_t have = 0;;) {
    const ssize_t count = ::read(input, buffer.data() + have, bytes - have);
    if (count > 0) have += static_cast<std::size_t>(count);
    if (have == bytes) {
      if (buffer[0] == 'e') return 0;
      writeAll(output, {buffer.data(), bytes});
      have = 0;
      continue;
    }
    if (count == 0 && ::read(watcher, events, sizeof events) < 0) giveUp("inotify");
  }
}

/// This program in one of the parts above.
class Child {
 public:
  Child(std::vector<std::string> arguments, int input, int output, int core) {
    arguments.insert(arguments.begin(), "message_benchmark");
    arguments.push_back("--core=" + std::to_string(core));
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (input >= 0) ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (output >= 0) ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    if (::posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, pointers.data(), environ) != 0) giveUp("spawn");
    ::posix_spawn_file_actions_destroy(&actions);
  }
  ~Child() { wait(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  void wait() {
    if (pid_ > 0) ::waitpid(std::exchange(pid_, 0), nullptr, 0);
  }

 private:
  pid_t pid_ = 0;
};

/// Counts messages and ends the loop when enough have come.
class Counter : public TKSMessageHandlerDelegate {
 public:
  void handleMessage(const TKSMessage&, TKSMessageHandlerDelegate*) override {
    if (--missing_ == 0) TKSMainLoop::stop();
  }
  void handleMessageHostFatalError(const std::string& description) override {
    std::fprintf(stderr, "%s\n", description.c_str());
    std::_Exit(1);
  }
  void await(int messages) {
    missing_ = messages;
    TKSMainLoop::run();
  }

 private:
  int missing_ = 0;
};

/// An interface host and a launcher in a child, joined by pipes.
class LibraryPair {
 public:
  explicit LibraryPair(int childsCore)
      : child_({"--part=library"}, channels_.output->reader(), channels_.input->writer(), childsCore) {
    channels_.output->closeReader();
    channels_.input->closeWriter();
    host_.openWithMessengeHandler(&counter_);
  }
  ~LibraryPair() {
    TKSMessage end = messageOf(100);
    end.messageType = "end";
    host_.sendMessage(end);
    child_.wait();
    host_.close();
  }

  void exchange(const TKSMessage& message, int answers = 1) {
    host_.sendMessage(message);
    counter_.await(answers);
  }

 private:
  PipeChannels channels_;
  Child child_;
  Counter counter_;
  TKSMessageHost host_{tksMessageHostTypeInterface};
};

// Round trips.

void bareRoundTrip(benchmark::State& state, std::size_t payloadBytes, int childsCore) {
  runOnCore(0);
  Pipe toChild;
  Pipe fromChild;
  const std::size_t frameBytes = kHeaderBytes + payloadBytes;
  {
    Child child({"--part=bare", std::to_string(frameBytes)}, toChild.reader(), fromChild.writer(), childsCore);
    toChild.closeReader();
    fromChild.closeWriter();
    std::vector<char> frame(frameBytes, 'x');
    for (auto _ : state) {
      writeAll(toChild.writer(), {frame.data(), frame.size()});
      if (!readAll(fromChild.reader(), frame.data(), frame.size())) giveUp("read");
    }
    toChild.closeWriter();
  }
  runAnywhere();
}

void bareLoopRoundTrip(benchmark::State& state, std::size_t payloadBytes, int childsCore, bool parses) {
  runOnCore(0);
  Pipe toChild;
  Pipe fromChild;
  const std::size_t frameBytes = kHeaderBytes + payloadBytes;
  {
    Child child({parses ? "--part=parsing loop" : "--part=loop", std::to_string(frameBytes)}, toChild.reader(),
                fromChild.writer(), childsCore);
    toChild.closeReader();
    fromChild.closeWriter();
    BareLoop loop(fromChild.reader(), toChild.writer(), frameBytes, parses);
    const TKSMessage message = messageOf(payloadBytes);
    for (auto _ : state) {
      loop.send(message);
      if (!loop.receive()) giveUp("read");
    }
    toChild.closeWriter();
  }
  runAnywhere();
}

void ourRoundTrip(benchmark::State& state, std::size_t payloadBytes, int childsCore) {
  runOnCore(0);
  {
    LibraryPair pair(childsCore);
    const TKSMessage message = messageOf(payloadBytes);
    for (auto _ : state) pair.exchange(message);
  }
  runAnywhere();
}

// Bursts.

void bareBurst(benchmark::State& state) {
  runOnCore(0);
  Pipe toChild;
  Pipe fromChild;
  {
    Child child({"--part=burst"}, toChild.reader(), fromChild.writer(), 1);
    toChild.closeReader();
    fromChild.closeWriter();
    std::vector<char> buffer(std::size_t{64} * 1024);
    for (auto _ : state) {
      writeAll(toChild.writer(), "x");
      for (std::size_t missing = (kHeaderBytes + kBurstMessageBytes) * kBurst; missing > 0;) {
        const ssize_t count = ::read(fromChild.reader(), buffer.data(), buffer.size());
        if (count <= 0) giveUp("read");
        missing -= static_cast<std::size_t>(count);
      }
    }
    toChild.closeWriter();
  }
  runAnywhere();
  state.SetItemsProcessed(state.iterations() * kBurst);
}

void ourBurst(benchmark::State& state) {
  runOnCore(0);
  {
    LibraryPair pair(1);
    TKSMessage order = messageOf(100);
    order.messageType = "burst";
    for (auto _ : state) pair.exchange(order, kBurst);
  }
  runAnywhere();
  state.SetItemsProcessed(state.iterations() * kBurst);
}

// Files.

constexpr std::size_t kFileMessageBytes = 1024;

void bareFileRoundTrip(benchmark::State& state) {
  runOnCore(0);
  const tks::test::TemporaryFolder folder;
  const std::string there = folder / "there";
  const std::string back = folder / "back";
  tks::test::writeFile(there, "");
  tks::test::writeFile(back, "");
  const std::size_t bytes = kHeaderBytes + kFileMessageBytes;
  {
    Child child({"--part=files", there, back, std::to_string(bytes)}, -1, -1, 1);
    const int output = ::open(there.c_str(), O_WRONLY | O_APPEND);
    const int input = ::open(back.c_str(), O_RDONLY);
    const int watcher = ::inotify_init1(0);
    if (output < 0 || input < 0 || ::inotify_add_watch(watcher, back.c_str(), IN_MODIFY) < 0) giveUp("files");
    std::string frame(bytes, 'x');
    alignas(inotify_event) char events[sizeof(inotify_event) + NAME_MAX + 1];
    for (auto _ : state) {
      writeAll(output, frame);
      for (std::size_t have = 0; have < bytes;) {
        const ssize_t count = ::read(input, frame.data() + have, bytes - have);
        if (count > 0) have += static_cast<std::size_t>(count);
        if (count == 0 && ::read(watcher, events, sizeof events) < 0) giveUp("inotify");
      }
    }
    writeAll(output, std::string(bytes, 'e'));
    ::close(output);
    ::close(input);
    ::close(watcher);
  }
  runAnywhere();
}

void ourFileRoundTrip(benchmark::State& state) {
  runOnCore(0);
  const tks::test::TemporaryFolder folder;
  const std::string ipc = folder / "ipc";
  {
    Counter counter;
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.ipcByFile = true;
    host.setIPCFileFolderPath(ipc);
    host.openWithMessengeHandler(&counter);
    Child child({"--part=library", "-Communicate", "File", "-TempIPCFilePath", ipc}, -1, -1, 1);
    const TKSMessage message = messageOf(kFileMessageBytes);
    for (auto _ : state) {
      host.sendMessage(message);
      counter.await(1);
    }
    TKSMessage end = messageOf(100);
    end.messageType = "end";
    host.sendMessage(end);
    child.wait();
    host.close();
  }
  runAnywhere();
}

void registerAll() {
  struct Row {
    const char* name;
    std::size_t payloadBytes;
    int childsCore;
  };
  constexpr Row kRows[] = {
      {"roundtrip_300", 300, 1},    {"roundtrip_1k", 1024, 1},      {"roundtrip_1k_one_core", 1024, 0},
      {"roundtrip_1m", 1048576, 1}, {"roundtrip_10m", 10485760, 1},
  };
  const auto add = [](const std::string& name, std::function<void(benchmark::State&)> run) {
    benchmark::RegisterBenchmark(name.c_str(), std::move(run))->UseRealTime();
  };
  for (const Row& row : kRows) {
    add(std::string("limit/") + row.name,
        [row](benchmark::State& state) { bareRoundTrip(state, row.payloadBytes, row.childsCore); });
    add(std::string("ours/") + row.name,
        [row](benchmark::State& state) { ourRoundTrip(state, row.payloadBytes, row.childsCore); });
  }
  for (const Row& row : {kRows[1], kRows[2]}) {
    const std::string peer = std::string("peer/") + row.name;
    const auto run = [row](bool parses) {
      return [row, parses](benchmark::State& state) {
        bareLoopRoundTrip(state, row.payloadBytes, row.childsCore, parses);
      };
    };
    add(peer + "/bare epoll", run(false));
    add(peer + "/bare epoll and JSON", run(true));
  }
  add("limit/burst_100k", bareBurst);
  add("ours/burst_100k", ourBurst);
  add("limit/roundtrip_file_1k", bareFileRoundTrip);
  add("ours/roundtrip_file_1k", ourFileRoundTrip);
}

/// The part that a child plays; nothing in the benchmark itself.
int playPart(const std::vector<std::string>& arguments) {
  runOnCore(std::stoi(arguments.back().substr(std::strlen("--core="))));
  const std::string& part = arguments[0];
  if (part == "--part=library") return echoThroughTheLibrary();
  if (part == "--part=bare") return echoBare(std::stoul(arguments[1]));
  if (part == "--part=loop") return echoByLoop(std::stoul(arguments[1]), false);
  if (part == "--part=parsing loop") return echoByLoop(std::stoul(arguments[1]), true);
  if (part == "--part=burst") return burstBare();
  if (part == "--part=files") return echoFilesBare(arguments[1], arguments[2], std::stoul(arguments[3]));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::string_view(argv[1]).starts_with("--part=")) {
    return playPart(std::vector<std::string>(argv + 1, argv + argc));
  }
  registerAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
