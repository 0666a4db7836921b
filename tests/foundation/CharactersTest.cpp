#include "foundation/values/Characters.h"

#include <gtest/gtest.h>

namespace {

TEST(Characters, BlanksAndLineEndsAreTrimmedFromBothEnds) {
  EXPECT_EQ(tks::trimmed("  4.1.2\n"), "4.1.2");
  EXPECT_EQ(tks::trimmed("\t\v\f\r 4 , 1 \r\n"), "4 , 1");
  EXPECT_EQ(tks::trimmed(""), "");
  EXPECT_EQ(tks::trimmed(" \n"), "");
}

TEST(Characters, BlanksBeyondAsciiAreTrimmedAsWell) {
  EXPECT_EQ(tks::trimmed("\u00A0\u2003\u3000"
                         "4.1\u2028\u0085"),
            "4.1");
  EXPECT_EQ(tks::trimmed("\u00E4\u00A0\u00E4"), "\u00E4\u00A0\u00E4");
}

TEST(Characters, BytesThatAreNoTextStay) {
  EXPECT_EQ(tks::trimmed("\xA0x\x85"), "\xA0x\x85");
  EXPECT_EQ(tks::trimmed("\x80\x80"), "\x80\x80");
}

}  // namespace
