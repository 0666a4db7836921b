#include "foundation/values/ShortestReal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tks {
namespace {

/// Any decimal with this many digits survives a double.
constexpr int kAlwaysKept = 15;
/// So many digits tell every double from its neighbours.
constexpr int kAlwaysEnough = 17;

/// The first digit's place is 10 to the `exponent`.
struct Decimal {
  char digits[kAlwaysEnough + 1] = {};
  int count = 0;
  int exponent = 0;
};

/// The decimal of `count` digits that is nearest to a finite magnitude.
Decimal nearest(double magnitude, int count) noexcept {
  char text[48];
  std::snprintf(text, sizeof text, "%.*e", count - 1, magnitude);
  Decimal result;
  const char* at = text;
  // The locale's separator stands between the digits; skip it.
  for (; *at != 'e'; ++at) {
    if (*at >= '0' && *at <= '9') result.digits[result.count++] = *at;
  }
  result.exponent = std::atoi(at + 1);
  return result;
}

bool readsBackAs(const Decimal& decimal, double magnitude) noexcept {
  char text[48];
  // A whole number with an exponent: no locale writes that in another way.
  std::snprintf(text, sizeof text, "%.*se%d", decimal.count, decimal.digits, decimal.exponent - decimal.count + 1);
  return std::strtod(text, nullptr) == magnitude;
}

/// One more in the last place.
Decimal next(Decimal decimal) noexcept {
  for (int i = decimal.count; i-- > 0;) {
    if (decimal.digits[i] != '9') {
      ++decimal.digits[i];
      return decimal;
    }
    decimal.digits[i] = '0';
  }
  decimal.digits[0] = '1';
  ++decimal.exponent;
  return decimal;
}

Decimal withoutClosingZeros(Decimal decimal) noexcept {
  while (decimal.count > 1 && decimal.digits[decimal.count - 1] == '0') --decimal.count;
  return decimal;
}

Decimal shortest(double magnitude) noexcept {
  // Numbers near the smallest have fewer digits to tell than others: there the first that reads back is the shortest.
  const int first = magnitude < 1e-300 ? 1 : kAlwaysKept;
  for (int count = first; count < kAlwaysEnough; ++count) {
    const Decimal candidate = nearest(magnitude, count);
    if (readsBackAs(candidate, magnitude)) return withoutClosingZeros(candidate);
    // Below a power of two doubles lie closer together than above it: the nearest may be too far where the one on the
    // other side is not.
    if (const Decimal other = next(candidate); readsBackAs(other, magnitude)) return withoutClosingZeros(other);
  }
  return withoutClosingZeros(nearest(magnitude, kAlwaysEnough));
}

char* write(char* out, const char* text, int count) noexcept {
  std::memcpy(out, text, static_cast<std::size_t>(count));
  return out + count;
}

char* writeZeros(char* out, int count) noexcept { return std::fill_n(out, std::max(count, 0), '0'); }

char* writeFixed(char* out, const Decimal& decimal) noexcept {
  if (decimal.exponent < 0) {
    out = writeZeros(write(out, "0.", 2), -decimal.exponent - 1);
    return write(out, decimal.digits, decimal.count);
  }
  const int whole = std::min(decimal.count, decimal.exponent + 1);
  out = writeZeros(write(out, decimal.digits, whole), decimal.exponent + 1 - whole);
  if (whole == decimal.count) return out;
  *out++ = '.';
  return write(out, decimal.digits + whole, decimal.count - whole);
}

char* writeScientific(char* out, const Decimal& decimal) noexcept {
  *out++ = decimal.digits[0];
  if (decimal.count > 1) {
    *out++ = '.';
    out = write(out, decimal.digits + 1, decimal.count - 1);
  }
  char exponent[8];
  return write(out, exponent, std::snprintf(exponent, sizeof exponent, "e%+03d", decimal.exponent));
}

}  // namespace

char* writeShortest(char* out, double value, RealNotation notation) noexcept {
  if (std::signbit(value)) *out++ = '-';
  if (std::isnan(value)) return write(out, "nan", 3);
  if (std::isinf(value)) return write(out, "inf", 3);
  const double magnitude = std::fabs(value);
  const Decimal decimal = magnitude == 0 ? Decimal{"0", 1, 0} : shortest(magnitude);
  return notation == RealNotation::fixed ? writeFixed(out, decimal) : writeScientific(out, decimal);
}

}  // namespace tks
