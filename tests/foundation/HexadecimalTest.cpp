#include "foundation/values/Hexadecimal.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(Hexadecimal, EveryByteIsTwoDigits) {
  EXPECT_EQ(tks::hexadecimal(std::vector<std::uint8_t>{0x00, 0x0F, 0xA5, 0xFF}), "000fa5ff");
  EXPECT_EQ(tks::hexadecimal({}), "");
}

}  // namespace
