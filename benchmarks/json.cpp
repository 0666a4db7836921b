// JSON, measured against the least there is to do: reading against simdjson's own parse of the same bytes, which makes
// no value yet; writing against one copy of the text. Peers: Boost.JSON and RapidJSON with the same bytes.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include <simdjson.h>

#include <tksinterface/TKSMessage.h>

#include "benchmarks/peers.h"
#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"

namespace {

using tks::platform::json;

/// A text of letters and digits, another one for every number.
std::string words(std::size_t number, std::size_t length) {
  std::string text = "value " + std::to_string(number) + " of a launch parameter, as the site's page hands it over";
  while (text.size() < length) text += text;
  text.resize(length);
  return text;
}

/// An object whose members are texts, short and long in turn. Read from a text: members that come one by one, in no
/// order, are moved again and again.
TKSValue documentOfTexts(std::size_t bytes) {
  constexpr std::size_t kLengths[] = {4, 60, 12, 24, 9, 36};
  std::string text = "{";
  for (std::size_t i = 0; text.size() + 2 < bytes; ++i) {
    text.append(i == 0 ? "\"" : ",\"").append("parameter" + std::to_string(1000 + i)).append("\":\"");
    text.append(words(i, kLengths[i % std::size(kLengths)])).append("\"");
  }
  return json().parse(text + "}", nullptr);
}

/// Texts as long as a page of a log, in lines, with a quotation here and a letter beyond ASCII there.
TKSValue longTexts(std::size_t bytes) {
  constexpr std::string_view kLine = "12:03:04.567 Opened the meeting \"Weekly\" for J\u00f6rg, folder C:\\logs\n";
  std::string page;
  while (page.size() < 8000) page += kLine;
  TKSArray pages;
  for (std::size_t written = 0; written < bytes; written += page.size()) pages.append(page);
  return pages;
}

/// One text without anything to escape.
TKSValue oneText(std::size_t bytes) { return TKSArray{words(7, bytes)}; }

/// Objects in arrays in objects, with numbers, texts and booleans.
TKSValue nestedDocument(std::size_t bytes) {
  const auto person = [](std::size_t i) {
    return TKSDictionary{{"id", i},
                         {"name", words(i, 18)},
                         {"site", words(i / 7, 40)},
                         {"load", static_cast<double>(i) / 8},
                         {"active", i % 3 == 0},
                         {"versions", TKSArray{43, 10, 2, i % 100}},
                         {"client", TKSDictionary{{"os", "mac"}, {"arch", i % 2 ? "arm64" : "x86_64"}}}};
  };
  const std::size_t each = tks::json::write(person(100000))->size() + 1;
  TKSArray groups;
  for (std::size_t i = 0; i * each < bytes; i += 100) {
    TKSArray group;
    for (std::size_t k = 0; k < 100 && (i + k) * each < bytes; ++k) group.append(person(i + k));
    groups.append(TKSDictionary{{"group", i}, {"people", group}});
  }
  return TKSDictionary{{"groups", groups}};
}

void simdjsonParse(benchmark::State& state, const std::string& text) {
  simdjson::dom::parser parser;
  for (auto _ : state) {
    auto parsed = parser.parse(text.data(), text.size());
    if (parsed.error() != simdjson::SUCCESS) state.SkipWithError("not read");
    benchmark::DoNotOptimize(parsed);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void read(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    const TKSValue value = json().parse(text, nullptr);
    if (value.isNothing()) state.SkipWithError("not read");
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void oneCopy(benchmark::State& state, const std::string& text) {
  std::vector<char> copy(text.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void write(benchmark::State& state, const TKSValue& value) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    const auto text = tks::json::write(value);
    if (!text) state.SkipWithError("not written");
    bytes += text ? text->size() : 0;
    benchmark::DoNotOptimize(&text);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

/// What a conversation does with every message: read it, look at four members of the body, write one of the same size.
void message(benchmark::State& state, const std::string& text) {
  TKSMessage message;
  for (auto _ : state) {
    if (!message.parseJSONString(text)) state.SkipWithError("not read");
    for (const std::string_view key : {"parameter1000", "parameter1004", "parameter1009", "absent"}) {
      benchmark::DoNotOptimize(message.message[key].text());
    }
    const auto written = message.dumpJSONString();
    benchmark::DoNotOptimize(&written);
  }
}

void parseAndCopy(benchmark::State& state, const std::string& text) {
  simdjson::dom::parser parser;
  for (auto _ : state) {
    benchmark::DoNotOptimize(parser.parse(text.data(), text.size()));
    const std::string copy = text;
    benchmark::DoNotOptimize(&copy);
  }
}

void compareMessage(const std::string& size, std::size_t bytes) {
  TKSMessage request;
  request.messageType = "launch_meeting";
  request.token = "6f9619ff-8b86-d011-b42d-00cf4fc964ff";
  request.domain = "messages.example";
  request.message = documentOfTexts(bytes - 120);
  const std::string text = request.dumpJSONString().value_or("");
  benchmark::RegisterBenchmark(("limit/message_" + size).c_str(), parseAndCopy, text);
  benchmark::RegisterBenchmark(("ours/message_" + size).c_str(), message, text);
}

void compare(const std::string& size, const TKSValue& value) {
  const std::string text = tks::json::write(value).value_or("");
  // What was read stands in one block, in order: write that, and not what was put together piece by piece.
  const TKSValue document = json().parse(text, nullptr);
  benchmark::RegisterBenchmark(("limit/json_read_" + size).c_str(), simdjsonParse, text);
  benchmark::RegisterBenchmark(("ours/json_read_" + size).c_str(), read, text);
  benchmark::RegisterBenchmark(("limit/json_write_" + size).c_str(), oneCopy, text);
  benchmark::RegisterBenchmark(("ours/json_write_" + size).c_str(), write, document);
  tks::benchmarks::addJsonPeers(size, text);
}

}  // namespace

int main(int argc, char** argv) {
  compareMessage("1k", 1024);
  compare("200", documentOfTexts(200));
  compare("300", documentOfTexts(300));
  compare("4k", documentOfTexts(4096));
  compare("4k_nested", nestedDocument(4096));
  compare("1m", nestedDocument(std::size_t{1} << 20));
  compare("texts_1m", documentOfTexts(std::size_t{1} << 20));
  compare("texts_10m", documentOfTexts(std::size_t{10} << 20));
  compare("long_texts_1m", longTexts(std::size_t{1} << 20));
  compare("long_texts_10m", longTexts(std::size_t{10} << 20));
  compare("one_text_1m", oneText(std::size_t{1} << 20));
  compare("one_text_10m", oneText(std::size_t{10} << 20));
  compare("10m", nestedDocument(std::size_t{10} << 20));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
