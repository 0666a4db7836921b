#include "formats/xml_text.h"

#include <gtest/gtest.h>

namespace {

using tks::formats::appendCharacterData;
using tks::formats::hasOnlyXmlCharacters;
using tks::formats::References;
using tks::formats::withoutXmlBlanks;

std::optional<std::string> read(std::string_view raw, References taken) {
  std::string text;
  return appendCharacterData(text, raw, taken) ? std::optional(text) : std::nullopt;
}

/// A text, and what it stands for to a reader of XML and to one that takes anything; nothing: it is refused.
struct Data {
  const char* raw;
  std::optional<std::string> ofXml;
  std::optional<std::string> ofAnything;
};

TEST(XmlText, ReferencesStandForCharacters) {
  const Data cases[] = {
      {"", "", ""},
      {"plain\r\ntext", "plain\r\ntext", "plain\r\ntext"},
      {"a&amp;b&lt;&gt;&quot;&apos;", "a&b<>\"'", "a&b<>\"'"},
      {"&#65;&#x42;&#x1F600;", "AB\U0001F600", "AB\U0001F600"},
      {"&amp;amp;", "&amp;", "&amp;"},
      {"&#1;", std::nullopt, "\x01"},
      {"&#xFFFE;", std::nullopt, "\xEF\xBF\xBE"},
      {"&#x0000000000041;", std::nullopt, "A"},
      {"&#0;", std::nullopt, std::nullopt},
      {"&#x110000;", std::nullopt, std::nullopt},
      {"&#99999999999;", std::nullopt, std::nullopt},
      {"&#X41;", std::nullopt, std::nullopt},
      {"&#;", std::nullopt, std::nullopt},
      {"&;", std::nullopt, std::nullopt},
      {"&nbsp;", std::nullopt, std::nullopt},
      {"a&", std::nullopt, std::nullopt},
      {"&amp", std::nullopt, std::nullopt},
  };
  for (const Data& one : cases) {
    EXPECT_EQ(read(one.raw, References::ofXml), one.ofXml) << one.raw;
    EXPECT_EQ(read(one.raw, References::ofAnything), one.ofAnything) << one.raw;
  }
}

TEST(XmlText, BlanksAreThoseOfXml) {
  EXPECT_EQ(withoutXmlBlanks(" \t\r\n a b \n"), "a b");
  EXPECT_EQ(withoutXmlBlanks(" \n"), "");
  EXPECT_EQ(withoutXmlBlanks(""), "");
  EXPECT_EQ(withoutXmlBlanks("\va\u00A0"), "\va\u00A0");
}

TEST(XmlText, SomeCharactersCannotBeWritten) {
  EXPECT_TRUE(hasOnlyXmlCharacters("a\t\r\n\u00E4\uFFFD\U0001F600"));
  EXPECT_FALSE(hasOnlyXmlCharacters("a\x01"));
  EXPECT_FALSE(hasOnlyXmlCharacters(std::string_view("\0", 1)));
  EXPECT_FALSE(hasOnlyXmlCharacters("a\xEF\xBF\xBE"));
  EXPECT_FALSE(hasOnlyXmlCharacters("\xEF\xBF\xBF"));
}

}  // namespace
