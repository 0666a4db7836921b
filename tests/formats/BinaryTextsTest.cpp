#include <gtest/gtest.h>

#include <string>

#include "formats/property_list_binary.h"
#include "tests/support/PrintValue.h"
#include "tests/support/PropertyListSamples.h"

// Texts of binary lists where ASCII is meant: what stands in them, and what stands right after them.

namespace {

using namespace tks::formats::property_list;
using tks::test::plist::BinaryList;

std::string objectOf(const std::string& text) {
  if (text.size() < 0xF) return std::string(1, static_cast<char>(0x50 | text.size())) + text;
  return "\x5F\x11" + BinaryList::number(text.size(), 2) + text;
}

/// An array of this text twice, as a key too, with another array right after its bytes.
TKSValue readBack(const std::string& text) {
  const std::string array = "\xA3\x01\x02\x03";
  const std::string dictionary = "\xD1\x01\x01";
  Problem problem;
  const TKSData list = BinaryList{.objects = {array, objectOf(text), "\xA0", dictionary}}.build();
  return readBinary(list, problem);
}

TEST(BinaryTexts, MayBeOfAnyLengthBeforeAnyObject) {
  for (std::size_t size = 0; size < 300; ++size) {
    const std::string text(size, 'x');
    EXPECT_EQ(readBack(text), (TKSArray{text, TKSArray(), TKSDictionary{{text, text}}})) << size;
  }
}

TEST(BinaryTexts, MayHoldUtf8AtEveryPlaceAndNothingElse) {
  for (const std::size_t size : {0, 1, 12, 13, 14, 15, 16, 17, 31, 32, 33, 64, 127, 128, 129, 5000}) {
    for (std::size_t place = 0; place <= size; place += size < 1000 ? 1 : 333) {
      std::string text(size, 'x');
      text.insert(place, "\u00f6");
      EXPECT_EQ(readBack(text), (TKSArray{text, TKSArray(), TKSDictionary{{text, text}}})) << size << ' ' << place;
      text.erase(place, 1);
      EXPECT_TRUE(readBack(text).isNothing()) << size << ' ' << place;
    }
  }
}

}  // namespace
