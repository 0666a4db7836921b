// A whole launch: from launchMeetingWithParam to its finish callback, with a real launcher process over real pipes. The
// pauses between two looks at the process table are prescribed; they are counted and not slept.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/platform.h"

namespace {

using tks::platform::Clock;
using tks::platform::KnownFolders;
using tks::platform::Replaced;

/// What a launch may take, all in all.
constexpr double kLimitSeconds = 0.003;
/// What a launch with a look at the backup archive may take beside the start of the process.
constexpr double kRefreshLimitSeconds = 0.005;
constexpr int kSpawns = 50;

class CountingClock final : public Clock {
 public:
  std::string localTimestamp() override { return replaced_.before().localTimestamp(); }
  double secondsSince1970() override { return replaced_.before().secondsSince1970(); }
  void sleep(std::chrono::microseconds) override { ++sleeps; }
  std::atomic<int> sleeps = 0;

 private:
  Replaced<Clock> replaced_{*this};
};

/// A home of the benchmark's own, in which this is a lab device: the check of the signature is a row of its own.
class Home final : public KnownFolders {
 public:
  Home() : folder_(std::filesystem::temp_directory_path() / ("tks-benchmark-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
    TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  }
  ~Home() override { std::filesystem::remove_all(folder_); }
  std::string realHome() override { return folder_; }
  std::string temporary() override { return folder_; }
  std::string documents() override { return folder_; }

 private:
  std::filesystem::path folder_;
  Replaced<KnownFolders> replaced_{*this};
};

/// A launch replaces the standard input and output; the results are wanted on the real one.
class KeptStandardOutput {
 public:
  KeptStandardOutput() : kept_(::fcntl(1, F_DUPFD_CLOEXEC, 3)) {}
  ~KeptStandardOutput() {
    ::dup2(kept_, 1);
    ::close(kept_);
  }

 private:
  int kept_;
};

/// Seconds that it takes to start the launcher and to see it end, with nothing to read or to say.
double bareSpawn() {
  const std::string executable = std::string(TKS_LAUNCHER_BUNDLE) + "/Contents/MacOS/Tarvo Kovra Start";
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  char* arguments[] = {const_cast<char*>(executable.c_str()), nullptr};
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kSpawns; ++i) {
    pid_t process = 0;
    if (::posix_spawn(&process, executable.c_str(), &actions, nullptr, arguments, ::environ) == 0) {
      ::waitpid(process, nullptr, 0);
    }
  }
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
  ::posix_spawn_file_actions_destroy(&actions);
  return spent.count() / kSpawns;
}

/// `untimed`: seconds of each launch that are somebody else's.
void launchTimes(benchmark::State& state, double untimed) {
  const KeptStandardOutput keptStandardOutput;
  const Home home;
  CountingClock clock;
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(TKS_LAUNCHER_BUNDLE);
  const TKSDictionary parameters = {{tks_param_key_gpcurlroot, "https://meet.tarvo.example"}};

  for (auto _ : state) {
    bool launched = false;
    const auto begin = std::chrono::steady_clock::now();
    auto end = begin;
    tks.launchMeetingWithParam(
        parameters,
        [&] {
          end = std::chrono::steady_clock::now();
          launched = true;
          TKSMainLoop::stop();
        },
        [&](const TKSError& error) {
          state.SkipWithError(error.localizedDescription.c_str());
          TKSMainLoop::stop();
        });
    TKSMainLoop::run();
    if (!launched) break;
    state.SetIterationTime(std::max(std::chrono::duration<double>(end - begin).count() - untimed, 0.0));
    while (tks.isTKSAppProcessing()) TKSMainLoop::drain();
  }
  state.counters["sleeps"] = benchmark::Counter(clock.sleeps, benchmark::Counter::kAvgIterations);
}

void launch(benchmark::State& state) { launchTimes(state, 0); }

/// The same with a backup archive, of the version that is installed.
void launchCurrent(benchmark::State& state) {
  const std::string archive = std::filesystem::temp_directory_path() / ("tks-backup-" + std::to_string(::getpid()));
  std::ofstream(archive) << "not looked into";
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setBackupTKSZipPath(archive, TKSUtilBase::getBundleVersion(TKS_LAUNCHER_BUNDLE).description());
  launchTimes(state, bareSpawn());
  tks.setBackupTKSZipPath(std::nullopt, "");
  std::filesystem::remove(archive);
}

void limit(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(kLimitSeconds);
}

void refreshLimit(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(kRefreshLimitSeconds);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("limit/launch", limit)->UseManualTime()->Iterations(10);
  benchmark::RegisterBenchmark("ours/launch", launch)->UseManualTime()->Iterations(50)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("limit/start_current", refreshLimit)->UseManualTime()->Iterations(10);
  benchmark::RegisterBenchmark("ours/start_current", launchCurrent)
      ->UseManualTime()
      ->Iterations(50)
      ->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
