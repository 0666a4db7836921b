// Property lists, measured against another library's bare parse of the same bytes; values by key path, measured against
// copying the value that is read.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include <plist/plist.h>
#include <tksinterface/TKSUtilBase.h>
#include <pugixml.hpp>

#include "platform/platform.h"

namespace {

using Format = tks::platform::PropertyLists::Format;

tks::platform::PropertyLists& lists() { return tks::platform::propertyLists(); }

/// What stands in a preferences file: texts most of all, and some of everything.
TKSDictionary entries(int count) {
  TKSDictionary dictionary;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    TKSValue value;
    switch (i % 8) {
      case 0:
        value = i * 1000;
        break;
      case 1:
        value = i % 16 == 1;
        break;
      case 2:
        value = TKSDate{1.6e9 + i};
        break;
      case 3:
        value = TKSDictionary{{"Version", "44.6.0." + number}, {"SiteDomain", "site" + number + ".tarvo.example"}};
        break;
      case 4:
        value = TKSArray{"44.6.0." + number, "44.5.0." + number};
        break;
      default:
        value = "value " + number + " of a preference, neither short nor long";
    }
    dictionary.set("Preference" + number, value);
  }
  return dictionary;
}

TKSData content(Format format) { return lists().serialize(entries(1000), format, nullptr).value(); }

void libplistParse(benchmark::State& state, Format format) {
  const TKSData bytes = content(format);
  const auto* const text = reinterpret_cast<const char*>(bytes.data());
  for (auto _ : state) {
    plist_t list = nullptr;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    format == Format::xml ? plist_from_xml(text, size, &list) : plist_from_bin(text, size, &list);
    if (list == nullptr) state.SkipWithError("not read");
    plist_free(list);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

void libplistWrite(benchmark::State& state, Format format) {
  const TKSData bytes = content(format);
  const auto* const text = reinterpret_cast<const char*>(bytes.data());
  const auto size = static_cast<std::uint32_t>(bytes.size());
  plist_t list = nullptr;
  format == Format::xml ? plist_from_xml(text, size, &list) : plist_from_bin(text, size, &list);
  for (auto _ : state) {
    char* written = nullptr;
    std::uint32_t length = 0;
    format == Format::xml ? plist_to_xml(list, &written, &length) : plist_to_bin(list, &written, &length);
    if (written == nullptr) state.SkipWithError("not written");
    plist_to_xml_free(written);
  }
  plist_free(list);
}

/// pugixml by itself: the elements of the text, no values.
void pugixmlParse(benchmark::State& state) {
  const TKSData bytes = content(Format::xml);
  for (auto _ : state) {
    pugi::xml_document document;
    if (!document.load_buffer(bytes.data(), bytes.size())) state.SkipWithError("not read");
    benchmark::DoNotOptimize(&document);
  }
}

void read(benchmark::State& state, Format format) {
  const TKSData bytes = content(format);
  for (auto _ : state) {
    const TKSValue value = lists().parse(bytes, nullptr);
    if (value.dictionary().size() != 1000) state.SkipWithError("not read");
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

void write(benchmark::State& state, Format format) {
  const TKSValue value = lists().parse(content(format), nullptr);
  for (auto _ : state) {
    const auto bytes = lists().serialize(value, format, nullptr);
    if (!bytes) state.SkipWithError("not written");
    benchmark::DoNotOptimize(&bytes);
  }
}

const TKSKeyPath kKeyPath{"Preference499", "Version"};

void copyValue(benchmark::State& state) {
  const TKSValue value = TKSUtilBase::getValueFormPlist(kKeyPath, entries(1000));
  for (auto _ : state) {
    const TKSValue copy = value;
    benchmark::DoNotOptimize(&copy);
  }
}

void readByKeyPath(benchmark::State& state) {
  const TKSDictionary dictionary = entries(1000);
  for (auto _ : state) {
    const TKSValue value = TKSUtilBase::getValueFormPlist(kKeyPath, dictionary);
    if (value.isNothing()) state.SkipWithError("not found");
    benchmark::DoNotOptimize(&value);
  }
}

void writeByKeyPath(benchmark::State& state) {
  TKSDictionary dictionary = entries(1000);
  for (auto _ : state) {
    TKSUtilBase::setValueForDict(kKeyPath, "44.6.0.7", &dictionary);
    benchmark::DoNotOptimize(&dictionary);
  }
}

BENCHMARK_CAPTURE(libplistParse, xml, Format::xml)->Name("limit/plist_xml_1000");
BENCHMARK_CAPTURE(read, xml, Format::xml)->Name("ours/plist_xml_1000");
BENCHMARK_CAPTURE(libplistParse, binary, Format::binary)->Name("limit/plist_binary_1000");
BENCHMARK_CAPTURE(read, binary, Format::binary)->Name("ours/plist_binary_1000");
BENCHMARK(pugixmlParse)->Name("peer/plist_xml_1000/pugixml alone");
BENCHMARK_CAPTURE(libplistWrite, xml, Format::xml)->Name("limit/plist_xml_write_1000");
BENCHMARK_CAPTURE(libplistWrite, binary, Format::binary)->Name("limit/plist_binary_write_1000");
BENCHMARK_CAPTURE(write, xml, Format::xml)->Name("ours/plist_xml_write_1000");
BENCHMARK_CAPTURE(write, binary, Format::binary)->Name("ours/plist_binary_write_1000");
BENCHMARK(copyValue)->Name("limit/key_path_read");
BENCHMARK(readByKeyPath)->Name("ours/key_path_read");
BENCHMARK(copyValue)->Name("limit/key_path_write");
BENCHMARK(writeByKeyPath)->Name("ours/key_path_write");

}  // namespace

BENCHMARK_MAIN();
