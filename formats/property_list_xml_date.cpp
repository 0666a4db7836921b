#include <chrono>

#include "formats/property_list_xml_scalars.h"

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
