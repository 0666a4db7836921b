#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "tests/support/PrintValue.h"
#include "tests/support/Sanitized.h"

// Short texts of JSON, which are read in one pass. Blanks after a text make it a long one: what is read is the same.

namespace {

using namespace std::string_view_literals;
using Numbers = std::mt19937;

/// More than a short text has.
const std::string kBlanks(1000, ' ');

TKSValue parse(std::string_view text, TKSError* error = nullptr) { return tks::platform::json().parse(text, error); }

/// Parses a copy with nothing before and after it, so that a sanitizer sees a look beyond it.
TKSValue parseAlone(std::string_view text, TKSError* error) {
  const auto exact = std::make_unique_for_overwrite<char[]>(text.size());
  std::copy(text.begin(), text.end(), exact.get());
  return parse({exact.get(), text.size()}, error);
}

/// Also of the kinds of numbers, which may be equal.
void expectSame(const TKSValue& left, const TKSValue& right) {
  ASSERT_EQ(left.kind(), right.kind());
  ASSERT_EQ(left.isUnsignedInteger(), right.isUnsignedInteger());
  if (left.isArray()) {
    ASSERT_EQ(left.array().size(), right.array().size());
    for (std::size_t i = 0; i < left.array().size(); ++i) expectSame(left[i], right[i]);
  } else if (left.isDictionary()) {
    ASSERT_EQ(left.dictionary().size(), right.dictionary().size());
    for (const auto& [key, value] : left.dictionary()) expectSame(value, right[key]);
  } else {
    ASSERT_EQ(left, right);
  }
}

/// Whether the text is read, alike as a short one and as a long one.
bool isRead(const std::string& text) {
  TKSError shortError;
  TKSError longError;
  const TKSValue value = parseAlone(text, &shortError);
  expectSame(value, parse(text + kBlanks, &longError));
  EXPECT_EQ(value.isNothing(), shortError != TKSError());
  EXPECT_EQ(shortError.localizedDescription, longError.localizedDescription) << text;
  return !value.isNothing();
}

class ShortJson : public testing::Test {
 protected:
  std::size_t below(std::size_t bound) { return numbers_() % bound; }
  std::string oneOf(std::initializer_list<std::string_view> texts) {
    return std::string(std::data(texts)[below(texts.size())]);
  }
  std::string blanks() { return std::string(below(8) == 0 ? below(4) : 0, ' '); }

  std::string text() {
    const std::size_t size = below(6) == 0 ? below(100) : below(18);
    std::string made = "\"";
    while (made.size() < size) {
      made += below(200) == 0 ? oneOf({"\\\"", "\\n", "\\u00e4", "\u00f6", "\\\\"})
                              : oneOf({"a", "{", "]", ",:", " /", "x1", "plain"});
    }
    return made + "\"";
  }
  std::string scalar() {
    if (below(2) == 0) return text();
    if (below(4) == 0) return std::to_string(numbers_());
    return oneOf({"0", "-1", "1.5", "-0.25", "1e3", "2E-2", "true", "false", "null", "9223372036854775807",
                  "18446744073709551615", "18446744073709551616", "0.1234567890123456789", "-0"});
  }
  std::string value(int depth) {
    if (depth == 0 || below(3) == 0) return scalar();
    const bool isObject = below(2) == 0;
    std::string made = (isObject ? "{" : "[") + blanks();
    for (std::size_t i = 0, size = below(4); i < size; ++i) {
      if (i > 0) made += "," + blanks();
      if (isObject) made += text() + blanks() + ":" + blanks();
      made += value(depth - 1) + blanks();
    }
    return made + (isObject ? "}" : "]");
  }
  /// Most are short.
  std::string document() { return blanks() + "[" + value(3) + "," + value(1) + "]"; }

  Numbers numbers_{23};
};

TEST_F(ShortJson, IsReadAsTheSameTextInALongOne) {
  for (int i = 0; i < (tks::test::kSanitized ? 2'000 : 20'000) && !HasFailure(); ++i) EXPECT_TRUE(isRead(document()));
}

TEST_F(ShortJson, WithMistakesIsReadOrRefusedAsInALongOne) {
  constexpr std::string_view kBytes = "\"\\{}[],: \n\tu0189-.eEtfnax\x01\x7F\x80\xC3"sv;
  std::size_t read = 0;
  const int rounds = tks::test::kSanitized ? 3'000 : 30'000;
  for (int i = 0; i < rounds && !HasFailure(); ++i) {
    std::string text = document();
    for (std::size_t changes = 1 + below(2); changes > 0; --changes) {
      const std::size_t place = below(text.size());
      switch (below(3)) {
        case 0:
          text[place] = kBytes[below(kBytes.size())];
          break;
        case 1:
          text.erase(place, 1 + below(3));
          break;
        default:
          text.insert(place, 1, kBytes[below(kBytes.size())]);
      }
    }
    read += isRead(text) ? 1 : 0;
  }
  EXPECT_GT(read, 0u);
}

TEST_F(ShortJson, OfEveryLengthWithItsTextsAtEveryPlace) {
  for (std::size_t before = 0; before < 40; ++before) {
    for (std::size_t size = 0; size < 150; ++size) {
      const std::string text = "[\"" + std::string(before, 'a') + "\",\"" + std::string(size, 'b') + "\"]";
      ASSERT_EQ(parseAlone(text, nullptr), (TKSArray{std::string(before, 'a'), std::string(size, 'b')}));
    }
  }
}

TEST_F(ShortJson, MayEndAnywhere) {
  const std::string text = R"( { "key" : [ "a text that is too long to stand in place" , -12.5 , true, {} ] } )";
  for (std::size_t size = 0; size <= text.size(); ++size) {
    EXPECT_EQ(parseAlone(text.substr(0, size), nullptr).isNothing(), size + 1 < text.size()) << size;
    // Something that closes a list stands at the end of most that are cut short.
    for (const char* end : {"]", "}", "\"}", "]}"}) isRead(text.substr(0, size) + end);
  }
}

TEST_F(ShortJson, HoldsAsManyValuesAndLevelsAsFit) {
  for (std::size_t count = 1; count < 300; ++count) {
    std::string numbers = "[0";
    for (std::size_t i = 1; i < count; ++i) numbers += ",1";
    EXPECT_EQ(parseAlone(numbers + "]", nullptr).array().size(), count);
    const std::string lists = std::string(count, '[') + std::string(count, ']');
    EXPECT_TRUE(isRead(lists));
    EXPECT_FALSE(isRead(lists + "]"));
    EXPECT_FALSE(isRead("[" + lists));
    EXPECT_FALSE(isRead(std::string(2 * count, '[') + "]"));
    EXPECT_FALSE(isRead(std::string(count, '[') + std::string(count, '}')));
  }
}

}  // namespace
