#include "formats/text_numbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formats/byte_output.h"

namespace {

using tks::formats::ByteOutput;
using tks::formats::TextNumbers;

/// The texts by their numbers, which are their places.
std::vector<const TKSValue*> places(const std::vector<TKSValue>& texts) {
  std::vector<const TKSValue*> result;
  for (const TKSValue& text : texts) result.push_back(&text);
  return result;
}

TEST(TextNumbers, EqualTextsHaveTheNumberOfTheFirst) {
  std::vector<TKSValue> texts;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 1000; ++i) {
      texts.emplace_back(std::to_string(i));
      texts.emplace_back("a text that is too long to stand in its value, number " + std::to_string(i));
    }
  }
  const std::vector<const TKSValue*> all = places(texts);
  TextNumbers numbers;
  for (std::uint32_t i = 0; i < texts.size(); ++i) EXPECT_EQ(numbers.numberOf(texts[i], i, all), i % 2000);
}

TEST(TextNumbers, AreTheSameWithRoomMadeAtAnyTime) {
  std::vector<TKSValue> texts;
  for (int i = 0; i < 2000; ++i) texts.emplace_back(std::to_string(i % 1000));
  const std::vector<const TKSValue*> all = places(texts);
  TextNumbers numbers;
  for (std::uint32_t i = 0; i < texts.size(); ++i) {
    if (i % 64 == 0) numbers.expect(i % 640);
    EXPECT_EQ(numbers.numberOf(texts[i], i, all), i % 1000);
  }
}

TEST(TextNumbers, TextsThatEndInZerosAreOthers) {
  const std::vector<TKSValue> texts{"",
                                    std::string(1, '\0'),
                                    std::string(2, '\0'),
                                    std::string(14, '\0'),
                                    std::string(15, '\0'),
                                    std::string(16, '\0')};
  const std::vector<const TKSValue*> all = places(texts);
  TextNumbers numbers;
  for (std::uint32_t i = 0; i < texts.size(); ++i) EXPECT_EQ(numbers.numberOf(texts[i], i, all), i);
}

TEST(ByteOutput, HoldsWhatWasWrittenInTheOrderInWhichItWas) {
  ByteOutput output;
  std::string expected;
  for (std::size_t size = 0; size < 3000; size += 7) {
    const std::string bytes(size, static_cast<char>('a' + size % 26));
    output.append(bytes);
    output.wroteTo(tks::formats::copied(output.room(), "-"));
    expected += bytes + "-";
    ASSERT_EQ(output.size(), expected.size());
  }
  const TKSData taken = output.take();
  EXPECT_EQ(std::string(taken.begin(), taken.end()), expected);
  EXPECT_EQ(output.size(), 0u);
}

}  // namespace
