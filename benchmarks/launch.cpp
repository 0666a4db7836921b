// A whole launch: from launchMeetingWithParam to its finish callback, with a real launcher process over real pipes. The
// pauses between two looks at the process table are prescribed; they are counted and not slept.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/platform.h"

namespace {

using tks::platform::Clock;
using tks::platform::KnownFolders;
using tks::platform::Replaced;

/// What a launch may take, all in all.
constexpr double kLimitSeconds = 0.003;

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

void launch(benchmark::State& state) {
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
    state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
    while (tks.isTKSAppProcessing()) TKSMainLoop::drain();
  }
  state.counters["sleeps"] = benchmark::Counter(clock.sleeps, benchmark::Counter::kAvgIterations);
}

void limit(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(kLimitSeconds);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("limit/launch", limit)->UseManualTime()->Iterations(10);
  benchmark::RegisterBenchmark("ours/launch", launch)->UseManualTime()->Iterations(50)->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
