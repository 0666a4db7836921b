#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "tests/fuzz/Require.h"

// Any bytes as a property list, for our reader and for libplist. Each refuses what the other one puts up with: XML that
// is not well formed there, lists that hold themselves here. What both read is the same.

namespace {

using tks::fuzz::require;

/// It reads recursively.
constexpr std::size_t kLargest = 4096;
constexpr double kEpoch = 978307200;

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using Plist = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;

/// What both were given.
std::string_view given;

void expectSame(const TKSValue& ours, plist_t peers);

/// Of other characters, and of their numbers, it has rules of its own. Python's reader is compared in these.
bool isPlain(std::string_view text) {
  return std::ranges::all_of(text, [](char byte) { return byte >= ' ' && byte <= '~'; });
}
bool hasMarkupOfItsOwn() {
  return std::ranges::any_of(std::initializer_list<std::string_view>{"&#", "<!--", "CDATA", "<?", "<!E"},
                             [](std::string_view markup) { return given.find(markup, 1) != std::string_view::npos; });
}

/// It reads integers that begin with a zero to the base of eight.
bool hasLeadingZeros() {
  const auto isDigit = [](char byte) { return byte >= '0' && byte <= '9'; };
  for (std::size_t at = given.find('0'); at != std::string_view::npos; at = given.find('0', at + 1)) {
    if (at + 1 < given.size() && isDigit(given[at + 1]) && (at == 0 || !isDigit(given[at - 1]))) return true;
  }
  return false;
}

void expectSameText(const TKSValue& ours, plist_t peers) {
  std::uint64_t length = 0;
  const char* const text = plist_get_string_ptr(peers, &length);
  if (!isPlain(ours.text()) || hasMarkupOfItsOwn()) return;
  require(ours.isText() && ours.text() == std::string_view(text, length));
}

/// It keeps seconds in 32 bits; a date far away, or none at all, it has as some other.
void expectSameDate(const TKSValue& ours, plist_t peers) {
  std::int32_t seconds = 0;
  std::int32_t micro = 0;
  plist_get_date_val(peers, &seconds, &micro);
  const double date = ours.date().secondsSince1970 - kEpoch;
  const bool fits = std::fabs(date) < 2e9;  // which what is no number does not
  require(ours.isDate() && (!fits || std::fabs(date - seconds) <= 1.1));
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
      if (ours.isReal() || hasLeadingZeros()) return;
      const std::uint64_t number =
          ours.isUnsignedInteger() ? ours.unsignedInteger() : static_cast<std::uint64_t>(ours.integer());
      return require(ours.isInteger() && number == value);
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(peers, &value);
      const bool same = ours.real() == value || (std::isnan(ours.real()) && std::isnan(value));
      // It reads texts of reals with an own addition of digits.
      return require(ours.isReal() && (same || std::fabs(ours.real() - value) <= std::fabs(value) * 1e-9));
    }
    case PLIST_STRING:
      return expectSameText(ours, peers);
    case PLIST_DATA: {
      const char* bytes = plist_get_data_ptr(peers, &length);
      const TKSData data = ours.data();
      // The letters of a reference it takes for those of the data.
      const bool hasReferences = hasMarkupOfItsOwn() || given.find('&') != std::string_view::npos;
      return require(ours.isData() && (hasReferences || data == TKSData(bytes, bytes + length)));
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
  // Of equal keys we take the first, and it keeps all.
  if (ours.dictionary().size() != plist_dict_get_size(peers))
    return require(ours.dictionary().size() < plist_dict_get_size(peers));
  for (const auto& [key, value] : ours.dictionary()) {
    if (!isPlain(key)) continue;
    const plist_t item = plist_dict_get_item(peers, std::string(key).c_str());
    require(item != nullptr);
    expectSame(value, item);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLargest) return 0;
  given = tks::fuzz::textOf(data, size);
  const TKSValue ours = tks::platform::propertyLists().parse({data, size}, nullptr);
  if (ours.isNothing()) return 0;
  plist_t read = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(data), static_cast<std::uint32_t>(size), &read);
  const Plist peers(read);
  if (peers) expectSame(ours, peers.get());
  return 0;
}
