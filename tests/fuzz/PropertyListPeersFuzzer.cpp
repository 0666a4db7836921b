#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "tests/fuzz/Compared.h"
#include "tests/fuzz/LibplistDifferences.h"
#include "tests/fuzz/Mutators.h"
#include "tests/fuzz/Require.h"

// Any bytes as a property list, for our reader and for libplist. Each refuses what the other one puts up with: XML that
// is not well formed there, lists that hold themselves here. What both read is the same.

namespace {

using tks::fuzz::Choice;
using tks::fuzz::Compared;
using tks::fuzz::LibplistDifferences;
using tks::fuzz::require;

/// It reads recursively.
constexpr std::size_t kLargest = 4096;
constexpr double kEpoch = 978307200;

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using Plist = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;

/// In what both were given.
LibplistDifferences differences;
Compared soFar;

/// Whether something is not compared.
bool isLeftOut(bool differs) {
  ++(differs ? soFar.leftOut : soFar.values);
  return differs;
}

void expectSame(const TKSValue& ours, plist_t peers);

bool isPlain(std::string_view text) {
  return std::ranges::all_of(text, [](char byte) { return byte >= ' ' && byte <= '~'; });
}

/// In the binary form it has rules of its own for other characters.
bool isComparable(std::string_view text) { return !isLeftOut(differences.otherThanAscii && !isPlain(text)); }

void expectSameText(const TKSValue& ours, plist_t peers) {
  std::uint64_t length = 0;
  const char* const text = plist_get_string_ptr(peers, &length);
  require(ours.isText());
  require(!isComparable(ours.text()) || ours.text() == std::string_view(text, length));
}

/// It keeps seconds in 32 bits; a date far away, or none at all, it has as some other.
void expectSameDate(const TKSValue& ours, plist_t peers) {
  std::int32_t seconds = 0;
  std::int32_t micro = 0;
  plist_get_date_val(peers, &seconds, &micro);
  const double date = ours.date().secondsSince1970 - kEpoch;
  const bool fits = std::fabs(date) < 2e9;  // which what is no number does not
  require(ours.isDate() && (isLeftOut(!fits || differences.dates) || std::fabs(date - seconds) <= 1.1));
}

void expectSameScalar(const TKSValue& ours, plist_t peers) {
  std::uint64_t length = 0;
  switch (plist_get_node_type(peers)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(peers, &value);
      return require(ours.isBoolean() && ours.boolean() == (value != 0));
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(peers, &value);
      // Of what 64 bits do not hold it keeps some of the bits.
      if (isLeftOut(ours.isReal())) return;
      const std::uint64_t number =
          ours.isUnsignedInteger() ? ours.unsignedInteger() : static_cast<std::uint64_t>(ours.integer());
      return require(ours.isInteger() && (isLeftOut(differences.integers) || number == value));
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(peers, &value);
      const bool same = ours.real() == value || (std::isnan(ours.real()) && std::isnan(value));
      // It reads texts of reals with an own addition of digits.
      const bool isClose = std::fabs(ours.real() - value) <= std::fabs(value) * 1e-9;
      return require(ours.isReal() && (isLeftOut(differences.reals) || same || isClose));
    }
    case PLIST_STRING:
      return expectSameText(ours, peers);
    case PLIST_DATA: {
      const char* bytes = plist_get_data_ptr(peers, &length);
      const TKSData data = ours.data();
      return require(ours.isData() && (isLeftOut(differences.data) || data == TKSData(bytes, bytes + length)));
    }
    case PLIST_DATE:
      return expectSameDate(ours, peers);
    default:
      return;  // kinds that are not ours to hold
  }
}

void expectSame(const TKSValue& ours, plist_t peers) {
  if (plist_get_node_type(peers) == PLIST_ARRAY) {
    require(ours.isArray() && ours.array().size() == plist_array_get_size(peers));
    for (std::uint32_t i = 0; i < plist_array_get_size(peers); ++i)
      expectSame(ours[std::size_t{i}], plist_array_get_item(peers, i));
    return;
  }
  if (plist_get_node_type(peers) != PLIST_DICT) return expectSameScalar(ours, peers);
  require(ours.isDictionary());
  // Of equal keys in the binary form we take the first, and it keeps all.
  if (isLeftOut(ours.dictionary().size() != plist_dict_get_size(peers)))
    return require(ours.dictionary().size() < plist_dict_get_size(peers));
  for (const auto& [key, value] : ours.dictionary()) {
    if (!isComparable(key)) continue;
    const plist_t item = plist_dict_get_item(peers, std::string(key).c_str());
    require(item != nullptr);
    expectSame(value, item);
  }
}

/// How both forms begin, and what lists in XML are made of: nothing that a change of single bytes would soon come to.
constexpr std::string_view kBinary = "bplist";
constexpr std::string_view kPieces[] = {
    "<![CDATA[", "]]>",        "<!--",      "-->",      "<?x ",    "?>",      "<!DOCTYPE plist ",
    "[",         "]>",         "\"",        "'",        "&amp;",   "&#65;",   "&#x41;",
    "<string>",  "</string>",  "<string/>", "<key>",    "</key>",  "<data>",  "</data>",
    "<integer>", "</integer>", "<real>",    "</real>",  "<date>",  "</date>", "<!ELEMENT plist (dict)>",
    "<dict>",    "</dict>",    "<array>",   "</array>", "<true/>", "<false>", "</false>",
    " a=\">\"",  " a='>'",     "0x",        "0",        "-",       "1e5",     "2026-02-28T12:34:56Z",
    "<plist>",   "</plist>",   "\u00e4",    "\r\n",     " ",       "AQID",    "18446744073709551615",
};

}  // namespace

Compared tks::fuzz::compared() { return soFar; }

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  Choice choice(seed);
  std::string list(tks::fuzz::textOf(data, size));
  if (list.starts_with(kBinary) || choice.oneIn(2)) return LLVMFuzzerMutate(data, size, room);
  const std::size_t at = choice.below(list.size() + 1);
  list.replace(at, choice.oneIn(4) ? choice.below(16) : 0, kPieces[choice.below(std::size(kPieces))]);
  return tks::fuzz::putBack(list, data, room);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLargest) return 0;
  const TKSValue ours = tks::platform::propertyLists().parse({data, size}, nullptr);
  if (ours.isNothing()) return 0;
  plist_t read = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(data), static_cast<std::uint32_t>(size), &read);
  const Plist peers(read);
  if (!peers) return 0;
  const std::string_view given = tks::fuzz::textOf(data, size);
  differences = given.starts_with(kBinary) ? LibplistDifferences{.otherThanAscii = true}
                                           : tks::fuzz::LibplistDifferencesFinder(given).find();
  if (!isLeftOut(differences.everything)) expectSame(ours, peers.get());
  return 0;
}
