#include "formats/property_list_xml_plain.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "formats/property_list_binary.h"
#include "formats/property_list_xml.h"
#include "tests/support/PropertyListSamples.h"

// The quick way of reading lists in XML: what it reads is what the other way makes of it, and the rest it leaves alone.

namespace {

using namespace tks::formats::property_list;
using tks::test::plist::bytesOf;
using tks::test::plist::nestedArraysXml;
using tks::test::plist::randomDictionary;
using tks::test::plist::xml;

std::string textOf(const TKSData& content) { return {content.begin(), content.end()}; }

/// In the binary form, which has all that can be read. Not compared as values: what is no number equals nothing.
std::string written(const TKSValue& value) {
  Problem problem;
  return textOf(writeBinary(value, problem).value_or(TKSData()));
}

std::string asXml(const TKSValue& value) {
  Problem problem;
  return textOf(writeXml(value, problem).value());
}

TKSValue readByTheOtherWay(const std::string& list) {
  Problem problem;
  return readXmlOfAnyForm(bytesOf(list), problem);
}

/// Whether the list is read, and as the other way reads it.
bool isReadAlike(const std::string& list) {
  TKSValue value;
  if (!readPlainXml(list, value)) {
    EXPECT_TRUE(value.isNothing());
    return false;
  }
  EXPECT_EQ(written(value), written(readByTheOtherWay(list))) << list;
  return true;
}

TEST(PlainXml, WhatThisLibraryWritesIsPlain) {
  std::mt19937 random(19);
  for (int i = 0; i < 500; ++i) EXPECT_TRUE(isReadAlike(asXml(randomDictionary(random, 3))));
}

TEST(PlainXml, IsReadAsTheOtherWayReadsIt) {
  for (const char* value :
       {"<string></string>",
        "<string/>",
        "<string> \n </string>",
        "<string>a\r\nb</string>",
        "<string>]]></string>",
        "<string>&lt;&#65;&amp;amp;</string>",
        "<string>1234567890123456 after sixteen</string>",
        "<string>fourteen bytes</string>",
        "<string>fifteen bytes..</string>",
        "<string>\u00E4\u20AC\U0001F600</string>",
        "<integer> -7\n</integer>",
        "<integer>0x1F</integer>",
        "<integer>18446744073709551615</integer>",
        "<integer>18446744073709551616</integer>",
        "<real> 1e999 </real>",
        "<real>nan</real>",
        "<true/>",
        "<false/>",
        "<date>2000-02-29T12:34:56Z</date>",
        "<data>\n\tAQ\n\tID\n</data>",
        "<data></data>",
        "<dict/>",
        "<array/>",
        "<array>\n</array>",
        "<dict>\t</dict>",
        "<array><array/><dict/><string/></array>",
        "<dict><key></key><true/><key>&amp;</key><key></key></dict>",
        "<dict><key>a</key><integer>1</integer><key>b</key><true/><key>a</key><integer>2</integer></dict>"}) {
    const std::string list = xml(value);
    TKSValue plain;
    EXPECT_EQ(readPlainXml(list, plain), !readByTheOtherWay(list).isNothing()) << value;
    isReadAlike(list);
  }
}

TEST(PlainXml, WorksWithoutDeclarationAndWithoutKind) {
  EXPECT_TRUE(isReadAlike("<plist version=\"1.0\"><true/></plist>"));
  EXPECT_TRUE(
      isReadAlike("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<plist version=\"1.0\"> <true/>\n</plist>\n \n"));
}

TEST(PlainXml, LeavesOtherFormsAlone) {
  for (const std::string& list : {std::string(),
                                  std::string("<plist>"),
                                  std::string("<true/>"),
                                  "\xEF\xBB\xBF" + xml("<true/>"),
                                  std::string("<plist><true/></plist>"),
                                  std::string("<?xml version='1.0'?>\n") + xml("<true/>").substr(39),
                                  xml("<!-- a --><true/>"),
                                  xml("<true></true>"),
                                  xml("<true />"),
                                  xml("<array a='1'></array>"),
                                  xml("<string>a<!-- x -->b</string>"),
                                  xml("<string>a<![CDATA[b]]></string>"),
                                  xml("<string>a</string >"),
                                  xml("<string>a\xFF z</string>"),
                                  xml(std::string("<string>a\0b</string>", 20)),
                                  xml("<true/>") + "<!-- end -->",
                                  xml("<true/><true/>"),
                                  xml("<key>a</key>"),
                                  xml("<dict><true/></dict>"),
                                  xml("<dict><key>a</key></dict>"),
                                  xml("<array>x</array>"),
                                  xml("<integer>1&#50;</integer>"),
                                  nestedArraysXml(513)}) {
    TKSValue value;
    EXPECT_FALSE(readPlainXml(list, value)) << list.substr(0, 200);
    EXPECT_TRUE(value.isNothing());
  }
  EXPECT_TRUE(isReadAlike(nestedArraysXml(512)));
}

TEST(PlainXml, TakesMoreValuesThanItsTextIsLongForTheAverageOne) {
  std::string values = "<array>";
  for (int i = 0; i < 5000; ++i) values += i % 7 == 0 ? "<array><true/></array>" : "<true/>";
  EXPECT_TRUE(isReadAlike(xml(values + "</array>")));
}

TEST(PlainXml, IsNeverReadOtherwiseHoweverItIsAltered) {
  static constexpr const char* kPieces[] = {"<",         ">",       "/",       "&",        ";",   "&amp;", "<key>",
                                            "</key>",    "<true/>", "<!--",    "-->",      " ",   "\n",    "<string>",
                                            "</string>", "<dict>",  "</dict>", "</plist>", "\xFF"};
  std::mt19937 random(23);
  int read = 0;
  for (int i = 0; i < 20'000; ++i) {
    std::string list = asXml(randomDictionary(random, 1));
    for (std::size_t changes = 1 + random() % 3; changes > 0; --changes) {
      const std::size_t at = random() % list.size();
      switch (random() % 3) {
        case 0:
          list[at] = static_cast<char>(random());
          break;
        case 1:
          list.erase(at, random() % 10);
          break;
        default:
          list.insert(at, kPieces[random() % std::size(kPieces)]);
      }
    }
    read += isReadAlike(list) ? 1 : 0;
  }
  EXPECT_GT(read, 500);
}

}  // namespace
