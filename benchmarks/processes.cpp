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
/// Starts in a round. Few by fork, which takes a thousand times as long: what it is compared with has to be measured
/// within the same seconds, because machines drift.
constexpr std::size_t kStarts = 1001;
constexpr std::size_t kForks = 11;
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

/// Measures the start alone; the end comes outside of the time. The middle one of all starts, because those that
/// another process interrupts take many times as long.
template <class Start, class End>
void measureStarts(benchmark::State& state, std::size_t count, Start start, End end) {
  useMemory();
  for (auto _ : state) {
    std::vector<double> times(count);
    for (double& time : times) {
      const Clock::time_point begin = Clock::now();
      const pid_t process = start();
      time = std::chrono::duration<double>(Clock::now() - begin).count();
      if (process <= 0) return state.SkipWithError("cannot start the program");
      end(process);
    }
    std::ranges::sort(times);
    state.SetIterationTime(times[times.size() / 2]);
  }
}

std::array<char*, 2> arguments() { return {const_cast<char*>(kProgram), nullptr}; }

void vforkAndExec(benchmark::State& state) {
  const auto start = [] {
    const std::array<char*, 2> words = arguments();
    const pid_t process = ::vfork();
    if (process == 0) {
      ::execv(kProgram, words.data());
      ::_exit(127);
    }
    return process;
  };
  measureStarts(state, kStarts, start, [](pid_t process) { ::waitpid(process, nullptr, 0); });
}

void forkAndExec(benchmark::State& state) {
  // Until the program runs, which the end of a pipe that closes on exec tells.
  const auto start = [] {
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
  };
  measureStarts(state, kForks, start, [](pid_t process) { ::waitpid(process, nullptr, 0); });
}

void startChild(benchmark::State& state) {
  bool ended = false;
  const tks::platform::ChildRequest request{kProgram, {}, false};
  const auto start = [&] {
    return tks::platform::childProcesses().start(
        request, [&](tks::platform::ChildEnd) { ended = true; }, nullptr);
  };
  measureStarts(state, kStarts, start, [&](pid_t) {
    while (!ended) {
      pollfd watched{TKSMainLoop::descriptor(), POLLIN, 0};
      ::poll(&watched, 1, -1);
      TKSMainLoop::drain();
    }
    ended = false;
  });
  state.counters["at_most"] = 1.2;
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

BENCHMARK(vforkAndExec)->Name("limit/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(startChild)->Name("ours/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(forkAndExec)->Name("fork/spawn_1gb")->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(bareLook)->Name("limit/find_process");
BENCHMARK(findApplication)->Name("ours/find_process");

BENCHMARK_MAIN();
