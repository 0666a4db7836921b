// Masking, measured against what no program could do without: a copy of the text and one look at each of its bytes.
//
// A benchmark "ours/X" comes with "limit/X" on the same text: the price of the limit's unit. How many units ours may
// cost stands in the counter "at_most" of ours.

#include <benchmark/benchmark.h>

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include <tksinterface/MaskSensitiveInformation.h>
#include <tksinterface/TKSILog.h>

#include "benchmarks/peers.h"

namespace {

constexpr std::size_t kLine = 4096;
constexpr std::size_t kShort = 50;
constexpr std::size_t kFlood = 65536;

std::string filled(std::string_view pattern, std::size_t length) {
  std::string text;
  while (text.size() < length) text += pattern;
  text.resize(length);
  return text;
}

/// What the library logs at length: the parameters of a launch, with paths, addresses and URLs here and there.
std::string typicalLine() {
  return filled(
      "Launch meeting with parameters: { \"gpchostname\" : \"server.example\", \"meetingid\" : \"182736455\", "
      "\"launchmethod\" "
      ": \"browser extension\", \"workingfolder\" : \"/Users/jane/Library/Application Support/Kovra Folder/Add-ons\", "
      "\"loggingurl\" : \"https://logging.example/upload?site=a&ticket=QUJDREVGR0g\", \"contact\" : "
      "\"jane.roe@mail.example\", \"clientbuildversion\" : \"43.10.2.11\", \"originbrowsertype\" : \"2\", "
      "\"packageparams\" : \"eyJhIjoiYiIsImMiOiJkIn0gZXlKaElqb2lZaUlzSW1NaU9pSmtJbjA\" }; ",
      kLine);
}

/// Nothing in it is masked, and nothing begins like something that is.
std::string cleanLine() {
  return filled(
      "Message host opened, status is connected; 4 parts of the message were read in 12 ms and put together. ", kLine);
}

std::string typicalLineWithoutURL() {
  return filled(
      "Bundle exists with path: /Users/jane/Library/Application Support/Kovra Folder/Add-ons/Launcher.app, "
      "contact jane.roe@mail.example, username=jane.roe ",
      kLine);
}

/// Dense with what is masked: each of them every 150 bytes.
std::string denseLine() {
  return filled(
      "Opened https://kovra.example/j for jane.roe@mail.example, folder /Users/jane/Library/Logs with "
      "ticket=QUJDREVGR0g "
      "and went on to the next of them, as before. ",
      kLine);
}

/// Beginnings of marks that come to nothing.
std::string nearMisses() {
  return filled("htt usernam /user %4 htp/ /users passwor tp: usern s/ ticke %04 /home tok ", kLine);
}

/// Without a question mark, a comma or a protocol: nothing may be cut away early.
std::string marks() {
  return filled("/users/ username %40 user name @ password /meet/ %40 email & ticket /join/ %40 token /start/ ",
                kFlood);
}

/// One copy and one pass of memchr for a byte that does not occur.
void copyAndPass(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    std::string copy = text;
    benchmark::DoNotOptimize(std::memchr(copy.data(), '\x01', copy.size()));
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// One copy with every byte in lower case, as a masker would make that searches such a copy.
void lowerCasingPass(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    std::string copy = text;
    for (char& byte : copy) byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void masking(benchmark::State& state, const std::string& text, double atMost) {
  for (auto _ : state) benchmark::DoNotOptimize(removePII(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.counters["at_most"] = atMost;
}

/// What a log line goes through, in which names are masked in more folders.
void maskingOfATextInALine(benchmark::State& state, const std::string& text, double atMost) {
  for (auto _ : state) benchmark::DoNotOptimize(TKSILog::removeSensitiveInformation(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.counters["at_most"] = atMost;
}

void compare(const std::string& name, const std::string& text, double atMost) {
  benchmark::RegisterBenchmark(("limit/masking_" + name).c_str(), copyAndPass, text);
  benchmark::RegisterBenchmark(("lower_case/masking_" + name).c_str(), lowerCasingPass, text);
  benchmark::RegisterBenchmark(("ours/masking_" + name).c_str(), masking, text, atMost);
  tks::benchmarks::addMaskingPeers(name, text);
}

void compareLogged(const std::string& name, const std::string& text, double atMost) {
  benchmark::RegisterBenchmark(("limit/logged_" + name).c_str(), copyAndPass, text);
  benchmark::RegisterBenchmark(("ours/logged_" + name).c_str(), maskingOfATextInALine, text, atMost);
}

void droppedLogLine(benchmark::State& state) {
  const std::string text = "text";
  for (auto _ : state) TKSILog::logWithLevel(TKSILogLevelInfo, "Send message string: %@", text);
}

void oneAtomicLoad(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(TKSILog::isListening());
}

}  // namespace

int main(int argc, char** argv) {
  compare("line_4k", typicalLine(), 30);
  compare("paths_4k", typicalLineWithoutURL(), 30);
  compare("clean_4k", cleanLine(), 4.2);
  compare("clean_50", cleanLine().substr(0, kShort), 2.2);
  compare("dense_4k", denseLine(), 24);
  compare("near_misses_4k", nearMisses(), 30);
  compare("marks_64k", marks(), 100);
  compare("at_signs_64k", filled("@", kFlood), 14);
  compare("escaped_at_signs_64k", filled("%40", kFlood), 18);
  compare("user_folders_64k", filled("/users/", kFlood), 60);
  compareLogged("line_4k", typicalLine(), 40);
  compareLogged("clean_4k", cleanLine(), 10);
  benchmark::RegisterBenchmark("limit/dropped_log_line", oneAtomicLoad);
  benchmark::RegisterBenchmark("ours/dropped_log_line", droppedLogLine);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
