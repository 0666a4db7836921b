#include <gtest/gtest.h>

#include "formats/property_list_binary.h"
#include "tests/support/PrintValue.h"
#include "tests/support/PropertyListSamples.h"

// Integers of sixteen bytes in binary lists.

namespace {

using namespace tks::formats::property_list;
using tks::test::plist::BinaryList;

TKSValue readInteger(std::uint64_t high, std::uint64_t low) {
  Problem problem;
  const std::string integer = "\x14" + BinaryList::number(high, 8) + BinaryList::number(low, 8);
  return readBinary(BinaryList{.objects = {integer}}.build(), problem);
}

TEST(BinaryNumbers, IntegersThat64BitsHoldAreKept) {
  EXPECT_EQ(readInteger(0, 0xFFFFFFFFFFFFFFFF), TKSValue(0xFFFFFFFFFFFFFFFFu));
  EXPECT_EQ(readInteger(0, 1), TKSValue(1));
  EXPECT_EQ(readInteger(~std::uint64_t{0}, ~std::uint64_t{0}), TKSValue(-1));
}

/// The nearest real, of two equally near ones the even one: rounded once, as a number in XML is.
TEST(BinaryNumbers, IntegersThat64BitsDoNotHoldBecomeTheNearestReal) {
  struct Wide {
    std::uint64_t high, low;
    double real;
  };
  constexpr Wide kWide[] = {
      {0x003CD83DDE00005D, 0x005D003E0070006C, 0x1.e6c1eef00002fp+117},
      {0xFFC327C221FFFFA2, 0xFFA2FFC1FF8FFF94, -0x1.e6c1eef00002fp+117},
      {0x0000000000000001, 0x8000000000000801, 0x1.8000000000001p+64},
      {0x0000000000000001, 0x0000000000000800, 0x1p+64},
      {0x0040000000000001, 0x0000000000000001, 0x1p+118},
      {0x7FFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 0x1p+127},
      {0x8000000000000000, 0x0000000000000000, -0x1p+127},
      {0xFFFFFFFFFFFFFFFF, 0x0000000000000000, -0x1p+64},
      {0xFFFFFFFFFFFFFFFF, 0x7FFFFFFFFFFFFC00, -0x1p+63},
      {0xFFFFFFFFFFFFFFFF, 0x7FFFFFFFFFFFFBFF, -0x1.0000000000001p+63},
  };
  for (const auto& [high, low, real] : kWide) EXPECT_EQ(readInteger(high, low), TKSValue(real)) << high << " " << low;
}

}  // namespace
