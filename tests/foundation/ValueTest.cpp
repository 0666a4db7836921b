#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include <tksinterface/TKSValue.h>

#include "tests/support/PrintValue.h"
#include "tests/support/SmallStack.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// One value of every kind, texts and data both short and long.
std::vector<TKSValue> oneOfEach() {
  return {TKSValue(),
          TKSNull(),
          true,
          42,
          2.5,
          "short",
          "a text that is too long to stand in the value itself",
          TKSData{1, 2, 3},
          TKSData(100, 7),
          TKSDate{1000.5},
          TKSArray{1, "two"},
          TKSDictionary{{"key", "value"}}};
}

TEST(Value, KnowsItsKindAndItsClassName) {
  using Kind = TKSValue::Kind;
  const std::pair<Kind, std::string_view> expected[] = {
      {Kind::nothing, "(null)"}, {Kind::null, "null"},   {Kind::boolean, "boolean"}, {Kind::integer, "number"},
      {Kind::real, "number"},    {Kind::text, "string"}, {Kind::text, "string"},     {Kind::data, "data"},
      {Kind::data, "data"},      {Kind::date, "date"},   {Kind::array, "array"},     {Kind::dictionary, "dictionary"}};
  const std::vector<TKSValue> values = oneOfEach();
  ASSERT_EQ(values.size(), std::size(expected));
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i].kind(), expected[i].first);
    EXPECT_EQ(values[i].className(), expected[i].second);
  }
}

TEST(Value, TakesSixteenBytes) { EXPECT_EQ(sizeof(TKSValue), 16u); }

TEST(Value, EveryLengthOfTextIsKept) {
  for (std::size_t length = 0; length < 70; ++length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
    const TKSValue value(text);
    const TKSValue copy = value;
    EXPECT_EQ(copy.text(), text);
    EXPECT_EQ(copy.optionalText(), text);
    EXPECT_EQ(copy, value);
    EXPECT_NE(copy, TKSValue(text + "x"));
  }
}

TEST(Value, ATextMayHoldZeroBytes) {
  const std::string_view text("a\0b", 3);
  EXPECT_EQ(TKSValue(text).text(), text);
  EXPECT_NE(TKSValue(text), TKSValue("a"));
  EXPECT_NE(TKSValue(std::string_view("\0", 1)), TKSValue(""));
}

TEST(Value, AbsentTextsAreNothing) {
  EXPECT_TRUE(TKSValue(static_cast<const char*>(nullptr)).isNothing());
  EXPECT_TRUE(TKSValue(std::optional<std::string>()).isNothing());
  EXPECT_EQ(TKSValue(std::optional<std::string>("")).text(), "");
  EXPECT_TRUE(TKSValue(std::optional<std::string>("")).isText());
  EXPECT_TRUE(TKSValue("").isText());
}

TEST(Value, DataIsKept) {
  EXPECT_EQ(TKSValue(TKSData()).data(), TKSData());
  EXPECT_EQ(TKSValue(TKSData{0, 255}).data(), (TKSData{0, 255}));
  EXPECT_EQ(TKSValue(TKSData(1000, 9)).data(), TKSData(1000, 9));
  EXPECT_NE(TKSValue(TKSData{'a'}), TKSValue("a"));
}

TEST(Value, ReadersOfTheWrongKindAnswerTheNeutralValue) {
  for (const TKSValue& value : oneOfEach()) {
    SCOPED_TRACE(testing::PrintToString(value));
    if (!value.isNumber()) {
      EXPECT_FALSE(value.boolean());
      EXPECT_EQ(value.integer(), 0);
      EXPECT_EQ(value.real(), 0);
    }
    if (!value.isText()) {
      EXPECT_EQ(value.text(), "");
      EXPECT_EQ(value.optionalText(), std::nullopt);
    }
    if (!value.isData()) {
      EXPECT_EQ(value.data(), TKSData());
    }
    if (!value.isDate()) {
      EXPECT_EQ(value.date(), TKSDate());
    }
    if (!value.isArray()) {
      EXPECT_EQ(value.array(), TKSArray());
      EXPECT_TRUE(value[0].isNothing());
    }
    if (!value.isDictionary()) {
      EXPECT_EQ(value.dictionary(), TKSDictionary());
      EXPECT_TRUE(value["key"].isNothing());
    }
  }
}

TEST(Value, NumbersConvert) {
  EXPECT_TRUE(TKSValue(1).boolean());
  EXPECT_FALSE(TKSValue(0).boolean());
  EXPECT_TRUE(TKSValue(0.5).boolean());
  EXPECT_FALSE(TKSValue(-0.0).boolean());
  EXPECT_EQ(TKSValue(true).integer(), 1);
  EXPECT_EQ(TKSValue(true).real(), 1);
  EXPECT_EQ(TKSValue(7).real(), 7);
  EXPECT_EQ(TKSValue(2.9).integer(), 2);
  EXPECT_EQ(TKSValue(-2.9).integer(), -2);
}

TEST(Value, ARealBeyondTheIntegersIsClamped) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(TKSValue(1e30).integer(), kMost);
  EXPECT_EQ(TKSValue(9223372036854775808.0).integer(), kMost);
  EXPECT_EQ(TKSValue(kInfinity).integer(), kMost);
  EXPECT_EQ(TKSValue(-1e30).integer(), kLeast);
  EXPECT_EQ(TKSValue(-9223372036854775808.0).integer(), kLeast);
  EXPECT_EQ(TKSValue(kNaN).integer(), 0);
}

TEST(Value, UnsignedIntegersOf64BitsAreKept) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  const TKSValue most(kMost);
  const TKSValue first(std::uint64_t{1} << 63);
  EXPECT_TRUE(most.isInteger() && most.isNumber() && most.isUnsignedInteger());
  EXPECT_EQ(most.unsignedInteger(), kMost);
  EXPECT_EQ(most.integer(), std::numeric_limits<std::int64_t>::max()) << "clamped";
  EXPECT_EQ(most.real(), 18446744073709551616.0);
  EXPECT_TRUE(most.boolean());
  EXPECT_EQ(most.description(), "18446744073709551615");
  EXPECT_EQ(first.description(), "9223372036854775808");
  EXPECT_EQ(first, TKSValue(9223372036854775808.0));
  EXPECT_NE(most, TKSValue(18446744073709551616.0)) << "the nearest real is another number";
  EXPECT_NE(most, first);
  EXPECT_NE(most, TKSValue(-1)) << "of the same bits";
  EXPECT_NE(first, TKSValue(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(TKSValue(most), most);
  EXPECT_FALSE(TKSValue(std::uint64_t{7}).isUnsignedInteger());
  EXPECT_EQ(TKSValue(std::uint64_t{7}), TKSValue(7));
  EXPECT_EQ(TKSValue(7).unsignedInteger(), 7u);
  EXPECT_EQ(TKSValue(-7).unsignedInteger(), 0u);
}

TEST(Value, ReadsNestedValues) {
  const TKSValue value = TKSDictionary{{"list", TKSArray{1, TKSDictionary{{"deep", "found"}}}}};
  EXPECT_EQ(value["list"][1]["deep"].text(), "found");
  EXPECT_TRUE(value["list"][2]["deep"].isNothing());
  EXPECT_TRUE(value["list"]["deep"].isNothing());
  EXPECT_TRUE(value[0].isNothing());
  EXPECT_TRUE(value["list"][-1].isNothing());
}

TEST(Value, EqualsOnlyItsOwnKind) {
  const std::vector<TKSValue> values = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t k = 0; k < values.size(); ++k) EXPECT_EQ(values[i] == values[k], i == k) << i << ' ' << k;
  }
}

TEST(Value, AnIntegerEqualsARealOfTheSameNumber) {
  EXPECT_EQ(TKSValue(1), TKSValue(1.0));
  EXPECT_EQ(TKSValue(-3.0), TKSValue(-3));
  EXPECT_NE(TKSValue(1), TKSValue(1.5));
  EXPECT_NE(TKSValue(std::numeric_limits<std::int64_t>::max()), TKSValue(9223372036854775808.0));
  EXPECT_EQ(TKSValue(std::numeric_limits<std::int64_t>::min()), TKSValue(-9223372036854775808.0));
  // The nearest real is another number.
  EXPECT_NE(TKSValue(9007199254740993), TKSValue(9007199254740992.0));
  EXPECT_NE(TKSValue(1), TKSValue(kInfinity));
  EXPECT_NE(TKSValue(0), TKSValue(kNaN));
}

TEST(Value, ABooleanEqualsOnlyABoolean) {
  EXPECT_NE(TKSValue(true), TKSValue(1));
  EXPECT_NE(TKSValue(false), TKSValue(0.0));
  EXPECT_EQ(TKSValue(true), TKSValue(true));
}

TEST(Value, NotANumberEqualsItself) {
  EXPECT_EQ(TKSValue(kNaN), TKSValue(kNaN));
  EXPECT_EQ((TKSArray{kNaN}), (TKSArray{kNaN}));
  EXPECT_EQ(TKSValue(0.0), TKSValue(-0.0));
}

TEST(Value, DifferencesAtAnyPlaceOfANestedValueCount) {
  const auto nested = [](TKSValue innermost) {
    return TKSArray{1, TKSDictionary{{"a", TKSArray{2, TKSDictionary{{"b", innermost}}}}, {"c", 3}}};
  };
  EXPECT_EQ(nested("x"), nested("x"));
  EXPECT_NE(nested("x"), nested("y"));
  EXPECT_NE(nested(TKSArray()), nested(TKSDictionary()));
  EXPECT_EQ(nested(4), nested(4.0));
  EXPECT_NE((TKSDictionary{{"a", 1}}), (TKSDictionary{{"b", 1}}));
  EXPECT_NE((TKSDictionary{{"a", 1}}), (TKSDictionary{{"a", 1}, {"b", 1}}));
}

TEST(Value, AMovedValueLeavesNothing) {
  TKSValue value = "a text that is too long to stand in the value itself";
  const TKSValue moved = std::move(value);
  EXPECT_TRUE(value.isNothing());  // NOLINT(bugprone-use-after-move): promised
  value = 5;
  EXPECT_EQ(value, TKSValue(5));
}

TEST(Value, CanBeAssignedAPartOfItself) {
  TKSValue value = TKSDictionary{{"inner", TKSArray{"a text that is too long to stand in the value itself"}}};
  value = value["inner"];
  EXPECT_EQ(value.array().size(), 1u);
  value = value[0];
  EXPECT_EQ(value.text(), "a text that is too long to stand in the value itself");
  const TKSValue& same = value;
  value = same;
  EXPECT_EQ(value.text(), "a text that is too long to stand in the value itself");
}

TEST(Value, APartOutlivesTheWhole) {
  TKSValue part;
  {
    const TKSValue whole = TKSArray{TKSDictionary{{"text", "a text that is too long to stand in the value itself"}}};
    part = whole[0]["text"];
  }
  EXPECT_EQ(part.text(), "a text that is too long to stand in the value itself");
}

TEST(Array, StartsEmptyAndGrowsAtTheEnd) {
  TKSArray array;
  EXPECT_TRUE(array.empty());
  EXPECT_EQ(array.begin(), array.end());
  for (int i = 0; i < 1000; ++i) array.append(i);
  ASSERT_EQ(array.size(), 1000u);
  int expected = 0;
  for (const TKSValue& value : array) EXPECT_EQ(value.integer(), expected++);
  EXPECT_EQ(expected, 1000);
  EXPECT_TRUE(array[1000].isNothing());
}

TEST(Array, HoldsNothingAsAnElement) {
  const TKSArray array{TKSValue(), 1};
  EXPECT_EQ(array.size(), 2u);
  EXPECT_TRUE(array[0].isNothing());
  EXPECT_NE(array, (TKSArray{1}));
}

TEST(Array, ReplacesElementsInRangeOnly) {
  TKSArray array(std::vector<TKSValue>{1, 2, 3});
  array.set(1, "two");
  array.set(3, "four");
  EXPECT_EQ(array, (TKSArray{1, "two", 3}));
}

TEST(Array, AChangedCopyLeavesTheOriginalAsItWas) {
  const TKSArray original{1, TKSArray{2}};
  TKSArray copy = original;
  copy.append(3);
  copy.set(0, "one");
  TKSArray inner = copy[1].array();
  inner.set(0, "changed");
  EXPECT_EQ(original, (TKSArray{1, TKSArray{2}}));
  EXPECT_EQ(copy, (TKSArray{"one", TKSArray{2}, 3}));
  EXPECT_EQ(inner, (TKSArray{"changed"}));
}

TEST(Array, IsAssignedLikeAnyValue) {
  TKSArray one{1};
  TKSArray other{2, TKSArray{3}};
  one = other;
  one.append(4);
  EXPECT_EQ(one, (TKSArray{2, TKSArray{3}, 4}));
  EXPECT_EQ(other, (TKSArray{2, TKSArray{3}}));
  const TKSArray& itself = one;
  one = itself;
  EXPECT_EQ(one, (TKSArray{2, TKSArray{3}, 4}));
  other = std::move(one);
  EXPECT_EQ(other, (TKSArray{2, TKSArray{3}, 4}));
  one = TKSArray{5};
  EXPECT_EQ(one, (TKSArray{5})) << "what was moved from can be assigned to";
}

TEST(Array, CanHoldItselfAsItWas) {
  TKSArray array{1};
  array.append(array);
  array.set(0, array);
  EXPECT_EQ(array, (TKSArray{TKSArray{1, TKSArray{1}}, TKSArray{1}}));
}

TEST(Array, AMillionAppendsTakeLinearTime) {
  TKSArray array;
  for (int i = 0; i < 1'000'000; ++i) array.append(i);  // far beyond the time limit when each one copies
  EXPECT_EQ(array[999'999].integer(), 999'999);
}

TEST(Dictionary, EnumeratesInByteOrderOfItsKeys) {
  TKSDictionary dictionary{{"b", 1}, {"", 2}, {"a longer key than fits", 3}, {"a", 4}, {"B", 5}, {"\xC3\xA4", 6}};
  dictionary.set("ab", 7);
  dictionary.set("a longer key than fits, too", 8);
  dictionary.set(std::string_view("a\0", 2), 9);
  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary) keys.emplace_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"", "B", "a", std::string("a\0", 2), "a longer key than fits",
                                            "a longer key than fits, too", "ab", "b", "\xC3\xA4"}));
}

TEST(Dictionary, FindsEveryKeyWhateverTheOrderOfInsertion) {
  TKSDictionary ascending, descending, mixed;
  const auto keyOf = [](int i) { return (i % 3 ? "key" : "a key that does not fit in place ") + std::to_string(i); };
  constexpr int kCount = 500;
  for (int i = 0; i < kCount; ++i) {
    ascending.set(keyOf(i), i);
    descending.set(keyOf(kCount - 1 - i), kCount - 1 - i);
    mixed.set(keyOf(i * 7 % kCount), i * 7 % kCount);
  }
  EXPECT_EQ(ascending, descending);
  EXPECT_EQ(ascending, mixed);
  for (int i = 0; i < kCount; ++i) EXPECT_EQ(mixed[keyOf(i)].integer(), i);
  EXPECT_FALSE(mixed.contains("key"));
  EXPECT_EQ(mixed.find(keyOf(kCount)), nullptr);
  EXPECT_TRUE(mixed[keyOf(kCount)].isNothing());
}

TEST(Dictionary, SettingAKeyAgainReplacesItsValue) {
  TKSDictionary dictionary{{"a", 1}};
  dictionary.set("a", "new");
  EXPECT_EQ(dictionary.size(), 1u);
  EXPECT_EQ(dictionary["a"].text(), "new");
}

TEST(Dictionary, OfEqualKeysTheLastOneCounts) {
  EXPECT_EQ((TKSDictionary{{"a", 1}, {"b", 2}, {"a", 3}}), (TKSDictionary{{"a", 3}, {"b", 2}}));
  using Entries = std::vector<std::pair<std::string, TKSValue>>;
  Entries entries;
  for (int i = 0; i < 1000; ++i) entries.emplace_back("key" + std::to_string(i % 10), i);
  const TKSDictionary dictionary(entries);
  EXPECT_EQ(dictionary.size(), 10u);
  EXPECT_EQ(dictionary["key7"].integer(), 997);
}

TEST(Dictionary, StoringNothingRemovesTheKey) {
  TKSDictionary dictionary{{"a", 1}, {"b", 2}, {"b", TKSValue()}, {"c", TKSValue()}};
  EXPECT_EQ(dictionary, (TKSDictionary{{"a", 1}}));
  dictionary.set("a", TKSValue());
  dictionary.set("never there", TKSValue());
  EXPECT_TRUE(dictionary.empty());
  using Entries = std::vector<std::pair<std::string, TKSValue>>;
  EXPECT_EQ(TKSDictionary(Entries{{"a", 1}, {"a", TKSValue()}, {"b", 2}}), (TKSDictionary{{"b", 2}}));
}

TEST(Dictionary, ErasingTellsWhetherTheKeyWasThere) {
  TKSDictionary dictionary{{"a", 1}, {"b", 2}, {"c", 3}};
  EXPECT_TRUE(dictionary.erase("b"));
  EXPECT_FALSE(dictionary.erase("b"));
  EXPECT_EQ(dictionary, (TKSDictionary{{"a", 1}, {"c", 3}}));
  EXPECT_TRUE(dictionary.erase("a"));
  EXPECT_TRUE(dictionary.erase("c"));
  EXPECT_EQ(dictionary, TKSDictionary());
}

TEST(Dictionary, AChangedCopyLeavesTheOriginalAsItWas) {
  const TKSDictionary original{{"a", 1}, {"b", TKSDictionary{{"c", 2}}}};
  TKSDictionary copy = original;
  copy.set("a", 3);
  copy.erase("b");
  copy.set("d", 4);
  EXPECT_EQ(original, (TKSDictionary{{"a", 1}, {"b", TKSDictionary{{"c", 2}}}}));
  EXPECT_EQ(copy, (TKSDictionary{{"a", 3}, {"d", 4}}));
}

TEST(Dictionary, CanBeSetToAPartOfItself) {
  TKSDictionary dictionary{{"a", TKSArray{"a text that is too long to stand in the value itself"}}};
  dictionary.set("b", dictionary["a"]);
  dictionary.set("a", dictionary["a"][0]);
  dictionary.set("c", dictionary);
  EXPECT_EQ(dictionary["a"].text(), "a text that is too long to stand in the value itself");
  EXPECT_EQ(dictionary["c"]["b"][0].text(), "a text that is too long to stand in the value itself");
}

TEST(Dictionary, AMillionAscendingKeysTakeLinearTime) {
  TKSDictionary dictionary;
  char key[] = "key0000000";
  for (int i = 0; i < 1'000'000; ++i) {
    for (int digit = 9, rest = i; digit > 2; --digit, rest /= 10) key[digit] = static_cast<char>('0' + rest % 10);
    dictionary.set(key, i);  // far beyond the time limit when each one moves those before it
  }
  EXPECT_EQ(dictionary["key0123456"].integer(), 123456);
}

TKSValue nestedArrays(int levels, TKSValue value) {
  for (int i = 0; i < levels; ++i) value = TKSArray{std::move(value)};
  return value;
}

TKSValue nestedDictionaries(int levels, TKSValue value) {
  for (int i = 0; i < levels; ++i) value = TKSDictionary{{"key", std::move(value)}, {"other", i}};
  return value;
}

TEST(DeepValue, IsCopiedComparedPrintedChangedAndDestroyedOnASmallStack) {
  for (const auto nested : {nestedArrays, nestedDictionaries}) {
    tks::test::onSmallStack([nested] {
      constexpr int kLevels = 150'000;
      const TKSValue value = nested(kLevels, "a text that is too long to stand in the value itself");
      const TKSValue copy = value;
      EXPECT_EQ(copy, value);
      EXPECT_EQ(nested(kLevels, "a text that is too long to stand in the value itself"), value);
      EXPECT_NE(nested(kLevels, "another text that is too long to stand in the value itself"), value);
      EXPECT_NE(nested(kLevels - 1, "a text that is too long to stand in the value itself"), value);
      EXPECT_GT(value.description().size(), std::size_t{kLevels} * 2);
      TKSArray changed{value, value};
      changed.set(0, 1);
      EXPECT_NE(changed[0], changed[1]);
    });
  }
}

}  // namespace
