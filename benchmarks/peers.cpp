#include "benchmarks/peers.h"

#include <benchmark/benchmark.h>
#include <hs/hs.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <boost/json.hpp>
#include <cstdlib>
#include <iterator>

namespace {

void boostRead(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    const boost::json::value value =
        boost::json::parse(text, boost::json::make_shared_resource<boost::json::monotonic_resource>());
    benchmark::DoNotOptimize(&value);
  }
}

void boostWrite(benchmark::State& state, const std::string& text) {
  const boost::json::value value = boost::json::parse(text);
  for (auto _ : state) {
    const std::string written = boost::json::serialize(value);
    benchmark::DoNotOptimize(&written);
  }
}

void rapidRead(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    if (document.HasParseError()) state.SkipWithError("not read");
    benchmark::DoNotOptimize(&document);
  }
}

void rapidWrite(benchmark::State& state, const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  for (auto _ : state) {
    rapidjson::StringBuffer written;
    rapidjson::Writer<rapidjson::StringBuffer> writer(written);
    if (!document.Accept(writer)) state.SkipWithError("not written");
    benchmark::DoNotOptimize(written.GetString());
  }
}

// Masking.

/// The marks as one database, with a scratch of its own.
class Marks {
 public:
  Marks() {
    const char* const kMarks[] = {"http", "username", "/users/", "/home/", "@", "%40"};
    unsigned flags[std::size(kMarks)];
    unsigned numbers[std::size(kMarks)];
    for (unsigned i = 0; i < std::size(kMarks); ++i) {
      flags[i] = HS_FLAG_CASELESS;
      numbers[i] = i;
    }
    hs_compile_error_t* error = nullptr;
    const int compiled =
        ::hs_compile_multi(kMarks, flags, numbers, std::size(kMarks), HS_MODE_BLOCK, nullptr, &database_, &error);
    if (compiled != HS_SUCCESS || ::hs_alloc_scratch(database_, &scratch_) != HS_SUCCESS) std::abort();
  }
  ~Marks() {
    ::hs_free_scratch(scratch_);
    ::hs_free_database(database_);
  }
  Marks(const Marks&) = delete;
  Marks& operator=(const Marks&) = delete;

  unsigned count(const std::string& text) const {
    unsigned found = 0;
    const auto take = [](unsigned, unsigned long long, unsigned long long, unsigned, void* to) {
      ++*static_cast<unsigned*>(to);
      return 0;
    };
    ::hs_scan(database_, text.data(), static_cast<unsigned>(text.size()), 0, scratch_, take, &found);
    return found;
  }

 private:
  hs_database_t* database_ = nullptr;
  hs_scratch_t* scratch_ = nullptr;
};

void hyperscan(benchmark::State& state, const std::string& text) {
  static const Marks marks;
  for (auto _ : state) benchmark::DoNotOptimize(marks.count(text));
}

}  // namespace

void tks::benchmarks::addJsonPeers(const std::string& size, const std::string& text) {
  benchmark::RegisterBenchmark(("peer/json_read_" + size + "/Boost.JSON").c_str(), boostRead, text);
  benchmark::RegisterBenchmark(("peer/json_read_" + size + "/RapidJSON").c_str(), rapidRead, text);
  benchmark::RegisterBenchmark(("peer/json_write_" + size + "/Boost.JSON").c_str(), boostWrite, text);
  benchmark::RegisterBenchmark(("peer/json_write_" + size + "/RapidJSON").c_str(), rapidWrite, text);
}

void tks::benchmarks::addMaskingPeers(const std::string& name, const std::string& text) {
  benchmark::RegisterBenchmark(("peer/masking_" + name + "/Hyperscan").c_str(), hyperscan, text);
}
