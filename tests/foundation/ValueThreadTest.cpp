#include <gtest/gtest.h>

#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"
#include "tests/support/PrintValue.h"

namespace {

constexpr std::string_view kLong = "a text that is too long to stand in the value itself";

template <class Work>
void onThreads(const Work& work) {
  constexpr int kThreads = 4;
  std::latch start(kThreads);
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
}

/// A dictionary that stands alone, and one that was read and stands in a block.
std::vector<TKSDictionary> originals() {
  const TKSDictionary made{
      {"count", 0}, {"inner", TKSDictionary{{"text", kLong}}}, {"list", TKSArray{1, 2, kLong}}, {"text", kLong}};
  return {made, tks::platform::json().parse(tks::json::write(made).value(), nullptr).dictionary()};
}

TEST(ValuesOnThreads, ChangingACopyNeverShowsInAnother) {
  for (const TKSDictionary& original : originals()) {
    const TKSDictionary before = original;
    onThreads([&](int thread) {
      for (int round = 0; round < 200; ++round) {
        TKSDictionary copy = original;
        TKSDictionary inner = copy["inner"].dictionary();
        inner.set("thread", thread);
        copy.set("inner", inner);
        TKSArray list = copy["list"].array();
        for (int i = 0; i < 5; ++i) list.append(thread);
        copy.set("list", std::move(list));
        copy.erase("text");
        EXPECT_EQ(copy["inner"], (TKSDictionary{{"text", kLong}, {"thread", thread}}));
        EXPECT_EQ(copy["list"], (TKSArray{1, 2, kLong, thread, thread, thread, thread, thread}));
        EXPECT_EQ(original["text"].text(), kLong);
      }
    });
    EXPECT_EQ(original, before);
  }
}

TEST(ValuesOnThreads, TheLastOneToLetGoFreesTheWhole) {
  for (int round = 0; round < 200; ++round) {
    for (TKSDictionary& original : originals()) {
      std::vector<TKSValue> parts(4, original["inner"]);
      parts[1] = original["list"];
      parts[2] = original["text"];
      parts[3] = original;
      original = TKSDictionary();
      onThreads([&](int thread) {
        TKSValue part = std::move(parts[static_cast<std::size_t>(thread)]);
        EXPECT_FALSE(part.isNothing());
        part = TKSValue();
      });
    }
  }
}

TEST(ValuesOnThreads, TheMemoryOfADocumentMayBeUsedNextWhereItWasLetGoOf) {
  std::string text = "[0";
  while (text.size() < 3000) text.append(",\"").append(kLong).append("\"");
  text += "]";
  const TKSValue expected = tks::platform::json().parse(text, nullptr);
  std::mutex mutex;  // guards what follows
  std::vector<TKSValue> passedOn;
  onThreads([&](int) {
    for (int round = 0; round < 200; ++round) {
      TKSValue value = tks::platform::json().parse(text, nullptr);
      EXPECT_TRUE(value == expected);
      const std::scoped_lock lock(mutex);
      passedOn.push_back(std::move(value));
      if (passedOn.size() > 4) passedOn.erase(passedOn.begin());
    }
  });
  for (const TKSValue& value : passedOn) EXPECT_TRUE(value == expected);
}

TEST(ValuesOnThreads, EveryThreadReadsAndWritesJsonOnItsOwn) {
  onThreads([](int thread) {
    for (int round = 0; round < 100; ++round) {
      const TKSDictionary value{
          {"thread", thread}, {"round", round}, {"text", std::string(static_cast<std::size_t>(round), 'x')}};
      const std::string text = tks::json::write(value).value();
      EXPECT_EQ(tks::platform::json().parse(text, nullptr), value);
    }
  });
}

}  // namespace
