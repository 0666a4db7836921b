#include "formats/property_list_xml_scalars.h"

#include <locale.h>
#include <stdlib.h>

#include <charconv>
#include <chrono>
#include <limits>
#include <string>

namespace tks::formats::property_list {
namespace {

/// Reads `size` digits at the front of the text, and `closing` after them.
std::optional<int> takeNumber(std::string_view& text, std::size_t size, char closing) {
  if (text.size() <= size || text[size] != closing) return std::nullopt;
  int number = 0;
  for (const char digit : text.substr(0, size)) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  text.remove_prefix(size + 1);
  return number;
}

}  // namespace

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

std::optional<TKSDate> parseDate(std::string_view text) {
  const auto year = takeNumber(text, 4, '-');
  const auto month = takeNumber(text, 2, '-');
  const auto day = takeNumber(text, 2, 'T');
  const auto hour = takeNumber(text, 2, ':');
  const auto minute = takeNumber(text, 2, ':');
  const auto second = takeNumber(text, 2, 'Z');
  if (!year || !month || !day || !hour || !minute || !second || !text.empty()) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const std::chrono::seconds moment = std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(*hour) +
                                      std::chrono::minutes(*minute) + std::chrono::seconds(*second);
  return TKSDate{static_cast<double>(moment.count())};
}

}  // namespace tks::formats::property_list
