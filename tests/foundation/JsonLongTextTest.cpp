#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"

// Texts of JSON that are too long to be looked at all at once.

namespace {

using Numbers = std::mt19937;

TKSValue parse(std::string_view text, TKSError* error = nullptr) { return tks::platform::json().parse(text, error); }

/// Texts that look like JSON, with quotes and backslashes next to what ends a text.
std::string misleadingText(Numbers& numbers) {
  constexpr std::string_view kPieces[] = {"\"", ",",    ":",    "\\",        "]",           "}",   "{",      "[", " ",
                                          "\n", "\"\\", "\\\"", "J\u00f6rg", "plain words", "1.5", "\u20ac", ""};
  std::string text;
  for (auto count = numbers() % 12; count > 0; --count) text += kPieces[numbers() % std::size(kPieces)];
  return text;
}

TKSValue scalar(Numbers& numbers) {
  switch (numbers() % 5) {
    case 0:
      return numbers() % 2 == 0;
    case 1:
      return static_cast<std::int64_t>(numbers()) - (std::int64_t{1} << 31);
    case 2:
      return static_cast<double>(numbers() % 100000) / 64;
    case 3:
      return TKSNull();
    default:
      return misleadingText(numbers);
  }
}

TKSValue person(Numbers& numbers) {
  std::vector<std::pair<std::string, TKSValue>> members;
  for (auto count = numbers() % 9; count > 0; --count) members.emplace_back(misleadingText(numbers), scalar(numbers));
  TKSArray list;
  for (auto count = numbers() % 4; count > 0; --count) list.append(scalar(numbers));
  members.emplace_back("list", list);
  members.emplace_back("nothing in it", TKSDictionary());
  return TKSDictionary(std::move(members));
}

TKSValue longValue(unsigned seed, std::size_t people) {
  Numbers numbers(seed);
  std::vector<TKSValue> all;
  for (std::size_t i = 0; i < people; ++i) all.push_back(numbers() % 3 == 0 ? scalar(numbers) : person(numbers));
  return TKSArray(std::move(all));
}

TEST(LongJson, ReadsBackAsItWasWritten) {
  for (unsigned seed = 0; seed < 4; ++seed) {
    const TKSValue value = longValue(seed, 4000);
    const std::string text = tks::json::write(value).value();
    ASSERT_GT(text.size(), 300'000u);
    EXPECT_TRUE(parse(text) == value) << seed;
  }
}

TEST(LongJson, MayHoldTextsThatAreLongThemselves) {
  TKSArray list;
  for (const std::size_t size : {70'000U, 100U, 700'000U, 3U, 2'500'000U}) {
    std::string text;
    while (text.size() < size) text += ",\"quoted\": a line, with commas \\";
    list.append(text);
    list.append(longValue(static_cast<unsigned>(size), 300));
    list.append(std::string(size, ','));
    list.append(std::string(size, '"'));
  }
  EXPECT_TRUE(parse(tks::json::write(list).value()) == TKSValue(list));
}

TEST(LongJson, MayBeNothingButNumbersListsOrBlanks) {
  std::string numbers = "[0";
  for (int i = 1; i < 100'000; ++i) numbers.append(",").append(std::to_string(i));
  const TKSValue read = parse(numbers + "]");
  ASSERT_EQ(read.array().size(), 100'000u);
  EXPECT_EQ(read[99'999].integer(), 99'999);
  EXPECT_EQ(read[54'321].integer(), 54'321);

  std::string lists = "[[]";
  for (int i = 1; i < 200'000; ++i) lists += i % 2 == 0 ? ",[]" : ",{}";
  EXPECT_EQ(parse(lists + "]").array().size(), 200'000u);

  const std::string blanks(300'000, ' ');
  EXPECT_TRUE(parse(blanks + "[" + blanks + "1" + blanks + "," + blanks + "\"a\"" + blanks + "]" + blanks) ==
              (TKSArray{1, "a"}));
}

TEST(LongJson, IsRefusedForOneMistakeAnywhere) {
  const std::string text = tks::json::write(longValue(7, 4000)).value();
  Numbers numbers(7);
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(parse(std::string_view(text).substr(0, numbers() % text.size())).isNothing());
    std::string bad = text;
    bad[numbers() % bad.size()] = '\x01';
    EXPECT_TRUE(parse(bad).isNothing());
    bad = text;
    bad[numbers() % bad.size()] = '\xFF';
    EXPECT_TRUE(parse(bad).isNothing());
  }
  EXPECT_TRUE(parse(text + "]").isNothing());
  EXPECT_TRUE(parse(text + text).isNothing());
  EXPECT_TRUE(parse(text + std::string(200'000, ' ') + "1").isNothing());
}

TEST(LongJson, TellsOfMistakesAsAShortTextDoes) {
  const std::string rest = "," + tks::json::write(longValue(3, 3000)).value();
  // Bytes that are no UTF-8 count before everything else, wherever they stand.
  for (const std::string_view mistake :
       {"[tru", "[fals ", "[nul", "[01", "[1.", "[\"\\q\"", "[1 2", "[}", "[{\"a\" 1}", "[,"}) {
    for (const std::string_view end : {"]", "", ",\"\xFF\"]", ",\"open", ",1"}) {
      TKSError shortError, longError;
      EXPECT_TRUE(parse(std::string(mistake) + ",[]" + std::string(end), &shortError).isNothing());
      EXPECT_TRUE(parse(std::string(mistake) + rest + std::string(end), &longError).isNothing());
      EXPECT_EQ(shortError.localizedDescription, longError.localizedDescription) << mistake << " " << end;
    }
  }
}

TEST(LongJson, HoldsTheNearestRealToEveryNumber) {
  Numbers numbers(11);
  std::string text = "[0.0";
  std::vector<std::string> written = {"0.0"};
  for (int i = 0; i < 30'000; ++i) {
    std::string number = numbers() % 2 == 0 ? "-" : "";
    number += std::to_string(numbers() % 3 == 0 ? 0 : numbers() >> numbers() % 32) + ".";
    for (auto digits = 1 + numbers() % 21; digits > 0; --digits) number += static_cast<char>('0' + numbers() % 10);
    if (numbers() % 4 == 0) number += "e" + std::to_string(static_cast<int>(numbers() % 40) - 20);
    text.append(",").append(number);
    written.push_back(std::move(number));
  }
  const TKSValue read = parse(text + "]");
  ASSERT_EQ(read.array().size(), written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    EXPECT_EQ(read[i].real(), std::strtod(written[i].c_str(), nullptr)) << written[i];
    EXPECT_TRUE(read[i].isReal()) << written[i];
    EXPECT_EQ(std::signbit(read[i].real()), written[i].front() == '-') << written[i];
  }
}

}  // namespace
