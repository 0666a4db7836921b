#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <utility>

#include "platform/apple/property_list_bounds.h"
#include "platform/platform.h"
#include "tests/support/PropertyListSamples.h"

// What macOS looks at before the system's reader gets a property list.

namespace {

using tks::platform::apple::lookAtPropertyList;
using Look = tks::platform::apple::PropertyListLook;
using tks::platform::PropertyLists;

std::span<const std::uint8_t> bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

std::string nestedXML(int depth) {
  return "<?xml version=\"1.0\"?><plist>" + repeated("<array>", depth) + repeated("</array>", depth) + "</plist>";
}

TKSValue nested(int depth) {
  TKSValue value = TKSArray();
  for (int i = 1; i < depth; ++i)
    value = i % 2 == 0 ? TKSValue(TKSArray({value})) : TKSValue(TKSDictionary({{"k", value}}));
  return value;
}

TEST(PropertyListBounds, ListsUpToTheDeepestNestingAreSound) {
  EXPECT_EQ(lookAtPropertyList(bytes(nestedXML(512))), Look::sound);
  EXPECT_EQ(lookAtPropertyList(bytes(nestedXML(513))), Look::beyondBounds);
  EXPECT_EQ(lookAtPropertyList(bytes(nestedXML(1'000'000))), Look::beyondBounds);
}

TEST(PropertyListBounds, WhatTheWriterOfThisSystemWritesIsSound) {
  for (const PropertyLists::Format format : {PropertyLists::Format::xml, PropertyLists::Format::binary}) {
    for (const int depth : {1, 2, 100, 512}) {
      const auto content = tks::platform::propertyLists().serialize(nested(depth), format, nullptr);
      ASSERT_TRUE(content) << depth;
      EXPECT_EQ(lookAtPropertyList(*content), Look::sound) << depth;
    }
    const auto content = tks::platform::propertyLists().serialize(
        TKSDictionary({{"text", "a"}, {"list", TKSArray({1, 2, 3})}, {"more", TKSDictionary({{"text", "a"}})}}), format,
        nullptr);
    ASSERT_TRUE(content);
    EXPECT_EQ(lookAtPropertyList(*content), Look::sound);
  }
}

TEST(PropertyListBounds, EmptyContainersAndCommentsDoNotCount) {
  EXPECT_EQ(lookAtPropertyList(bytes("<plist>" + repeated("<array/><dict />", 1000) + "</plist>")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(bytes("<plist><!-- " + repeated("<array>", 1000) + " --></plist>")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(bytes("<plist><string><![CDATA[" + repeated("<dict>", 1000) + "]]></string></plist>")),
            Look::sound);
}

TEST(PropertyListBounds, WhatOnlyLooksLikeAnEndEndsNothing) {
  for (const char* lure : {"<!-- </array> -->", "<? </array> ?>", "<![CDATA[</array>]]>"}) {
    EXPECT_EQ(lookAtPropertyList(bytes("<plist>" + repeated("<array>" + std::string(lure), 600))), Look::beyondBounds)
        << lure;
  }
}

TEST(PropertyListBounds, WiderEncodingsAreLookedThrough) {
  std::string wide = "\xFF\xFE";
  for (const char character : nestedXML(600)) wide += std::string{character, '\0'};
  EXPECT_EQ(lookAtPropertyList(bytes(wide)), Look::beyondBounds);
}

struct XmlValue {
  const char* value;
  Look look;
};

class ValuesThatTheSystemMistakes : public testing::TestWithParam<XmlValue> {};

TEST_P(ValuesThatTheSystemMistakes, AreFoundBeforehand) {
  EXPECT_EQ(lookAtPropertyList(bytes("<plist>" + std::string(GetParam().value) + "</plist>")), GetParam().look)
      << GetParam().value;
}

INSTANTIATE_TEST_SUITE_P(
    All, ValuesThatTheSystemMistakes,
    testing::Values(
        // References to characters.
        XmlValue{"<string>&#65;&#xFFFD;&amp;&lt;</string>", Look::sound},
        XmlValue{"<string>&#x1F600;&#128512;</string>", Look::sound},
        XmlValue{"<string>&#0;</string>", Look::noPropertyList},
        XmlValue{"<string>&#65;&#x0;</string>", Look::noPropertyList},
        XmlValue{"<string><![CDATA[x]]>&#0;</string>", Look::noPropertyList},
        XmlValue{"<dict><key>&#0;</key><true/></dict>", Look::noPropertyList},
        XmlValue{"<string><![CDATA[&#0;]]></string>", Look::sound}, XmlValue{"<!-- &#0; --><true/>", Look::sound},
        XmlValue{"<string>&#xD800;</string>", Look::noPropertyList},
        XmlValue{"<string>&#x110000;</string>", Look::noPropertyList},
        XmlValue{"<string>&#99999999999999999999;</string>", Look::noPropertyList},
        XmlValue{"<string>&#65</string>", Look::sound},
        // Keys and what stands for them.
        XmlValue{"<dict><key>a</key><array><dict><key>b</key><true/></dict></array></dict>", Look::sound},
        XmlValue{"<array><key>a</key></array>", Look::noPropertyList}, XmlValue{"<key>a</key>", Look::noPropertyList},
        XmlValue{"<dict><key>a</key><array><key>b</key></array></dict>", Look::noPropertyList},
        XmlValue{"<dict><key>a</key><dict></dict><key>b</key><dict/></dict>", Look::sound},
        XmlValue{"<array><dict/><key>a</key></array>", Look::noPropertyList},
        XmlValue{"<string><![CDATA[x]]>key</string>", Look::sound},
        // Dates that the calendar does not have. Those of another form are the reader's.
        XmlValue{"<date>2000-02-29T23:59:60Z</date>", Look::sound},
        XmlValue{"<date>2023-02-29T00:00:00Z</date>", Look::noPropertyList},
        XmlValue{"<date>2023-02-01T24:00:00Z</date>", Look::noPropertyList},
        XmlValue{"<date>2023-13-01T00:00:00Z</date>", Look::noPropertyList},
        XmlValue{"<date>31690-07-08T00:00:00Z</date>", Look::sound}, XmlValue{"<date>yesterday</date>", Look::sound},
        XmlValue{"<date", Look::sound}, XmlValue{"<data>AQID</data>", Look::sound}));

TEST(PropertyListBounds, CharactersOfWiderEncodingsAreNoReferences) {
  // U+2326, U+3B26: their bytes are those of "&#" and "&;".
  const std::string wide("\xFF\xFE<\0p\0>\0&#&;<\0/\0p\0>\0", 20);
  EXPECT_EQ(lookAtPropertyList(bytes(wide)), Look::sound);
}

TEST(PropertyListBounds, OtherFormsAreNone) {
  for (const std::string& other :
       {std::string(), std::string("{ a = (b); }"), repeated("(", 100'000), std::string("bplist00")}) {
    EXPECT_EQ(lookAtPropertyList(bytes(other)), Look::noPropertyList);
  }
}

TEST(PropertyListBounds, LargerFilesAreBeyondThem) {
  EXPECT_EQ(lookAtPropertyList(bytes("<plist>" + std::string(16 * 1024 * 1024, ' '))), Look::beyondBounds);
}

/// A binary list of arrays, each of which holds the next one `width` times.
std::string arrays(int count, int width, bool closed = false) {
  std::string list = "bplist00";
  std::string offsets;
  for (int i = 0; i < count; ++i) {
    offsets += static_cast<char>(list.size() >> 8);
    offsets += static_cast<char>(list.size());
    const bool isLast = i + 1 == count;
    const int members = isLast && !closed ? 0 : width;
    list += static_cast<char>(0xA0 | members);
    const int member = isLast ? 0 : i + 1;
    for (int k = 0; k < members; ++k) list += std::string{static_cast<char>(member >> 8), static_cast<char>(member)};
  }
  const std::size_t table = list.size();
  list += offsets + std::string(6, '\0') + "\x02\x02";
  for (const std::size_t number : {static_cast<std::size_t>(count), std::size_t{0}, table}) {
    for (int shift = 56; shift >= 0; shift -= 8) list += static_cast<char>(number >> shift);
  }
  return list;
}

TEST(PropertyListBounds, ABinaryListIsMeasuredAlongItsReferences) {
  EXPECT_EQ(lookAtPropertyList(bytes(arrays(512, 1))), Look::sound);
  EXPECT_EQ(lookAtPropertyList(bytes(arrays(513, 1))), Look::beyondBounds);
  EXPECT_EQ(lookAtPropertyList(bytes(arrays(60, 1))), Look::sound);
  EXPECT_EQ(lookAtPropertyList(bytes(arrays(60, 2))), Look::beyondBounds) << "2^60 arrays when all is followed";
}

TEST(PropertyListBounds, AListThatHoldsItselfIsNone) {
  EXPECT_EQ(lookAtPropertyList(bytes(arrays(3, 1, true))), Look::noPropertyList);
}

TEST(PropertyListBounds, KeysAreTexts) {
  const auto dictionary = [](const std::string& key) {
    return tks::test::plist::BinaryList{.objects = {"\xD1\x01\x02", key, "\x09"}}.build();
  };
  EXPECT_EQ(lookAtPropertyList(dictionary("\x51k")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(dictionary(std::string("\x61\0k", 3))), Look::sound);
  EXPECT_EQ(lookAtPropertyList(dictionary("\x10\x05")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(dictionary("\x09")), Look::noPropertyList);
}

TEST(PropertyListBounds, AnObjectThatReachesBeyondTheObjectsIsNone) {
  const auto object = [](std::string bytes) {
    return tks::test::plist::BinaryList{.objects = {std::move(bytes)}}.build();
  };
  EXPECT_EQ(lookAtPropertyList(object("\x13xxxxxxxx")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(object("\x13xxxxxxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x23xxxxxxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x33xxxxxxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x53xxx")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(object("\x54xxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x62xxxx")), Look::sound);
  EXPECT_EQ(lookAtPropertyList(object("\x62xxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x44xxx")), Look::noPropertyList);
  EXPECT_EQ(lookAtPropertyList(object("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF")), Look::noPropertyList);
}

TEST(PropertyListBounds, DamageNeverLeadsAstray) {
  const auto sound = tks::platform::propertyLists().serialize(
      TKSDictionary({{"a", nested(20)}, {"b", TKSArray({"x", 1, true, 2.5})}}), PropertyLists::Format::binary, nullptr);
  ASSERT_TRUE(sound);
  std::mt19937 random(3);
  int refused = 0;
  for (int i = 0; i < 20'000; ++i) {
    TKSData content = *sound;
    for (int k = 0; k < 3; ++k) content[random() % content.size()] = static_cast<std::uint8_t>(random());
    if (lookAtPropertyList(content) != Look::sound) ++refused;
    // What the strict reader takes is not kept from the system's one.
    if (!tks::platform::propertyLists().parse(content, nullptr).isNothing()) {
      EXPECT_EQ(lookAtPropertyList(content), Look::sound);
    }
  }
  EXPECT_GT(refused, 1000);
}

}  // namespace
