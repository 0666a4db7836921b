#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "foundation/values/ShortestReal.h"

// What macOS writes reals with, against the C++ library of a system whose library can.

namespace {

using tks::RealNotation;
using tks::writeShortest;

std::string ours(double value, RealNotation notation) {
  char text[32];
  return std::string(text, writeShortest(text, value, notation));
}

std::string theirs(double value, RealNotation notation) {
  char text[32];
  const auto format = notation == RealNotation::fixed ? std::chars_format::fixed : std::chars_format::scientific;
  return std::string(text, std::to_chars(text, text + sizeof text, value, format).ptr);
}

void expectSame(double value) {
  EXPECT_EQ(ours(value, RealNotation::scientific), theirs(value, RealNotation::scientific));
  const double magnitude = std::fabs(value);
  if (magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e16)) {
    EXPECT_EQ(ours(value, RealNotation::fixed), theirs(value, RealNotation::fixed));
  }
}

TEST(ShortestReal, WritesWhatToCharsWritesForEveryPowerOfTwoAndItsNeighbours) {
  for (int exponent = -1074; exponent < 1024; ++exponent) {
    const double power = std::ldexp(1.0, exponent);
    expectSame(power);
    expectSame(-power);
    expectSame(std::nextafter(power, 0.0));
    expectSame(std::nextafter(power, std::numeric_limits<double>::infinity()));
  }
}

TEST(ShortestReal, WritesWhatToCharsWritesForNumbersOfAllMagnitudes) {
  std::mt19937_64 random(20261121);
  for (int i = 0; i < 30'000; ++i) expectSame(std::bit_cast<double>(random()));
}

TEST(ShortestReal, WritesWhatToCharsWritesForNumbersThatPeopleWrite) {
  for (const double value : {0.0, -0.0, 1.0, 10.0, 0.1, 0.5, 100.25, 3.14, 1e15, 9007199254740993.0, 9999999999999998.0,
                             0.0001, 1e22, 1e23, 1e300, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308}) {
    expectSame(value);
  }
  std::mt19937_64 random(44);
  for (int i = 0; i < 20'000; ++i) expectSame(static_cast<double>(random() % 100'000'000) / 1000.0);
}

TEST(ShortestReal, WritesWhatIsNoNumberAsToCharsDoes) {
  expectSame(std::numeric_limits<double>::infinity());
  expectSame(-std::numeric_limits<double>::infinity());
  expectSame(std::numeric_limits<double>::quiet_NaN());
}

TEST(ShortestReal, IsTheSameUnderALocaleWithAComma) {
  const std::string before = std::setlocale(LC_NUMERIC, nullptr);
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "the locale is not installed";
  const std::string text = ours(1234.5, RealNotation::fixed);
  std::setlocale(LC_NUMERIC, before.c_str());
  EXPECT_EQ(text, "1234.5");
}

}  // namespace
