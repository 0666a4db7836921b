#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/values/ValueBuilder.h"
#include "tests/support/PrintValue.h"
#include "tests/support/SmallStack.h"

namespace {

using tks::value::Builder;
using tks::value::StackBuilder;

constexpr std::string_view kLong = "a text that is too long to stand in the value itself";

TEST(ValueBuilder, BuildsEveryKindOfValue) {
  Builder builder;
  builder.beginDictionary(9);
  builder.key("array");
  builder.beginArray(2);
  builder.integer(-7);
  builder.beginArray(0);
  builder.endArray();
  builder.endArray();
  builder.key("boolean");
  builder.boolean(true);
  builder.key("data");
  builder.data(TKSData(40, 3));
  builder.key("date");
  builder.date(TKSDate{5});
  builder.key("null");
  builder.null();
  builder.key("real");
  builder.real(0.5);
  builder.key("short");
  builder.text("text");
  builder.key("text");
  builder.text(kLong);
  builder.key(kLong);
  builder.text("");
  builder.endDictionary();
  EXPECT_EQ(builder.take(), (TKSDictionary{{"array", TKSArray{-7, TKSArray()}},
                                           {"boolean", true},
                                           {"data", TKSData(40, 3)},
                                           {"date", TKSDate{5}},
                                           {"null", TKSNull()},
                                           {"real", 0.5},
                                           {"short", "text"},
                                           {"text", kLong},
                                           {kLong, ""}}));
}

TEST(ValueBuilder, TheOutermostValueMayBeOfAnyKind) {
  Builder builder;
  EXPECT_TRUE(builder.take().isNothing());
  builder.integer(5);
  EXPECT_EQ(builder.take(), TKSValue(5));
  builder.text("short");
  EXPECT_EQ(builder.take(), TKSValue("short"));
  builder.text(kLong);
  EXPECT_EQ(builder.take(), TKSValue(kLong));
  builder.beginArray(0);
  builder.endArray();
  EXPECT_EQ(builder.take(), TKSValue(TKSArray()));
}

TEST(ValueBuilder, WrongExpectationsOfSizeDoNoHarm) {
  for (const std::size_t expected : {0u, 1u, 3u, 1000u}) {
    Builder builder(expected);
    TKSArray wanted;
    builder.beginArray(expected);
    for (int i = 0; i < 100; ++i) {
      builder.beginDictionary(expected);
      TKSDictionary entry;
      for (int k = 0; k < i % 20; ++k) {
        const std::string key = "key" + std::to_string(k);
        builder.key(key);
        builder.text(kLong);
        entry.set(key, kLong);
      }
      builder.endDictionary();
      wanted.append(entry);
    }
    builder.endArray();
    EXPECT_EQ(builder.take(), wanted);
  }
}

TEST(ValueBuilder, SortsKeysAndKeepsTheLastOfEqualOnes) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    Builder builder;
    TKSDictionary wanted;
    const std::size_t count = random() % 60;
    builder.beginDictionary(count);
    for (std::size_t i = 0; i < count; ++i) {
      const std::string key =
          (random() % 2 ? "key" : "a key that does not fit in place ") + std::to_string(random() % 40);
      builder.key(key);
      builder.integer(static_cast<std::int64_t>(i));
      wanted.set(key, i);
    }
    builder.endDictionary();
    EXPECT_EQ(builder.take(), wanted);
  }
}

TEST(ValueBuilder, WhatWasBuiltIsCopiedOnWrite) {
  Builder builder;
  builder.beginArray(2);
  builder.beginDictionary(1);
  builder.key("a");
  builder.text(kLong);
  builder.endDictionary();
  builder.text(kLong);
  builder.endArray();
  TKSArray array = builder.take().array();
  const TKSArray before = array;
  TKSDictionary inner = array[0].dictionary();
  inner.set("b", 2);
  array.set(1, inner);
  array.append(kLong);
  EXPECT_EQ(before, (TKSArray{TKSDictionary{{"a", kLong}}, kLong}));
  EXPECT_EQ(array, (TKSArray{TKSDictionary{{"a", kLong}}, TKSDictionary{{"a", kLong}, {"b", 2}}, kLong}));
}

TEST(ValueBuilder, APartOutlivesTheWhole) {
  Builder builder;
  builder.beginArray(1);
  builder.beginArray(1);
  builder.text(kLong);
  builder.endArray();
  builder.endArray();
  TKSValue value = builder.take();
  value = value[0][0];
  EXPECT_EQ(value.text(), kLong);
}

TEST(ValueBuilder, AnAbandonedBuilderLeavesNothingBehind) {
  Builder builder;
  builder.beginDictionary(3);
  builder.key(kLong);
  builder.beginArray(7);
  builder.text(kLong);  // the leak check of the sanitizers watches
}

TEST(ValueBuilder, NestsToAnyDepthOnASmallStack) {
  tks::test::onSmallStack([] {
    constexpr int kLevels = 150'000;
    Builder builder;
    for (int i = 0; i < kLevels; ++i) builder.beginArray(1);
    builder.text(kLong);
    for (int i = 0; i < kLevels; ++i) builder.endArray();
    const TKSValue value = builder.take();
    const TKSValue* innermost = &value;
    while (innermost->isArray()) innermost = &(*innermost)[0];
    EXPECT_EQ(innermost->text(), kLong);
  });
}

TEST(StackBuilder, ListsTakeWhatWasPlacedSinceTheirMark) {
  StackBuilder::Slot stack[8];
  StackBuilder builder(stack, 0);
  const auto outer = builder.mark();
  builder.shortText(tks::sixteenAt("key............"), 3);
  const auto inner = builder.mark();
  builder.null();
  builder.boolean(true);
  builder.integer(-1);
  builder.real(0.5);
  builder.text(kLong, false);
  builder.endArray(inner);
  builder.text("empty", false);
  builder.endArray(builder.mark());
  builder.endDictionary(outer);
  EXPECT_EQ(builder.take(), (TKSDictionary{{"key", TKSArray{TKSNull(), true, -1, 0.5, kLong}}, {"empty", TKSArray()}}));
}

TEST(StackBuilder, OfEqualKeysTheLastOneCounts) {
  StackBuilder::Slot stack[6];
  StackBuilder builder(stack, 0);
  const auto first = builder.mark();
  for (const auto& [key, number] : {std::pair("b", 1), std::pair("a", 2), std::pair("b", 3)}) {
    builder.text(key, false);
    builder.integer(number);
  }
  builder.endDictionary(first);
  EXPECT_EQ(builder.take(), (TKSDictionary{{"a", 2}, {"b", 3}}));
}

TEST(StackBuilder, TextsMayBeWrittenInPlace) {
  StackBuilder::Slot stack[3];
  StackBuilder builder(stack, 0);
  const auto first = builder.mark();
  const auto writing = [](std::string_view text) {
    return [text](char* to) { return text.copy(to, text.size()) + to; };
  };
  EXPECT_TRUE(builder.writtenText(100, writing("short")));
  EXPECT_TRUE(builder.writtenText(100, writing(kLong)));
  EXPECT_FALSE(builder.writtenText(100, [](char*) -> const char* { return nullptr; }));
  builder.endArray(first);
  EXPECT_EQ(builder.take(), (TKSArray{"short", kLong}));
}

TEST(StackBuilder, WhatIsNotTakenGoesAwayWithIt) {
  StackBuilder::Slot stack[2];
  StackBuilder builder(stack, 0);
  const auto first = builder.mark();
  builder.text(kLong, false);
  builder.endArray(first);
}

}  // namespace
