#include <gtest/gtest.h>

#include <limits>
#include <string>

#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSValue.h>

namespace {

struct Row {
  TKSValue value;
  std::string_view text;
};

TEST(Description, OfAPlainValueIsItsText) {
  const Row rows[] = {
      {TKSValue(), "(null)"},
      {TKSNull(), "<null>"},
      {true, "1"},
      {false, "0"},
      {0, "0"},
      {-42, "-42"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {1.0, "1"},
      {-0.5, "-0.5"},
      {0.1, "0.1"},
      {1.0 / 3, "0.3333333333333333"},
      {100000.0, "100000"},
      {1234567890123456.0, "1234567890123456"},
      {1e16, "1e+16"},
      {1e300, "1e+300"},
      {0.0001, "0.0001"},
      {0.00001, "1e-05"},
      {5e-324, "5e-324"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {"", ""},
      {"plain", "plain"},
      {"with \"quotes\", a\nline and \xC3\xA4", "with \"quotes\", a\nline and \xC3\xA4"},
      {TKSData(), "<>"},
      {TKSData{0x0A, 0x0B, 0xFF}, "<0a0bff>"},
      {TKSDate{0}, "1970-01-01 00:00:00 +0000"},
      {TKSDate{1795255200}, "2026-11-21 10:00:00 +0000"},
      {TKSDate{1795255200.999}, "2026-11-21 10:00:00 +0000"},
      {TKSDate{-0.5}, "1969-12-31 23:59:59 +0000"},
      {TKSDate{951782400}, "2000-02-29 00:00:00 +0000"},
      {TKSArray(), "(\n)"},
      {TKSDictionary(), "{\n}"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.value.description(), row.text);
}

TEST(Description, OfAnyMomentHasNoEnd) {
  for (const double seconds : {1e300, -1e300, std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_TRUE(TKSValue(TKSDate{seconds}).description().ends_with(" +0000"));
  }
}

TEST(Description, InsideArraysAndDictionariesTextsAreQuotedUnlessAllLettersAndDigits) {
  const Row rows[] = {
      {"plain", "plain"},
      {"4Letters2", "4Letters2"},
      {"", "\"\""},
      {"two words", "\"two words\""},
      {"under_score", "\"under_score\""},
      {"a.b", "\"a.b\""},
      {"-1", "\"-1\""},
      {"say \"hi\"", "\"say \\\"hi\\\"\""},
      {"C:\\", "\"C:\\\\\""},
      {"a\nb\tc\rd", "\"a\\nb\\tc\\rd\""},
      {"\a\b\v\f", "\"\\a\\b\\v\\f\""},
      {"\x01\x7F", "\"\\\\U0001\\\\U007f\""},
      {std::string_view("a\0b", 3), "\"a\\\\U0000b\""},
      {"caf\xC3\xA9", "\"caf\\\\U00e9\""},
      {"\xE4\xB8\xAD\xE6\x96\x87", "\"\\\\U4e2d\\\\U6587\""},
      {"\xF0\x9F\x98\x80", "\"\\\\Ud83d\\\\Ude00\""},
      {"broken \xFF\xC3", "\"broken \\\\Ufffd\\\\Ufffd\""},
      {"overlong \xC0\xAF", "\"overlong \\\\Ufffd\\\\Ufffd\""},
      {TKSNull(), "<null>"},
      {TKSValue(), "(null)"},
      {true, "1"},
      {2.5, "2.5"},
      {TKSData{0x0A, 0x0B}, "<0a0b>"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(TKSArray{row.value}.description(), "(\n    " + std::string(row.text) + "\n)");
    if (row.value.isNothing()) continue;  // is no value of a dictionary
    EXPECT_EQ((TKSDictionary{{"key", row.value}}).description(), "{\n    key = " + std::string(row.text) + ";\n}");
  }
}

TEST(Description, QuotesKeysLikeTexts) {
  EXPECT_EQ((TKSDictionary{{"two words", 1}, {"b2", 2}, {"", 3}, {"\xC3\xA9", 4}}).description(),
            "{\n"
            "    \"\" = 3;\n"
            "    b2 = 2;\n"
            "    \"two words\" = 1;\n"
            "    \"\\\\U00e9\" = 4;\n"
            "}");
}

TEST(Description, IndentsFourBlanksALevel) {
  const TKSDictionary dictionary{
      {"empty", TKSDictionary()},
      {"inner", TKSDictionary{{"deeper", TKSDictionary{{"a", 1}}}, {"x", "y"}}},
      {"list", TKSArray{"a", "b c", TKSArray{1, TKSArray()}, TKSDictionary{{"k", "v"}}}},
      {"last", "value"},
  };
  EXPECT_EQ(dictionary.description(),
            "{\n"
            "    empty =     {\n"
            "    };\n"
            "    inner =     {\n"
            "        deeper =         {\n"
            "            a = 1;\n"
            "        };\n"
            "        x = y;\n"
            "    };\n"
            "    last = value;\n"
            "    list =     (\n"
            "        a,\n"
            "        \"b c\",\n"
            "                (\n"
            "            1,\n"
            "                        (\n"
            "            )\n"
            "        ),\n"
            "                {\n"
            "            k = v;\n"
            "        }\n"
            "    );\n"
            "}");
  EXPECT_EQ(TKSValue(dictionary).description(), dictionary.description());
  EXPECT_EQ((TKSArray{1, "b"}).description(), "(\n    1,\n    b\n)");
}

TEST(Description, GrowsLinearlyWithTheDepth) {
  TKSValue value = 1;
  for (int i = 0; i < 10'000; ++i) value = TKSArray{value};
  EXPECT_LT(value.description().size(), 10'000u * 1024);
}

TEST(Description, IsWhatAFormatPrints) {
  const TKSValue value = TKSDictionary{{"a", 1}};
  EXPECT_EQ(tks::formatted("%@|%@|%@", value, value["a"], value["b"]), "{\n    a = 1;\n}|1|(null)");
}

}  // namespace
