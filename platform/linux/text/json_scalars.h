#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include <simdjson.h>

#include "foundation/values/ValueBuilder.h"

// Texts and numbers of JSON, for whoever has found where they stand.

namespace tks::gnulinux {

inline bool isJsonDigit(char c) noexcept { return c >= '0' && c <= '9'; }
inline bool isJsonBlank(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

/// What stands between two quotes, with escapes or without. Throws std::bad_alloc.
simdjson::error_code readOddJsonText(value::StackBuilder& builder, const char* begin, const char* end);
/// A number of many digits or with an exponent, from its sign on: written as JSON wants it. Throws std::bad_alloc.
simdjson::error_code readLongJsonNumber(value::StackBuilder& builder, const char* begin, const char* end);

/// Has something rare done by a function of its own, to a builder at another address: nobody else then knows the
/// address of this one, which can stay in registers.
template <class... Arguments>
simdjson::error_code aside(value::StackBuilder& builder,
                           simdjson::error_code (*function)(value::StackBuilder&, Arguments...),
                           Arguments... arguments) {
  value::StackBuilder elsewhere = std::move(builder);
  const simdjson::error_code error = function(elsewhere, arguments...);
  builder = std::move(elsewhere);
  return error;
}

/// Moves past one digit or more. False when there is none.
inline bool skipJsonDigits(const char*& next, const char* bound) noexcept {
  const char* const begin = next;
  while (next != bound && isJsonDigit(*next)) ++next;
  return next != begin;
}

/// Moves past the fraction and exponent of a number. False for mistakes in them.
inline bool skipJsonFractionAndExponent(const char*& next, const char* bound) noexcept {
  if (next != bound && *next == '.' && !skipJsonDigits(++next, bound)) return false;
  if (next == bound || (*next != 'e' && *next != 'E')) return true;
  if (++next != bound && (*next == '+' || *next == '-')) ++next;
  return skipJsonDigits(next, bound);
}

/// Those that a real holds exactly, as far as they are needed.
inline constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                          1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};

/// The magnitude of a number of few digits, from its point on: a whole number and a power of ten that a real holds
/// exactly, whose quotient is the nearest real. False, and `next` stays, for every other number.
template <class EndsAt>
bool readPlainJsonReal(std::uint64_t magnitude, const char* digits, const char*& next, EndsAt endsAt,
                       double& real) noexcept {
  constexpr bool kDividesExactly = FLT_EVAL_METHOD == 0;  // a quotient is rounded once
  constexpr std::uint64_t kLargest = std::uint64_t{1} << std::numeric_limits<double>::digits;
  constexpr std::ptrdiff_t kMostDigits = std::numeric_limits<std::uint64_t>::digits10;
  if (!kDividesExactly) return false;
  const char* end = next + 1;
  while (isJsonDigit(*end)) magnitude = 10 * magnitude + static_cast<std::uint64_t>(*end++ - '0');
  const std::ptrdiff_t decimals = end - next - 1;
  if (decimals == 0 || end - digits - 1 > kMostDigits || magnitude > kLargest || !endsAt(end)) return false;
  real = static_cast<double>(magnitude) / kPowersOfTen[decimals];
  next = end;
  return true;
}

/// The number that begins at `next`, up to its end, to which it moves; something that is no digit stands before `bound`
/// or at it. `endsAt(place)`: whether a number may end there. Throws std::bad_alloc.
template <class EndsAt>
simdjson::error_code readJsonNumber(value::StackBuilder& builder, const char*& next, const char* bound, EndsAt endsAt) {
  const char* const begin = next;
  const bool isNegative = *begin == '-';
  const char* const digits = begin + (isNegative ? 1 : 0);
  std::uint64_t magnitude = 0;
  for (next = digits; isJsonDigit(*next); ++next) magnitude = 10 * magnitude + static_cast<std::uint64_t>(*next - '0');
  if (next == digits || (*digits == '0' && next != digits + 1)) return simdjson::NUMBER_ERROR;
  if (endsAt(next) && next - digits <= std::numeric_limits<std::int64_t>::digits10) {
    const auto integer = static_cast<std::int64_t>(magnitude);
    builder.integer(isNegative ? -integer : integer);
    return simdjson::SUCCESS;
  }
  double real = 0;
  if (*next == '.' && readPlainJsonReal(magnitude, digits, next, endsAt, real)) {
    builder.real(isNegative ? -real : real);
    return simdjson::SUCCESS;
  }
  if (!skipJsonFractionAndExponent(next, bound) || !endsAt(next)) return simdjson::NUMBER_ERROR;
  return aside(builder, readLongJsonNumber, begin, next);
}

}  // namespace tks::gnulinux
