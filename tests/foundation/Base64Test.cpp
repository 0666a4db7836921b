#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/values/Base64.h"

namespace {

using tks::base64::decode;
using tks::base64::encode;

std::optional<std::string> decodedText(std::string_view text) {
  const std::optional<TKSData> bytes = decode(text);
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

TEST(Base64, DecodesTheStandardAlphabet) {
  EXPECT_EQ(decodedText(""), "");
  EXPECT_EQ(decodedText("Zg=="), "f");
  EXPECT_EQ(decodedText("Zm8="), "fo");
  EXPECT_EQ(decodedText("Zm9v"), "foo");
  EXPECT_EQ(decodedText("Zm9vYmFy"), "foobar");
  EXPECT_EQ(decode("+/+/"), (TKSData{0xFB, 0xFF, 0xBF}));
}

TEST(Base64, IgnoresUnknownCharactersAnywhere) {
  EXPECT_EQ(decodedText(" Z\tm\r\n9 v"), "foo");
  EXPECT_EQ(decodedText("Z*m-8_=\n"), "fo");
  EXPECT_EQ(decodedText("Zg=\xC3\xA4="), "f");
  EXPECT_EQ(decodedText(std::string_view("Zm\0"
                                         "9v",
                                         5)),
            "foo");
  EXPECT_EQ(decodedText("-_!?"), "");
}

TEST(Base64, MisplacedPaddingGivesNothing) {
  for (const std::string_view text : {"=", "==", "====", "Z", "Zg", "Zm8",
                                      "Zg=", "Z===", "Zg==Zg==", "Zm9v=", "Zm9v====", "=Zm9v", "Zg=a=", "Zm8=="}) {
    EXPECT_EQ(decode(text), std::nullopt) << text;
  }
}

TEST(Base64, DecodingUndoesEncoding) {
  std::mt19937 random(20);
  for (std::size_t size = 0; size < 200; ++size) {
    TKSData bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    const std::string text = encode(bytes);
    EXPECT_EQ(text.size(), (size + 2) / 3 * 4);
    EXPECT_EQ(decode(text), bytes);
  }
}

}  // namespace
