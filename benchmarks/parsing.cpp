// Versions and queries, measured against the least there is to do with the same bytes.

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <tksinterface/TKSUtilBase.h>

namespace {

constexpr std::string_view kNewer = "44.6.10.1234";
constexpr std::string_view kOlder = "44.6.9.87654";

std::uint64_t sumOfNumbers(std::string_view version) {
  std::uint64_t sum = 0;
  for (const char* next = version.data(); next < version.data() + version.size(); ++next) {
    std::uint32_t part = 0;
    next = std::from_chars(next, version.data() + version.size(), part).ptr;
    sum += part;
  }
  return sum;
}

void readNumbers(benchmark::State& state) {
  std::string_view newer = kNewer;
  std::string_view older = kOlder;
  for (auto _ : state) {
    benchmark::DoNotOptimize(newer);
    benchmark::DoNotOptimize(older);
    benchmark::DoNotOptimize(sumOfNumbers(newer) + sumOfNumbers(older));
  }
}

void compareVersions(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(TKSUtilBase::isNewerVersion(kNewer, kOlder));
}

/// A query of a mebibyte whose names are all different.
std::string query() {
  std::string text;
  for (int i = 0; text.size() < (std::size_t{1} << 20); ++i) {
    text += (i == 0 ? "parameter" : "&parameter") + std::to_string(i) + "=the%20value%20of%20parameter%20" +
            std::to_string(i);
  }
  return text;
}

void findMarksAndCopy(benchmark::State& state) {
  const std::string text = query();
  for (auto _ : state) {
    std::size_t marks = 0;
    for (const char mark : {'&', '='}) {
      for (std::size_t at = text.find(mark); at != text.npos; at = text.find(mark, at + 1)) ++marks;
    }
    const std::string copy = text;
    benchmark::DoNotOptimize(copy.data());
    benchmark::DoNotOptimize(marks);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void readQuery(benchmark::State& state) {
  const std::string text = query();
  for (auto _ : state) {
    const auto dictionary = TKSUtilBase::getQueryDict(text);
    if (!dictionary || dictionary->empty()) state.SkipWithError("not read");
    benchmark::DoNotOptimize(&dictionary);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

BENCHMARK(readNumbers)->Name("limit/version_compare");
BENCHMARK(compareVersions)->Name("ours/version_compare");
BENCHMARK(findMarksAndCopy)->Name("limit/query_1m");
BENCHMARK(readQuery)->Name("ours/query_1m");

}  // namespace

BENCHMARK_MAIN();
