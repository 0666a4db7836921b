// Loading the library: the processor time of a program that links it and does nothing, over that of the same program
// without it. The programs are started once more for every round, in turn.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace {

struct Cost {
  double seconds = 0;
  double kibibytes = 0;
};

Cost costOf(const char* program) {
  char* const arguments[] = {const_cast<char*>(program), nullptr};
  pid_t child = 0;
  rusage used{};
  int status = 0;
  if (::posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0 ||
      ::wait4(child, &status, 0, &used) != child || status != 0) {
    std::perror(program);
    std::abort();
  }
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {seconds(used.ru_utime) + seconds(used.ru_stime), static_cast<double>(used.ru_maxrss)};
}

void loading(benchmark::State& state) {
  Cost over;
  for (auto _ : state) {
    const Cost without = costOf(TKS_WITHOUT_LIBRARY);
    const Cost with = costOf(TKS_WITH_LIBRARY);
    over.seconds += with.seconds - without.seconds;
    over.kibibytes += with.kibibytes - without.kibibytes;
    state.SetIterationTime(std::max(with.seconds - without.seconds, 0.0));
  }
  state.counters["KiB"] = over.kibibytes / static_cast<double>(state.iterations());
}

BENCHMARK(loading)->Name("alone/loading")->UseManualTime()->Iterations(100)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
