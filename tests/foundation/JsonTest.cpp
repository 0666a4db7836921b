#include <gtest/gtest.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include <tksinterface/TKSConstants.h>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"
#include "tests/support/PrintValue.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SmallStack.h"

namespace {

using namespace std::string_literals;

TKSValue read(std::string_view text) {
  TKSError error;
  TKSValue value = tks::platform::json().parse(text, &error);
  EXPECT_EQ(error, TKSError()) << text.substr(0, 200);
  EXPECT_FALSE(value.isNothing());
  return value;
}

std::string written(const TKSValue& value) {
  TKSError error;
  const std::optional<std::string> text = tks::json::write(value, &error);
  EXPECT_EQ(error, TKSError());
  return text.value_or("not written");
}

const std::chrono::milliseconds kAtOnce{tks::test::kSanitized ? 1000 : 100};

/// What this thread has used so far: other work on the machine does not count.
std::chrono::milliseconds processorTime() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                               std::chrono::nanoseconds(time.tv_nsec));
}

TEST(JsonReading, GivesTheValueOfATypicalMessage) {
  EXPECT_EQ(read(R"( {"message_type": "hello", "message": {"pid": 42, "ok": true, "no": false, "none": null},
                      "list": [1, -2, 2.5, 1e3, "text", [], {}]} )"),
            (TKSDictionary{{"message_type", "hello"},
                           {"message", TKSDictionary{{"pid", 42}, {"ok", true}, {"no", false}, {"none", TKSNull()}}},
                           {"list", TKSArray{1, -2, 2.5, 1000.0, "text", TKSArray(), TKSDictionary()}}}));
}

TEST(JsonReading, SkipsAByteOrderMark) { EXPECT_EQ(read("\xEF\xBB\xBF[1]"), (TKSArray{1})); }

TEST(JsonReading, TellsKindsOfNumbersApart) {
  EXPECT_TRUE(read("[1]")[0].isInteger());
  EXPECT_TRUE(read("[1.0]")[0].isReal());
  EXPECT_TRUE(read("[1e2]")[0].isReal());
  EXPECT_EQ(read("[-0]")[0].integer(), 0);
  EXPECT_EQ(read("[9223372036854775807]")[0].integer(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(read("[-9223372036854775808]")[0].integer(), std::numeric_limits<std::int64_t>::min());
}

TEST(JsonReading, KeepsUnsignedIntegersOf64Bits) {
  for (const std::uint64_t number : {9223372036854775808u, 9223372036854775809u, 18446744073709551615u}) {
    const TKSValue value = read("[" + std::to_string(number) + ",-1]");
    EXPECT_TRUE(value[0].isUnsignedInteger());
    EXPECT_EQ(value[0].unsignedInteger(), number);
    EXPECT_EQ(tks::json::write(value, nullptr), "[" + std::to_string(number) + ",-1]");
  }
  EXPECT_FALSE(read("[9223372036854775807]")[0].isUnsignedInteger());
}

TEST(JsonReading, IntegersBeyond64BitsBecomeReals) {
  const std::pair<std::string_view, double> rows[] = {{"-9223372036854775809", -9223372036854775808.0},
                                                      {"18446744073709551616", 18446744073709551616.0},
                                                      {"123456789012345678901234567890", 1.2345678901234568e29}};
  for (const auto& [text, number] : rows) {
    const TKSValue value =
        read("{\"a\":[" + std::string(text) + ",9223372036854775807,\"\\\"" + std::string(text) + "\"]}")["a"];
    EXPECT_TRUE(value[0].isReal());
    EXPECT_EQ(value[0].real(), number);
    EXPECT_TRUE(value[1].isInteger());
    EXPECT_EQ(value[2].text(), "\"" + std::string(text));
  }
}

TEST(JsonReading, NothingBehindANulEscapeIsLost) {
  EXPECT_EQ(read(R"(["a\u0000b", {"k\u0000y": 1}])"),
            (TKSArray{std::string_view("a\0b", 3), TKSDictionary{{std::string_view("k\0y", 3), 1}}}));
}

TEST(JsonReading, DecodesEscapes) {
  EXPECT_EQ(read(R"(["\"\\\/\b\f\n\r\t\u00e4\u20AC\ud83d\ude00"])")[0].text(),
            "\"\\/\b\f\n\r\t\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(JsonReading, DecodesEscapesAtEveryPlaceOfATextOfAnyLength) {
  const std::pair<std::string_view, std::string_view> escapes[] = {
      {R"(\\)", "\\"}, {R"(\")", "\""}, {R"(\u00e4)", "\xC3\xA4"}, {R"(\ud83d\ude00)", "\xF0\x9F\x98\x80"}};
  for (std::size_t length = 0; length < 70; ++length) {
    for (std::size_t place = 0; place <= length; ++place) {
      for (const auto& [escape, meant] : escapes) {
        const std::string before(place, 'a');
        const std::string after(length - place, 'b');
        const std::string text = "[\"" + before + std::string(escape) + after + "\"]";
        EXPECT_EQ(read(text)[0].text(), before + std::string(meant) + after) << text;
      }
    }
  }
}

TEST(JsonReading, SkipsBlanksOfEveryKindBetweenTokens) {
  EXPECT_EQ(read(" \n[\t\"a\" \r\n, 1\t,true , { \"k\"\n:\tnull } ,1.5 ]\r\n"),
            (TKSArray{"a", 1, true, TKSDictionary{{"k", TKSNull()}}, 1.5}));
}

TEST(JsonReading, RealsTooSmallToTellFromZeroAreZero) {
  for (const std::string& text : {"1e-400"s, "-1e-400"s, "0.0e-1"s, "0e400"s, "0." + std::string(400, '0') + "1"}) {
    EXPECT_EQ(read("[" + text + "]")[0].real(), 0) << text;
    EXPECT_TRUE(read("[" + text + "]")[0].isReal()) << text;
  }
}

TEST(JsonReading, LooksAtNothingBehindTheText) {
  const std::string contents[] = {"\"" + std::string(5, 'x') + "\"",
                                  "\"" + std::string(40, 'x') + "\"",
                                  R"("\u00e4")",
                                  "12345",
                                  "1.5",
                                  "true",
                                  "{\"k\":[]}"};
  for (const std::string& content : contents) {
    for (std::size_t blanks = 0; blanks < 130; ++blanks) {
      const std::string text = "[" + std::string(blanks, ' ') + content + "]";
      for (std::size_t size = text.size() - 2; size <= text.size(); ++size) {
        // As large as it must be, so that a sanitizer sees a look beyond it.
        const auto exact = std::make_unique_for_overwrite<char[]>(size);
        std::copy_n(text.begin(), size, exact.get());
        const TKSValue value = tks::platform::json().parse({exact.get(), size}, nullptr);
        EXPECT_EQ(value.isNothing(), size < text.size()) << text;
      }
    }
  }
}

TEST(JsonReading, OfEqualMemberNamesTheLastOneCounts) {
  EXPECT_EQ(read(R"({"a":1,"b":2,"a":{"c":3,"c":4}})"), (TKSDictionary{{"a", TKSDictionary{{"c", 4}}}, {"b", 2}}));
  EXPECT_EQ(read(R"({"\u0061":1,"a":2})"), (TKSDictionary{{"a", 2}}));
}

// Texts that are no JSON with an array or object outermost.
const std::string kNoJson[] = {
    "",
    " ",
    "\xEF\xBB\xBF",
    "1",
    "\"text\"",
    "null",
    "true",
    "nothing",
    "[",
    "]",
    "{",
    "}",
    "[1",
    "[1,",
    "[1,]",
    "[,1]",
    "[1 2]",
    "[1]]",
    "[1] x",
    "[1][2]",
    "[1}",
    "{1]",
    "{\"a\"}",
    "{\"a\":}",
    "{\"a\":1,}",
    "{\"a\" 1}",
    "{a:1}",
    "{'a':1}",
    "{1:2}",
    "{\"a\":1 \"b\":2}",
    "{,}",
    "[01]",
    "[-]",
    "[+1]",
    "[.5]",
    "[1.]",
    "[1.e1]",
    "[1e]",
    "[0x10]",
    "[1_000]",
    "[NaN]",
    "[Infinity]",
    "[-Infinity]",
    "[00000000000000000000000000000]",
    "[1e400]",
    "[-1e400]",
    "[" + std::string(400, '9') + "]",
    "[tru]",
    "[TRUE]",
    "[nul]",
    "[undefined]",
    "[nullx]",
    "[truefalse]",
    "[null\"\"]",
    "[1\"\"]",
    "[1.5\"\"]",
    "[\"a\"\"b\"]",
    "[1true]",
    "[123456789012345678901x]",
    "[1.5x]",
    "[1e5.5]",
    "[-a]",
    "[--1]",
    "[\"]",
    "[\"\\\"]",
    "[\"\\x41\"]",
    "[\"a long text with a letter after the backslash that stands for nothing: \\q\"]",
    "[\"\\u+123\"]",
    "[\"\\u 123\"]",
    "[\"\\u12\"]",
    "[\"\\u12G4\"]",
    "[\"a\nb\"]",
    "[\"a\tb\"]",
    "[\"\x01\"]",
    "['a']",
    "[\"a\"b]",
    "/* */[1]",
    "[1] // end",
    "# x\n[1]",
    // lone surrogates
    R"(["\ud800"])",
    R"(["\udc00"])",
    R"(["\ud800x"])",
    R"(["\ud800\u0041"])",
    R"(["\ud800\ud800"])",
    R"(["\udc00\ud800"])",
    R"({"\ud800":1})",
    // no UTF-8
    "[\"\xFF\"]",
    "[\"\xC3\"]",
    "[\"\xC0\xAF\"]",
    "[\"\xE0\x80\x80\"]",
    "[\"\xED\xA0\x80\"]",
    "[\"\xF5\x80\x80\x80\"]",
    "[\"\x80\"]",
    "\xFF\xFE[\0001\0]\0"s,
    "\0[1]"s,
    "[1]\0"s,
    "[\0]"s,
    "[\"a\0b\"]"s,
    "[1\xFF]",
};

TEST(JsonReading, RefusesWhatIsNotJsonWithAnArrayOrObjectOutermost) {
  for (const std::string& text : kNoJson) {
    TKSError error;
    EXPECT_TRUE(tks::platform::json().parse(text, &error).isNothing()) << text;
    EXPECT_EQ(error.domain, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 3840);
    EXPECT_TRUE(error.localizedDescription.starts_with("The text is not in the JSON format: "));
    EXPECT_TRUE(tks::platform::json().parse(text, nullptr).isNothing());
  }
}

TEST(JsonReading, ReadsOnAfterABadText) {
  EXPECT_TRUE(tks::platform::json().parse({}, nullptr).isNothing());
  EXPECT_TRUE(tks::platform::json().parse("[1", nullptr).isNothing());
  EXPECT_EQ(read("[1]"), (TKSArray{1}));
}

TEST(JsonReading, NestsToADepthOf512) {
  const auto nested = [](std::string_view open, std::string_view innermost, std::string_view close, int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    text += innermost;
    for (int i = 0; i < depth; ++i) text += close;
    return text;
  };
  const std::string_view shapes[][3] = {
      {"[", "", "]"}, {"[", "0", "]"}, {"[", "\"x\",1", "]"}, {"{\"a\":", "0", "}"}, {"{\"a\":", "\"x\"", "}"}};
  for (const auto& [open, innermost, close] : shapes) {
    EXPECT_FALSE(read(nested(open, innermost, close, 512)).isNothing());
    TKSError error;
    EXPECT_TRUE(tks::platform::json().parse(nested(open, innermost, close, 513), &error).isNothing());
    EXPECT_EQ(error.code, 3840);
  }
  EXPECT_FALSE(read(nested("{\"a\":", "{}", "}", 511)).isNothing());
  EXPECT_TRUE(tks::platform::json().parse(nested("{\"a\":", "{}", "}", 512), nullptr).isNothing());
}

TEST(JsonReading, RefusesDeepNestingAtOnceAndOnASmallStack) {
  constexpr std::size_t kDepth = 100'000;
  constexpr std::size_t kSize = 10 * 1024 * 1024;
  const std::string_view shapes[][3] = {{"[", "]", ""}, {"{\"a\":", "}", "0"}, {"[{\"a\":", "}]", "0"}};
  for (const auto& [open, close, innermost] : shapes) {
    std::string text;
    for (std::size_t i = 0; i < kDepth; ++i) text += open;
    text += innermost;
    for (std::size_t i = 0; i < kDepth; ++i) text += close;
    const std::string alone = text;
    text.resize(kSize, ' ');
    tks::test::onSmallStack([&] {
      EXPECT_TRUE(tks::platform::json().parse(alone, nullptr).isNothing());
      const auto begin = processorTime();
      TKSError error;
      EXPECT_TRUE(tks::platform::json().parse(text, &error).isNothing());
      EXPECT_EQ(error.code, 3840);
      EXPECT_LT((processorTime() - begin).count(), kAtOnce.count());
    });
  }
}

TEST(JsonReading, AMillionMembersTakeTimeInProportion) {
  // All keys as equal as can be, in the worst order for sorting by insertion, and half of them twice.
  std::string text = "{";
  for (int i = 1'000'000; i > 0; --i)
    text += "\"collidingkey" + std::to_string(i / 2) + "\":" + std::to_string(i) + ",";
  text.back() = '}';
  const TKSValue value = read(text);
  EXPECT_EQ(value.dictionary().size(), 500'001u);
  EXPECT_EQ(value["collidingkey250000"].integer(), 500'000);
}

TEST(JsonReading, TheEndOfTheTextIsItsEndWhateverStandsBehind) {
  const std::string text = "[1,2]3]";
  EXPECT_EQ(read(std::string_view(text).substr(0, 5)), (TKSArray{1, 2}));
  EXPECT_TRUE(tks::platform::json().parse(std::string_view(text).substr(0, 4), nullptr).isNothing());
}

TEST(JsonWriting, IsCompactWithKeysInByteOrder) {
  EXPECT_EQ(written(TKSDictionary{{"b", 1}, {"a", TKSArray{true, false, TKSNull(), -5, "x"}}, {"B", TKSDictionary()}}),
            R"({"B":{},"a":[true,false,null,-5,"x"],"b":1})");
  EXPECT_EQ(written(TKSArray()), "[]");
  EXPECT_EQ(written(TKSDictionary()), "{}");
}

TEST(JsonWriting, EscapesQuotesBackslashesAndControlCharactersOnly) {
  std::string all;
  for (char c = 0; c < 0x7F; ++c) all += c;
  EXPECT_EQ(written(TKSArray{all}),
            R"(["\u0000\u0001\u0002\u0003\u0004\u0005\u0006\u0007\b\t\n\u000b\f\r\u000e\u000f)"
            R"(\u0010\u0011\u0012\u0013\u0014\u0015\u0016\u0017\u0018\u0019\u001a\u001b\u001c\u001d\u001e\u001f)"
            R"( !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"])");
  EXPECT_EQ(written(TKSArray{"https://a/b \x7F \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80 \xE2\x80\xA8"}),
            "[\"https://a/b \x7F \xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80 \xE2\x80\xA8\"]");
}

TEST(JsonWriting, EscapesAtEveryPlaceOfATextOfAnyLength) {
  for (std::size_t length = 1; length < 70; ++length) {
    for (std::size_t place = 0; place < length; ++place) {
      for (const std::string_view special : {"\"", "\\", "\n", "\x1F", "\xC3\xA4"}) {
        std::string text(length, 'x');
        text.replace(place, 1, special);
        const std::string json = written(TKSDictionary{{text, text}});
        EXPECT_EQ(read(json), (TKSDictionary{{text, text}})) << json;
      }
    }
  }
  for (const std::size_t length : {255u, 256u, 320u, 1087u, 1088u, 16384u, 40000u}) {
    for (std::size_t place = 0; place < length; place += 37 + length / 64) {
      for (const std::string_view special : {"\"", "\x1F", "\xC3\xA4", "\x80"}) {
        std::string text(length, 'x');
        text.replace(place, 1, special);
        const auto json = tks::json::write(TKSArray{1, text, 2});
        ASSERT_EQ(json.has_value(), special != "\x80") << place;
        if (!json) continue;
        EXPECT_TRUE(read(*json) == (TKSArray{1, text, 2})) << length << ' ' << place;
      }
    }
  }
  const std::string onlyQuotes(100'000, '"');
  EXPECT_EQ(written(TKSArray{onlyQuotes}).size(), 200'004u);
  EXPECT_EQ(read(written(TKSArray{onlyQuotes}))[0].text(), onlyQuotes);
}

TEST(JsonWriting, WritesRealsWithTheFewestDigitsThatReadBack) {
  const std::pair<double, std::string_view> rows[] = {{1.0, "[1]"},
                                                      {0.1, "[0.1]"},
                                                      {-2.5, "[-2.5]"},
                                                      {100000.0, "[100000]"},
                                                      {1e15, "[1000000000000000]"},
                                                      {1e16, "[1e+16]"},
                                                      {1e300, "[1e+300]"},
                                                      {1e-4, "[0.0001]"},
                                                      {1.5e-7, "[1.5e-07]"},
                                                      {5e-324, "[5e-324]"},
                                                      {-0.0, "[-0.0]"},
                                                      {1.0 / 3, "[0.3333333333333333]"},
                                                      {1.7976931348623157e308, "[1.7976931348623157e+308]"}};
  for (const auto& [number, text] : rows) {
    EXPECT_EQ(written(TKSArray{number}), text);
    EXPECT_EQ(read(text)[0].real(), number);
    EXPECT_EQ(std::signbit(read(text)[0].real()), std::signbit(number));
  }
}

TEST(JsonWriting, RefusesWhatJsonDoesNotHave) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const std::pair<TKSValue, std::string_view> rows[] = {
      {TKSValue(), "Invalid top-level type in JSON write"},
      {TKSNull(), "Invalid top-level type in JSON write"},
      {1, "Invalid top-level type in JSON write"},
      {"text", "Invalid top-level type in JSON write"},
      {TKSArray{TKSValue()}, "Invalid type in JSON write ((null))"},
      {TKSArray{TKSData{1}}, "Invalid type in JSON write (data)"},
      {TKSDictionary{{"a", TKSDate{1}}}, "Invalid type in JSON write (date)"},
      {TKSArray{std::numeric_limits<double>::quiet_NaN()}, "Invalid number value (NaN) in JSON write"},
      {TKSArray{kInfinity}, "Invalid number value (infinite) in JSON write"},
      {TKSArray{TKSArray{-kInfinity}}, "Invalid number value (infinite) in JSON write"},
      {TKSArray{"\xFF"}, "Invalid text in JSON write (not UTF-8)"},
      {TKSDictionary{{"\xC3", 1}}, "Invalid text in JSON write (not UTF-8)"},
      {TKSArray{"a text longer than fits that ends broken \xE2\x82"}, "Invalid text in JSON write (not UTF-8)"},
  };
  for (const auto& [value, reason] : rows) {
    TKSError error;
    EXPECT_EQ(tks::json::write(value, &error), std::nullopt);
    EXPECT_EQ(error, (TKSError{std::string(commonErrorDomain), 0, std::string(reason)}));
    EXPECT_EQ(tks::json::write(value), std::nullopt);
  }
}

TEST(JsonWriting, AppendsBehindATextAndLeavesItAloneOnFailure) {
  std::string text = "before";
  EXPECT_TRUE(tks::json::append(TKSArray{1}, text, nullptr));
  EXPECT_EQ(text, "before[1]");
  TKSArray tooLong;
  for (int i = 0; i < 10'000; ++i) tooLong.append("much more than is written at once");
  tooLong.append(TKSData{1});
  EXPECT_FALSE(tks::json::append(tooLong, text, nullptr));
  EXPECT_EQ(text, "before[1]");
}

TEST(JsonWriting, WritesAnyDepthOnASmallStack) {
  tks::test::onSmallStack([] {
    constexpr int kLevels = 150'000;
    TKSValue value = TKSArray();
    for (int i = 1; i < kLevels; ++i) value = i % 2 ? TKSValue(TKSArray{value}) : TKSValue(TKSDictionary{{"a", value}});
    const std::string text = written(value);
    EXPECT_EQ(text.size(), std::size_t{kLevels / 2} * 2 + std::size_t{kLevels / 2} * 6 - 4);
  });
}

TEST(Json, AMegabyteOfNestedMembersComesBackTheSame) {
  TKSArray people;
  for (int i = 0; i < 10'000; ++i) {
    people.append(TKSDictionary{{"id", i},
                                {"name", "A name \"in quotes\" " + std::to_string(i)},
                                {"load", i / 8.0},
                                {"versions", TKSArray{43, 10, i % 100}},
                                {"client", TKSDictionary{{"active", i % 3 == 0}, {"note", TKSNull()}}}});
  }
  const TKSDictionary document{{"people", people}};
  const TKSValue back = read(written(document));
  EXPECT_EQ(back, document);
  EXPECT_EQ(written(back), written(document));
}

}  // namespace
