#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "foundation/values/JsonWriter.h"
#include "foundation/values/Utf8.h"

// Texts in JSON and the check for UTF-8, which look at many bytes at once, against models that look at one after
// another.

namespace {

std::string modelOfText(const std::string& text) {
  std::string written = "\"";
  for (const char byte : text) {
    constexpr std::string_view kLetters = "\b\f\n\r\t\"\\";
    const std::size_t known = kLetters.find(byte);
    if (known != std::string_view::npos) {
      written += '\\';
      written += "bfnrt\"\\"[known];
    } else if (static_cast<unsigned char>(byte) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
      written += escape;
    } else {
      written += byte;
    }
  }
  return written + '"';
}

/// Character by character.
bool modelOfIsValid(std::string_view text) {
  while (!text.empty()) {
    if (!tks::utf8::takeCharacter(text)) return false;
  }
  return true;
}

class TextModel : public ::testing::Test {
 protected:
  std::string randomText() {
    static const std::vector<std::string> pieces = {
        "plain",  "\"",         "\\", "\n", std::string(1, '\0'), "\x1F", "\x7F", "\u00f6",
        "\u20ac", "\U0001F600", " ",  "/",  "0123456789abcdef"};
    static const std::vector<std::string> broken = {"\xC3", "\xFF", "\x80", "\xED\xA0\x80", "\xF0\x9F\x98", "\xC0\x80"};
    std::string text;
    const std::size_t plainRun = random() % 4 == 0 ? random() % 400 : random() % 20;
    for (std::size_t i = random() % 40; i > 0; --i) {
      text += std::string(random() % (plainRun + 1), 'x');
      text += pieces[random() % pieces.size()];
    }
    if (random() % 8 == 0) text.insert(random() % (text.size() + 1), broken[random() % broken.size()]);
    return text;
  }
  std::mt19937 random{11};
};

TEST_F(TextModel, IsWrittenByteForByte) {
  for (int i = 0; i < 10'000; ++i) {
    const std::string text = randomText();
    const std::optional<std::string> written = tks::json::write(TKSArray{text});
    ASSERT_EQ(written.has_value(), modelOfIsValid(text)) << testing::PrintToString(text);
    if (written) {
      ASSERT_EQ(*written, "[" + modelOfText(text) + "]");
    }
  }
}

TEST_F(TextModel, OfManyPiecesIsWrittenByteForByte) {
  for (const std::size_t size : {255u, 256u, 257u, 8191u, 8192u, 16383u, 16384u, 16385u, 40'000u, 100'000u}) {
    for (std::size_t step : {61u, 64u, 1000u, 16384u}) {
      std::string text(size, 'x');
      for (std::size_t at = step - 1; at < size; at += step) text[at] = '"';
      text += "\u00f6";
      ASSERT_EQ(tks::json::write(TKSArray{text}), "[" + modelOfText(text) + "]") << size << " " << step;
    }
  }
}

TEST_F(TextModel, ValidityIsThatOfEachCharacter) {
  for (int i = 0; i < 10'000; ++i) {
    const std::string text = randomText();
    ASSERT_EQ(tks::utf8::isValid(text), modelOfIsValid(text)) << testing::PrintToString(text);
  }
  for (unsigned first = 0; first < 256; ++first) {
    for (unsigned second = 0; second < 256; ++second) {
      std::string text(37, 'x');
      text[17] = static_cast<char>(first);
      text[18] = static_cast<char>(second);
      ASSERT_EQ(tks::utf8::isValid(text), modelOfIsValid(text)) << first << " " << second;
    }
  }
}

}  // namespace
