// Starting a child and looking at a process, measured against the bare system calls.
//
// limit/spawn_1gb    vfork and exec from a host with 1 GiB of resident memory, until the child's program runs
// ours/spawn_1gb     the same through the library: three descriptors, default signals, looked after until it ends
// fork/spawn_1gb     for comparison: fork and exec
// limit/find_process one readlink of /proc/PID/exe and one read of /proc/PID/stat
// ours/find_process  finding the running application with all that is known of it

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <tksinterface/TKSMainLoop.h>

#include "platform/child_processes.h"
#include "platform/platform.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kHostMemory = std::size_t{1} << 30;
constexpr int kForks = 11;
constexpr const char* kProgram = "/bin/true";

/// Memory that this process really uses.
void useMemory() {
  static void* memory = nullptr;
  if (memory != nullptr) return;
  memory = ::mmap(nullptr, kHostMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  ::madvise(memory, kHostMemory, MADV_NOHUGEPAGE);  // as scattered as the memory of a real host
  std::memset(memory, 1, kHostMemory);
}

/// Times of starts alone, in seconds; the end of each process comes outside of the time.
class Starts {
 public:
  template <class Start, class End>
  void measure(int count, Start start, End end) {
    for (int i = 0; i < count; ++i) {
      const Clock::time_point begin = Clock::now();
      const pid_t process = start();
      times_.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
      if (process <= 0) std::abort();
      end(process);
    }
  }
  /// The first quartile: what a start takes that nothing interrupts. Others take many times as long, and where the
  /// machine has other work they may be half of all.
  double undisturbed() {
    std::ranges::sort(times_);
    return times_[times_.size() / 4];
  }

 private:
  std::vector<double> times_;
};

void collect(pid_t process) { ::waitpid(process, nullptr, 0); }

std::array<char*, 2> arguments() { return {const_cast<char*>(kProgram), nullptr}; }

pid_t vforkAndExec() {
  const std::array<char*, 2> words = arguments();
  const pid_t process = ::vfork();
  if (process == 0) {
    ::execv(kProgram, words.data());
    ::_exit(127);
  }
  return process;
}

/// Until the program runs, which the end of a pipe that closes on exec tells.
pid_t forkAndExec() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return -1;
  const pid_t process = ::fork();
  if (process == 0) {
    ::execv(kProgram, arguments().data());
    ::_exit(127);
  }
  ::close(ends[1]);
  char byte = 0;
  if (::read(ends[0], &byte, 1) != 0) return -1;
  ::close(ends[0]);
  return process;
}

/// Some starts of children, each until its end is told.
void startChildren(Starts& starts, int count) {
  bool ended = false;
  const tks::platform::ChildRequest request{kProgram, {}, false};
  const auto start = [&] {
    return tks::platform::childProcesses().start(
        request, [&](tks::platform::ChildEnd) { ended = true; }, nullptr);
  };
  starts.measure(count, start, [&](pid_t) {
    while (!ended) {
      pollfd watched{TKSMainLoop::descriptor(), POLLIN, 0};
      ::poll(&watched, 1, -1);
      TKSMainLoop::drain();
    }
    ended = false;
  });
}

/// Results of rounds in which bare starts and ours take turns, some of each at a time: the machine does not go the same
/// way for long enough to measure one after the other.
class PairedStarts {
 public:
  enum Kind { bare, ours };

  static PairedStarts& shared() {
    static PairedStarts starts;
    return starts;
  }
  /// The result of one kind in a round, and that of the other kind the next time that it is asked for.
  double next(Kind kind) {
    if (results_[kind].empty()) measureBoth();
    const double result = results_[kind].front();
    results_[kind].pop_front();
    return result;
  }

 private:
  static constexpr int kTurns = 48;
  static constexpr int kStartsInATurn = 21;

  void measureBoth() {
    useMemory();
    std::array<Starts, 2> starts;
    for (int turn = 0; turn < kTurns; ++turn) {
      starts[bare].measure(kStartsInATurn, vforkAndExec, collect);
      startChildren(starts[ours], kStartsInATurn);
    }
    for (const Kind kind : {bare, ours}) results_[kind].push_back(starts[kind].undisturbed());
  }

  std::array<std::deque<double>, 2> results_;
};

void startBare(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(PairedStarts::shared().next(PairedStarts::bare));
}

void startChild(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(PairedStarts::shared().next(PairedStarts::ours));
  state.counters["at_most"] = 1.2;
}

void startByFork(benchmark::State& state) {
  useMemory();
  for (auto _ : state) {
    Starts starts;
    starts.measure(kForks, forkAndExec, collect);
    state.SetIterationTime(starts.undisturbed());
  }
}

/// An application that runs and waits.
class SleepingApplication {
 public:
  SleepingApplication() {
    std::string name = "/tmp/tks-benchmark-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    folder_ = name;
    const std::string contents = folder_ + "/Sleeper.app/Contents";
    std::filesystem::create_directories(contents + "/MacOS");
    std::filesystem::copy_file("/bin/sleep", contents + "/MacOS/Sleeper");
    std::ofstream(contents + "/Info.plist") << "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
                                               "<string>com.example.sleeper</string></dict></plist>";
    const tks::platform::ChildRequest request{contents + "/MacOS/Sleeper", {"1000"}, false};
    process_ = tks::platform::childProcesses().start(request, {}, nullptr);
  }
  ~SleepingApplication() {
    if (process_ > 0) ::kill(process_, SIGKILL);
    std::filesystem::remove_all(folder_);
  }
  SleepingApplication(const SleepingApplication&) = delete;
  SleepingApplication& operator=(const SleepingApplication&) = delete;
  pid_t process() const { return process_; }

 private:
  std::string folder_;
  pid_t process_ = 0;
};

void bareLook(benchmark::State& state) {
  const SleepingApplication application;
  for (auto _ : state) {
    std::array<char, 64> path;
    std::array<char, 4096> text;
    std::snprintf(path.data(), path.size(), "/proc/%d/exe", static_cast<int>(application.process()));
    benchmark::DoNotOptimize(::readlink(path.data(), text.data(), text.size()));
    std::snprintf(path.data(), path.size(), "/proc/%d/stat", static_cast<int>(application.process()));
    const int file = ::open(path.data(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(::read(file, text.data(), text.size()));
    ::close(file);
  }
}

void findApplication(benchmark::State& state) {
  const SleepingApplication application;
  for (auto _ : state) {
    const auto found = tks::platform::runningApplications().find(application.process());
    if (!found) return state.SkipWithError("not found");
    benchmark::DoNotOptimize(found->startTime);
  }
}

}  // namespace

BENCHMARK(startBare)->Name("limit/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(startChild)->Name("ours/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(startByFork)->Name("fork/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(bareLook)->Name("limit/find_process");
BENCHMARK(findApplication)->Name("ours/find_process");

BENCHMARK_MAIN();
