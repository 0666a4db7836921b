#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/values/Base64.h"

namespace {

using tks::base64::decode;
using tks::base64::encode;
using tks::base64::Tolerance;

std::optional<std::string> decodedText(std::string_view text, Tolerance tolerance = Tolerance::ofCharacters) {
  const std::optional<TKSData> bytes = decode(text, tolerance);
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

/// The same text with either tolerance; nothing: it is refused.
struct Tolerated {
  const char* text;
  std::optional<std::string> ofCharacters;
  std::optional<std::string> ofPadding;
};

TEST(Base64, EitherCharactersOrPaddingArePutUpWith) {
  const Tolerated cases[] = {
      {"Zm9v", "foo", "foo"},
      {"Zm8=", "fo", "fo"},
      {" Zm\t9\r\nv ", "foo", "foo"},
      {"Zm8", std::nullopt, "fo"},
      {"Zm9v=", std::nullopt, "foo"},
      {"Zg====", std::nullopt, "f"},
      {"=", std::nullopt, ""},
      {"Zm*9v", "foo", std::nullopt},
      {"Zm8\xC3\xA4=", "fo", std::nullopt},
      {"Zg==Zg==", std::nullopt, std::nullopt},
      {"Z", std::nullopt, std::nullopt},
  };
  for (const Tolerated& one : cases) {
    EXPECT_EQ(decodedText(one.text), one.ofCharacters) << one.text;
    EXPECT_EQ(decodedText(one.text, Tolerance::ofPadding), one.ofPadding) << one.text;
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
