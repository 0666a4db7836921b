#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"
#include "tests/support/PropertyListSamples.h"

// What XML allows in a list, and the reader for Linux takes. That of macOS refuses it (CFPropertyList.c): blanks at the
// end of a number or between the ends of an element, comments in texts, and integers beyond 64 bits.

namespace {

using namespace tks::test::plist;

TKSValue parsed(const std::string& value) {
  TKSError error;
  const TKSValue read = tks::platform::propertyLists().parse(bytesOf(xml(value)), &error);
  EXPECT_EQ(error, TKSError()) << value;
  return read;
}

TEST(PropertyListReader, TakesBlanksAroundNumbersAndInEmptyElements) {
  EXPECT_EQ(parsed("<array><integer> -7\n</integer><real>\t1.5 </real></array>"), TKSValue(TKSArray{-7, 1.5}));
  EXPECT_EQ(parsed("<array><true>\n</true><false> </false></array>"), TKSValue(TKSArray{true, false}));
}

TEST(PropertyListReader, LeavesCommentsOutOfTexts) {
  EXPECT_EQ(parsed("<string>a <!-- x --> b</string>"), TKSValue("a  b"));
  EXPECT_EQ(parsed("<string> <!-- x --></string>"), TKSValue(" "));
}

TEST(PropertyListReader, MakesRealsOfIntegersBeyond64Bits) {
  const TKSValue beyond = parsed("<integer>18446744073709551616</integer>");
  EXPECT_TRUE(beyond.isReal());
  EXPECT_EQ(beyond.real(), 18446744073709551616.0);
  EXPECT_EQ(parsed("<integer>-9223372036854775809</integer>").real(), -9223372036854775808.0);
  EXPECT_EQ(parsed("<integer>100000000000000000000000</integer>").real(), 1e23);
  EXPECT_EQ(parsed("<integer>-100000000000000000000000</integer>").real(), -1e23);
}

}  // namespace
