#include "foundation/values/IntegerValue.h"

#include <algorithm>
#include <limits>

namespace tks {
namespace {

std::int32_t saturated(std::int64_t number) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(number, Limits::min(), Limits::max()));
}

}  // namespace

std::int32_t integerValue(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == text.npos) return 0;
  text.remove_prefix(start);
  const bool negative = text.front() == '-';
  if (negative || text.front() == '+') text.remove_prefix(1);
  // One more than the largest number of either sign, so that both saturate.
  constexpr std::int64_t kEnough = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  std::int64_t number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    number = std::min(number * 10 + (c - '0'), kEnough);
  }
  return saturated(negative ? -number : number);
}

std::int32_t integerValue(const TKSValue& value) {
  if (value.isText()) return integerValue(value.text());
  return saturated(value.integer());
}

}  // namespace tks
