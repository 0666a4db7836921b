#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <concepts>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "platform/platform.h"
#include "tests/support/PropertyListSamples.h"

// What every implementation of the contract promises. On macOS it is the system's reader and writer, after a look at
// what they are given (apple/property_list_xml_look.h): they keep real numbers to the last digit, whole ones of 64 bits
// with or without a sign, and texts byte for byte, line ends as well. The reader takes XML less freely than XML allows.
// What it refuses and Linux reads: linux/settings/PropertyListReaderTest.cpp.

namespace {

using namespace tks::test;
using namespace tks::test::plist;
using tks::platform::PropertyLists;
using Format = PropertyLists::Format;

PropertyLists& lists() { return tks::platform::propertyLists(); }

TKSValue parsed(std::string_view text) { return lists().parse(bytesOf(text), nullptr); }
TKSValue parsed(const TKSData& content) { return lists().parse(content, nullptr); }

/// A value, or how to make one that is large: a program makes the parameters of all its tests whenever it starts.
template <class Value>
class Made {
 public:
  template <std::convertible_to<Value> Given>
  Made(Given given) : make_([value = Value(std::move(given))] { return value; }) {}
  Made(Value (*make)()) : make_(make) {}

  Value operator()() const { return make_(); }

 private:
  std::function<Value()> make_;
};

struct NamedText {
  const char* name;
  Made<std::string> text;
  friend std::ostream& operator<<(std::ostream& out, const NamedText& named) { return out << named.name; }
};

template <class Parameter>
std::string nameOf(const testing::TestParamInfo<Parameter>& info) {
  return info.param.name;
}

// Values.

struct NamedValue {
  const char* name;
  Made<TKSValue> value;
  friend std::ostream& operator<<(std::ostream& out, const NamedValue& named) { return out << named.name; }
};

class PropertyListValues : public testing::TestWithParam<NamedValue> {};

TEST_P(PropertyListValues, ComeBackFromBothForms) {
  const TKSDictionary dictionary{{"value", GetParam().value()}, {"array", TKSArray{GetParam().value()}}};
  for (const Format format : {Format::xml, Format::binary}) {
    TKSError error;
    const std::optional<TKSData> content = lists().serialize(dictionary, format, &error);
    ASSERT_TRUE(content) << error.description();
    const TKSValue read = lists().parse(*content, &error);
    EXPECT_EQ(read, TKSValue(dictionary)) << read.description() << error.description();
    EXPECT_EQ(read["value"].kind(), GetParam().value().kind());
    EXPECT_EQ(read["array"][0].kind(), GetParam().value().kind());
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, PropertyListValues,
    testing::Values(NamedValue{"True", true}, NamedValue{"False", false}, NamedValue{"Zero", 0}, NamedValue{"One", 1},
                    NamedValue{"MinusOne", -1}, NamedValue{"OneByte", 255}, NamedValue{"TwoBytes", 256},
                    NamedValue{"LargestTwoBytes", 65535}, NamedValue{"FourBytes", 65536},
                    NamedValue{"LargestFourBytes", 4294967295}, NamedValue{"EightBytes", 4294967296},
                    NamedValue{"LargestInteger", std::numeric_limits<std::int64_t>::max()},
                    NamedValue{"SmallestInteger", std::numeric_limits<std::int64_t>::min()}, NamedValue{"Real", 0.1},
                    NamedValue{"WholeReal", 3.0}, NamedValue{"NegativeReal", -1234.5678},
                    NamedValue{"LargestReal", std::numeric_limits<double>::max()},
                    NamedValue{"SmallestReal", std::numeric_limits<double>::denorm_min()},
                    NamedValue{"Infinity", std::numeric_limits<double>::infinity()},
                    NamedValue{"MinusInfinity", -std::numeric_limits<double>::infinity()}, NamedValue{"EmptyText", ""},
                    NamedValue{"Text", "plain"}, NamedValue{"Blanks", "  \n\t "},
                    NamedValue{"Markup", "<a href=\"x\">&amp;'</a>]]>"}, NamedValue{"CarriageReturns", "a\rb\r\nc"},
                    NamedValue{"BeyondAscii", "ä€😀"}, NamedValue{"LongText", std::string(100000, 'x')},
                    NamedValue{"FifteenCharacters", "123456789012345"}, NamedValue{"EmptyData", TKSData{}},
                    NamedValue{"Data", TKSData{0, 1, 2, 253, 254, 255}}, NamedValue{"LongData", TKSData(100000, 7)},
                    NamedValue{"Date", TKSDate{1700000000}}, NamedValue{"DateBefore1970", TKSDate{-1}},
                    NamedValue{"DateBefore2001", TKSDate{978307199}}, NamedValue{"FirstDate", TKSDate{-62135596800}},
                    NamedValue{"LastDate", TKSDate{253402300799}}, NamedValue{"EmptyArray", TKSArray{}},
                    NamedValue{"EmptyDictionary", TKSDictionary{}},
                    NamedValue{"Nested", TKSDictionary{{"a", TKSArray{1, TKSDictionary{{"b", TKSArray{}}}}}}},
                    NamedValue{"EmptyKey", TKSDictionary{{"", 1}}},
                    NamedValue{"KeysLikeMarkup", TKSDictionary{{"<&>", 1}, {"ä", 2}, {" ", 3}}}),
    nameOf<NamedValue>);

TEST(PropertyLists, RandomValuesComeBackFromBothForms) {
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    const TKSDictionary dictionary = randomDictionary(random, 4);
    for (const Format format : {Format::xml, Format::binary}) {
      const std::optional<TKSData> content = lists().serialize(dictionary, format, nullptr);
      ASSERT_TRUE(content);
      ASSERT_EQ(lists().parse(*content, nullptr), TKSValue(dictionary)) << dictionary.description();
    }
  }
}

TEST(PropertyLists, NotANumberComesBackFromBothForms) {
  for (const Format format : {Format::xml, Format::binary}) {
    const std::optional<TKSData> content = lists().serialize(std::nan(""), format, nullptr);
    ASSERT_TRUE(content);
    EXPECT_TRUE(std::isnan(lists().parse(*content, nullptr).real()));
  }
}

TEST(PropertyLists, AValueOfAnyKindMayStandOutermost) {
  for (const Format format : {Format::xml, Format::binary}) {
    for (const TKSValue& value : {TKSValue("text"), TKSValue(7), TKSValue(true), TKSValue(TKSArray{1, 2})}) {
      const std::optional<TKSData> content = lists().serialize(value, format, nullptr);
      ASSERT_TRUE(content);
      EXPECT_EQ(lists().parse(*content, nullptr), value);
    }
  }
}

class ValuesThatPropertyListsDoNotHave : public testing::TestWithParam<NamedValue> {};

TEST_P(ValuesThatPropertyListsDoNotHave, AreRefused) {
  for (const Format format : {Format::xml, Format::binary}) {
    TKSError error;
    EXPECT_EQ(lists().serialize(GetParam().value(), format, &error), std::nullopt);
    EXPECT_FALSE(error.localizedDescription.empty());
    EXPECT_NE(error.code, 0);
  }
}

TKSValue nestedArrays(std::size_t depth) {
  TKSValue value = TKSArray{};
  for (std::size_t i = 1; i < depth; ++i) value = TKSArray{value};
  return value;
}

INSTANTIATE_TEST_SUITE_P(All, ValuesThatPropertyListsDoNotHave,
                         testing::Values(NamedValue{"Nothing", TKSValue()}, NamedValue{"Null", TKSNull()},
                                         NamedValue{"NullInside", TKSDictionary{{"a", TKSArray{TKSNull()}}}},
                                         NamedValue{"NothingInside", TKSArray{TKSValue()}},
                                         NamedValue{"TooDeep", nestedArrays(513)},
                                         NamedValue{"MuchTooDeep", +[] { return nestedArrays(100000); }}),
                         nameOf<NamedValue>);

TEST(PropertyLists, NestingOf512IsWrittenAndRead) {
  for (const Format format : {Format::xml, Format::binary}) {
    const std::optional<TKSData> content = lists().serialize(nestedArrays(512), format, nullptr);
    ASSERT_TRUE(content);
    EXPECT_EQ(lists().parse(*content, nullptr), nestedArrays(512));
  }
}

TEST(PropertyLists, WhatWouldBeTooLargeToReadIsNotWritten) {
  for (const Format format : {Format::xml, Format::binary}) {
    TKSError error;
    EXPECT_EQ(lists().serialize(TKSData(17u << 20), format, &error), std::nullopt);
    EXPECT_NE(error.code, 0);
  }
}

TEST(PropertyLists, AValueThatSharesItsPartsIsNotWrittenBeyondTheBound) {
  TKSValue value = std::string(1000, 'x');
  for (int i = 0; i < 40; ++i) value = TKSArray{value, value};
  for (const Format format : {Format::xml, Format::binary}) EXPECT_FALSE(lists().serialize(value, format, nullptr));
}

// Reading XML.

struct XmlCase {
  const char* name;
  std::string text;
  TKSValue value;
  friend std::ostream& operator<<(std::ostream& out, const XmlCase& named) { return out << named.name; }
};

class SoundXml : public testing::TestWithParam<XmlCase> {};

TEST_P(SoundXml, IsRead) {
  TKSError error;
  const TKSValue value = lists().parse(bytesOf(GetParam().text), &error);
  EXPECT_EQ(value, GetParam().value) << value.description() << error.description();
  EXPECT_EQ(value.kind(), GetParam().value.kind());
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundXml,
    testing::Values(
        XmlCase{"ByteOrderMark", "\xEF\xBB\xBF" + xml("<true/>"), true},
        XmlCase{"CommentsBetween", xml("<!-- a --><array><!-- b --><true/><!-- c --></array><!-- d -->"),
                TKSArray{true}},
        XmlCase{"ElementsWithEnds", xml("<array><true></true><false></false></array>"), TKSArray{true, false}},
        XmlCase{"SignedInteger", xml("<integer>+7</integer>"), 7},
        XmlCase{"BlanksBeforeNumbers", xml("<array><integer> -7</integer><real>\t1.5</real></array>"),
                TKSArray{-7, 1.5}},
        XmlCase{"HexadecimalInteger", xml("<integer>0x1F</integer>"), 31},
        XmlCase{"RealWithExponent", xml("<real>-1.5e3</real>"), -1500.0},
        XmlCase{"CharacterReferences", xml("<string>&#65;&#x42;&#x1F600;&lt;&gt;&amp;&quot;&apos;</string>"),
                "AB😀<>&\"'"},
        XmlCase{"CharacterData", xml("<string>a<![CDATA[<b>&amp;]]>c</string>"), "a<b>&amp;c"},
        XmlCase{"BlankTextAroundCharacterData", xml("<string> <![CDATA[x]]> </string>"), " x "},
        XmlCase{"LineEndsStayAsTheyAre", xml("<string>a\r\nb\rc</string>"), "a\r\nb\rc"},
        XmlCase{"LastOfEqualKeysCounts",
                xml("<dict><key>a</key><integer>1</integer><key>b</key><true/><key>a</key><integer>2</integer></dict>"),
                TKSDictionary{{"a", 2}, {"b", true}}},
        XmlCase{"DataWithLineEnds", xml("<data>\n\tAQ\n\tID\n</data>"), TKSData{1, 2, 3}},
        XmlCase{"AttributesAreIgnored", xml("<dict a='1'><key b=\"2\">k</key><string c='3'>v</string></dict>"),
                TKSDictionary{{"k", "v"}}},
        XmlCase{"NoDoctype", "<plist version=\"1.0\"><string>x</string></plist>", "x"},
        XmlCase{"LeapDay", xml("<date>2000-02-29T12:34:56Z</date>"), TKSDate{951827696}}),
    nameOf<XmlCase>);

TEST(PropertyLists, Utf16IsRead) {
  const std::string text = xml("<string>x</string>");
  std::string bigEndian = "\xFE\xFF";
  std::string littleEndian = "\xFF\xFE";
  for (const char c : text) {
    bigEndian += {'\0', c};
    littleEndian += {c, '\0'};
  }
  const auto withoutDeclaration = [](std::string content, std::string_view utf8) {
    const std::size_t position = content.find(utf8);
    return position == std::string::npos ? content : content.replace(position, utf8.size(), "");
  };
  EXPECT_EQ(parsed(withoutDeclaration(bigEndian, std::string("\0U\0T\0F\0-\0"
                                                             "8",
                                                             10))),
            TKSValue("x"));
  EXPECT_EQ(parsed(withoutDeclaration(littleEndian, std::string("U\0T\0F\0-\0"
                                                                "8\0",
                                                                10))),
            TKSValue("x"));
}

class BadXml : public testing::TestWithParam<NamedText> {};

TEST_P(BadXml, GivesNothingAndAnError) {
  TKSError error;
  EXPECT_EQ(lists().parse(bytesOf(GetParam().text()), &error), TKSValue());
  EXPECT_FALSE(error.domain.empty());
  EXPECT_NE(error.code, 0);
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_EQ(lists().parse(bytesOf(GetParam().text()), nullptr), TKSValue());
}

const std::string kEntities =
    "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"lol\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">"
    "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;\">]><plist><string>&c;</string></plist>";
const std::string kExternalEntity =
    "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
    "<plist><string>&a;</string></plist>";

INSTANTIATE_TEST_SUITE_P(
    All, BadXml,
    testing::Values(
        NamedText{"Empty", ""}, NamedText{"Blank", " \n"}, NamedText{"Garbage", "no list at all"},
        NamedText{"NulBytes", std::string(100, '\0')}, NamedText{"DeclarationOnly", "<?xml version=\"1.0\"?>"},
        NamedText{"NoValue", xml("")}, NamedText{"TwoValues", xml("<true/><true/>")},
        NamedText{"UnknownElement", xml("<set></set>")}, NamedText{"Cut", xml("<dict><key>a</key>").substr(0, 170)},
        NamedText{"WrongEnd", xml("<dict></array>")}, NamedText{"KeyWithoutValue", xml("<dict><key>a</key></dict>")},
        NamedText{"ValueWithoutKey", xml("<dict><true/></dict>")},
        NamedText{"TwoKeys", xml("<dict><key>a</key><key>b</key><true/></dict>")},
        NamedText{"KeyInAnArray", xml("<array><key>a</key></array>")}, NamedText{"KeyOutermost", xml("<key>a</key>")},
        NamedText{"ElementInAText", xml("<string>a<b/></string>")},
        NamedText{"ElementInAnInteger", xml("<integer><true/></integer>")},
        NamedText{"TextBetweenValues", xml("<array>x<true/></array>")},
        NamedText{"TextAfterAValue", xml("<array><true/>x</array>")},
        NamedText{"TextBeforeTheList", "answer: " + xml("<true/>")},
        NamedText{"TextBeforeTheOutermostElement", "<?xml version=\"1.0\"?>answer: <plist><true/></plist>"},
        NamedText{"TextBeforeTheValue", xml("x<true/>")}, NamedText{"TextAfterTheValue", xml("<true/>x")},
        NamedText{"EmptyInteger", xml("<integer></integer>")}, NamedText{"NoInteger", xml("<integer>1x</integer>")},
        NamedText{"TwoSigns", xml("<integer>+-1</integer>")}, NamedText{"EmptyReal", xml("<real/>")},
        NamedText{"NoReal", xml("<real>1,5</real>")}, NamedText{"NoDate", xml("<date>yesterday</date>")},
        NamedText{"ImpossibleDate", xml("<date>2023-02-30T00:00:00Z</date>")},
        NamedText{"ImpossibleTime", xml("<date>2023-02-01T24:00:00Z</date>")},
        NamedText{"DateWithoutZone", xml("<date>2023-02-01T12:00:00</date>")},
        NamedText{"BrokenUtf8", xml("<string>a\xFF z</string>")},
        NamedText{"Surrogate", xml("<string>\xED\xA0\x80</string>")},
        NamedText{"UnknownEntity", xml("<string>&nbsp;</string>")},
        NamedText{"UnfinishedReference", xml("<string>a & b</string>")},
        NamedText{"ReferenceToNul", xml("<string>&#0;</string>")},
        NamedText{"ReferenceToASurrogate", xml("<string>&#xD800;</string>")},
        NamedText{"ReferenceBeyondUnicode", xml("<string>&#x110000;</string>")},
        NamedText{"ReferenceTooLong", xml("<string>&#99999999999999999999;</string>")},
        NamedText{"EntitiesOfItsOwn", kEntities}, NamedText{"EntityFromAFile", kExternalEntity},
        NamedText{"TooDeep", nestedArraysXml(513)},
        NamedText{"ArraysMuchTooDeep", +[] { return nestedArraysXml(100000); }},
        NamedText{"DictionariesMuchTooDeep", +[] { return nestedDictionariesXml(100000); }},
        NamedText{"UnclosedArraysMuchTooDeep", +[] { return "<plist>" + repeated("<array>", 100000); }},
        NamedText{"UnclosedComments", +[] { return "<plist>" + repeated("<!--", 100000); }},
        NamedText{"TooLarge", +[] { return xml("<string>" + std::string(16u << 20, 'x') + "</string>"); }}),
    nameOf<NamedText>);

TEST(PropertyLists, UnsignedIntegersOf64BitsAreKeptInEitherForm) {
  for (const std::uint64_t number : {9223372036854775808u, 9223372036854775809u, 18446744073709551615u}) {
    EXPECT_EQ(parsed(xml("<integer>" + std::to_string(number) + "</integer>")), TKSValue(number));
    for (const auto format : {PropertyLists::Format::xml, PropertyLists::Format::binary}) {
      const TKSValue list = TKSArray{number, std::numeric_limits<std::int64_t>::max(), -1};
      const std::optional<TKSData> written = tks::platform::propertyLists().serialize(list, format, nullptr);
      ASSERT_TRUE(written);
      const TKSValue read = tks::platform::propertyLists().parse(*written, nullptr);
      EXPECT_EQ(read, list);
      EXPECT_TRUE(read[0].isUnsignedInteger());
      EXPECT_EQ(read[0].unsignedInteger(), number);
    }
  }
  EXPECT_EQ(parsed(xml("<integer>0xFFFFFFFFFFFFFFFF</integer>")).unsignedInteger(), 18446744073709551615u);
}

TEST(PropertyLists, TheLargestAndTheSmallestIntegersAreRead) {
  EXPECT_EQ(parsed(xml("<integer>9223372036854775807</integer>")), TKSValue(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(parsed(xml("<integer>-9223372036854775808</integer>")), TKSValue(std::numeric_limits<std::int64_t>::min()));
}

TEST(PropertyLists, RealsBeyondTheRangeAreInfiniteOrZero) {
  EXPECT_EQ(parsed(xml("<real>1e999</real>")).real(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(parsed(xml("<real>-1e999</real>")).real(), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(parsed(xml("<real>1e-999</real>")).real(), 0.0);
}

// Reading the binary form.

struct NamedData {
  const char* name;
  Made<TKSData> data;
  friend std::ostream& operator<<(std::ostream& out, const NamedData& named) { return out << named.name; }
};

class BadBinary : public testing::TestWithParam<NamedData> {};

TEST_P(BadBinary, GivesNothingAndAnError) {
  TKSError error;
  EXPECT_EQ(lists().parse(GetParam().data(), &error), TKSValue());
  EXPECT_FALSE(error.domain.empty());
  EXPECT_NE(error.code, 0);
  EXPECT_FALSE(error.localizedDescription.empty());
}

TKSData withTrailer(std::size_t position, std::uint8_t byte) {
  TKSData data = BinaryList{.objects = {"\xA1\x01", "\x09"}}.build();
  data[data.size() - 32 + position] = byte;
  return data;
}

const std::string kHuge = std::string("\x13\x10\0\0\0\0\0\0\0", 9);  // 2^60

INSTANTIATE_TEST_SUITE_P(
    All, BadBinary,
    testing::Values(
        NamedData{"MagicOnly", bytesOf("bplist00")}, NamedData{"TooShort", bytesOf("bplist00" + std::string(31, '\0'))},
        NamedData{"ZeroTrailer", bytesOf("bplist00" + std::string(32, '\0'))},
        NamedData{"NoObjects", BinaryList{}.build()},
        NamedData{"TopBeyondTheObjects", BinaryList{.objects = {"\x09"}, .top = 1}.build()},
        NamedData{"CountTooLarge", BinaryList{.objects = {"\x09"}, .count = 2}.build()},
        NamedData{"CountOf2To60", BinaryList{.objects = {"\x09"}, .count = std::uint64_t{1} << 60}.build()},
        NamedData{"CountOf2To64", BinaryList{.objects = {"\x09"}, .count = ~std::uint64_t{0}}.build()},
        NamedData{"OffsetTableBeyondTheEnd",
                  BinaryList{.objects = {"\x09"}, .offsetTable = std::uint64_t{1} << 60}.build()},
        NamedData{"OffsetTableAtTheStart", BinaryList{.objects = {"\x09"}, .offsetTable = 0}.build()},
        NamedData{"OffsetsOfNoBytes", withTrailer(6, 0)}, NamedData{"OffsetsOf255Bytes", withTrailer(6, 255)},
        NamedData{"ReferencesOfNoBytes", withTrailer(7, 0)}, NamedData{"ReferencesOf255Bytes", withTrailer(7, 255)},
        NamedData{"ObjectBeforeTheObjects", BinaryList{.objects = {"\x09"}, .lastOffset = 0}.build()},
        NamedData{"ObjectAfterTheObjects", BinaryList{.objects = {"\x09"}, .lastOffset = 9}.build()},
        NamedData{"ObjectFarAway", BinaryList{.objects = {"\x09"}, .lastOffset = 0xFFFFFFFF}.build()},
        NamedData{"ReferenceBeyondTheObjects", BinaryList{.objects = {"\xA1\x05", "\x09"}}.build()},
        NamedData{"ArrayHoldsItself", BinaryList{.objects = {std::string("\xA1\x00", 2)}}.build()},
        NamedData{"ArrayHoldsItselfOftenly",
                  BinaryList{.objects = {std::string("\xAE") + std::string(14, '\0')}}.build()},
        NamedData{"DictionaryHoldsItself", BinaryList{.objects = {std::string("\xD1\x01\x00", 3), "\x51k"}}.build()},
        NamedData{"TwoArraysHoldEachOther", BinaryList{.objects = {"\xA1\x01", std::string("\xA1\x00", 2)}}.build()},
        NamedData{"KeyIsANumber", BinaryList{.objects = {"\xD1\x01\x01", "\x10\x05"}}.build()},
        NamedData{"KeyIsTheDictionary", BinaryList{.objects = {std::string("\xD1\x00\x00", 3)}}.build()},
        NamedData{"ArrayReachesBeyond", BinaryList{.objects = {"\xA9\x01", "\x09"}}.build()},
        NamedData{"TextReachesBeyond", BinaryList{.objects = {"\x5E"
                                                              "abc"}}
                                           .build()},
        NamedData{"UnitsReachBeyond", BinaryList{.objects = {std::string("\x64\0a\0b", 5)}}.build()},
        NamedData{"ArrayOf2To60", BinaryList{.objects = {"\xAF" + kHuge}}.build()},
        NamedData{"DictionaryOf2To60", BinaryList{.objects = {"\xDF" + kHuge}}.build()},
        NamedData{"TextOf2To60", BinaryList{.objects = {"\x5F" + kHuge}}.build()},
        NamedData{"UnitsOf2To63", BinaryList{.objects = {std::string("\x6F\x13\x80\0\0\0\0\0\0\0", 10)}}.build()},
        NamedData{"DataOf2To64", BinaryList{.objects = {"\x4F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}}.build()},
        NamedData{"SizeIsNoInteger", BinaryList{.objects = {"\x5F\x09"
                                                            "abc"}}
                                         .build()},
        NamedData{"SizeIsCut", BinaryList{.objects = {"\x5F"}}.build()},
        NamedData{"IntegerOf32Bytes", BinaryList{.objects = {"\x15" + std::string(32, 'x')}}.build()},
        NamedData{"IntegerIsCut", BinaryList{.objects = {"\x13xx"}}.build()},
        NamedData{"RealOfOneByte", BinaryList{.objects = {"\x20x"}}.build()},
        NamedData{"DateOfFourBytes", BinaryList{.objects = {"\x32xxxx"}}.build()},
        NamedData{"UnknownSimpleObject", BinaryList{.objects = {"\x07"}}.build()},
        NamedData{"UnknownKind", BinaryList{.objects = {"\x70"}}.build()},
        NamedData{"TextIsBroken", BinaryList{.objects = {"\x52\xFF\xFE"}}.build()},
        NamedData{"TooDeep", nestedArraysBinary(513)},
        NamedData{"MuchTooDeep", +[] { return nestedArraysBinary(100000); }},
        NamedData{"TwoTo100Values", doublingBinary(100)}, NamedData{"TwoTo30Values", doublingBinary(30)},
        NamedData{"TooLarge", +[] { return TKSData((16u << 20) + 1, 'x'); }}),
    nameOf<NamedData>);

TEST(PropertyLists, CuttingABinaryListAnywhereGivesNothing) {
  std::mt19937 random(3);
  const std::optional<TKSData> whole = lists().serialize(randomDictionary(random, 3), Format::binary, nullptr);
  ASSERT_TRUE(whole);
  for (std::size_t size = 0; size < whole->size(); ++size) {
    EXPECT_TRUE(parsed(TKSData(whole->begin(), whole->begin() + static_cast<std::ptrdiff_t>(size))).isNothing())
        << size;
  }
}

TEST(PropertyLists, CuttingAnXmlListAnywhereGivesNothing) {
  std::mt19937 random(3);
  const std::optional<TKSData> whole = lists().serialize(randomDictionary(random, 2), Format::xml, nullptr);
  ASSERT_TRUE(whole);
  for (std::size_t size = 0; size + sizeof "</plist>" < whole->size(); ++size) {
    EXPECT_TRUE(parsed(TKSData(whole->begin(), whole->begin() + static_cast<std::ptrdiff_t>(size))).isNothing())
        << size;
  }
}

/// Whatever comes out of altered content, it is a whole value that can be written again, or nothing and an error.
TEST(PropertyLists, AlteredContentNeverDoesHarm) {
  std::mt19937 random(11);
  for (int i = 0; i < 3000; ++i) {
    const Format format = i % 2 == 0 ? Format::xml : Format::binary;
    std::optional<TKSData> content = lists().serialize(randomDictionary(random, 2), format, nullptr);
    ASSERT_TRUE(content);
    for (std::uint32_t changes = 1 + random() % 8; changes > 0; --changes) {
      (*content)[random() % content->size()] = static_cast<std::uint8_t>(random());
    }
    TKSError error;
    const TKSValue value = lists().parse(*content, &error);
    EXPECT_EQ(value.isNothing(), !error.domain.empty());
    EXPECT_TRUE(value.isText() || !value.description().empty());
  }
}

TEST(PropertyLists, ASmallListDoesNotGrowIntoALargeOne) {
  // A chain of arrays that each hold the next one twice, up to the longest that is read.
  std::uint8_t depth = 1;
  while (parsed(doublingBinary(depth)).isArray()) ++depth;
  EXPECT_GT(depth, 10);
  EXPECT_LT(depth, 20);
}

TEST(PropertyLists, ALongTextMayBeReferredToOften) {
  BinaryList list{.objects = {"\xAF\x11\x03\xE8" + std::string(1000, '\x01'), "\x5F\x10\xC8" + std::string(200, 'x')}};
  const TKSValue value = parsed(list.build());
  EXPECT_EQ(value.array().size(), 1000u);
  EXPECT_EQ(value[999], TKSValue(std::string(200, 'x')));
}

TEST(PropertyLists, ALongTextReferredToOftenDoesNotFillTheMemory) {
  // A text of a mebibyte that stands for four gibibytes.
  const std::string text(1u << 20, 'x');
  const BinaryList list{.objects = {"\xAF\x11\x10\x01" + std::string(0x1001, '\x01'),
                                    "\x5F\x12" + std::string("\x00\x10\x00\x00", 4) + text}};
  TKSError error;
  EXPECT_TRUE(lists().parse(list.build(), &error).isNothing());
  EXPECT_TRUE(PropertyLists::isBeyondBounds(error)) << error.description();
}

TEST(PropertyLists, OneObjectMayStandInManyPlaces) {
  const TKSData shared = BinaryList{.objects = {"\xA3\x01\x01\x02", "\xA1\x02", "\x55hello"}}.build();
  EXPECT_EQ(parsed(shared), TKSValue(TKSArray{TKSArray{"hello"}, TKSArray{"hello"}, "hello"}));
  EXPECT_EQ(parsed(doublingBinary(10))[0][1][0][1][0][1][0][1][0][1], TKSValue(true));
}

}  // namespace
