#include "formats/property_list_xml_scalars.h"

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <limits>
#include <string>

namespace tks::formats::property_list {

std::optional<double> parseReal(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  double value = 0;
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (stop != end || failure == std::errc::invalid_argument) return std::nullopt;
  if (failure == std::errc()) return value;
  static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return ::strtod_l(std::string(text).c_str(), nullptr, plain);
}

TKSValue parseInteger(std::string_view text) {
  const std::string_view whole = text;
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  const char* const end = text.data() + text.size();
  std::uint64_t magnitude = 0;
  const auto [stop, failure] = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
  if (stop != end || failure == std::errc::invalid_argument) return {};
  constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (failure == std::errc() && magnitude <= kLargest) {
    const auto value = static_cast<std::int64_t>(magnitude);
    return negative ? -value : value;
  }
  if (failure == std::errc() && negative && magnitude == kLargest + 1) return std::numeric_limits<std::int64_t>::min();
  if (failure == std::errc()) return negative ? TKSValue(-static_cast<double>(magnitude)) : TKSValue(magnitude);
  const std::optional<double> real = hexadecimal ? std::nullopt : parseReal(whole);
  return real ? TKSValue(*real) : TKSValue();
}

}  // namespace tks::formats::property_list
