#include <tksinterface/TKSFormat.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace {

using tks::formatted;

enum Status : std::int32_t { unknown = -1, starting = 2 };

TEST(Format, ATextWithoutConversionsStaysAsItIs) {
  EXPECT_EQ(formatted("Close message host."), "Close message host.");
  EXPECT_EQ(formatted(""), "");
}

TEST(Format, TextsOfAnyTypeStandForObjectsAndStrings) {
  const char* pointer = "pointer";
  EXPECT_EQ(formatted("%@ %@ %@ %@", "literal", std::string("string"), std::string_view("view"), pointer),
            "literal string view pointer");
  EXPECT_EQ(formatted("%s", "text"), "text");
}

TEST(Format, ANullPointerPrintsAsNull) {
  const char* none = nullptr;
  EXPECT_EQ(formatted("%@ %s", none, none), "(null) (null)");
}

TEST(Format, ObjectsPrintTheirDescription) {
  EXPECT_EQ(formatted("%@", TKSValue(7)), "7");
  EXPECT_EQ(formatted("%@", TKSValue()), "(null)");
  EXPECT_EQ(formatted("%@", TKSValue(TKSNull())), "<null>");
  EXPECT_EQ(formatted("%@", TKSError{"D", 3, "text"}), "Error Domain=D Code=3 \"text\"");
}

TEST(Format, NumbersPrintInTheWidthOfTheirConversion) {
  EXPECT_EQ(formatted("%i %d", 7, -7), "7 -7");
  EXPECT_EQ(formatted("%i", std::uint32_t{4294967295}), "-1");
  EXPECT_EQ(formatted("%d", std::int64_t{4294967298}), "2");
  EXPECT_EQ(formatted("%u", -1), "4294967295");
  EXPECT_EQ(formatted("%lu", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(formatted("%lu", std::uint32_t{4294967295}), "4294967295");
  EXPECT_EQ(formatted("%i %d", unknown, starting), "-1 2");
  EXPECT_EQ(formatted("%d", true), "1");
}

TEST(Format, APercentSignIsWrittenTwice) { EXPECT_EQ(formatted("%d%% of %@%%", 50, "x"), "50% of x%"); }

TEST(Format, ConversionsInArgumentsAreText) { EXPECT_EQ(formatted("%@ %@", "%@", "%d%"), "%@ %d%"); }

TEST(Format, TextsMayHoldNulBytes) {
  using namespace std::string_literals;
  EXPECT_EQ(formatted("<%@>", "a\0b"s), "<a\0b>"s);
}

TEST(Format, NeighbouringConversionsAndTheEndOfTheText) {
  EXPECT_EQ(formatted("%@%d%lu", "a", 1, 2UL), "a12");
  EXPECT_EQ(formatted("%lu M free / %@", 1UL, "b"), "1 M free / b");
}

}  // namespace
