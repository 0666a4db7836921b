// What happens to values and JSON when the n-th request for memory is refused, for every n until all goes well. Nothing
// may leak, and every object has to stay usable.

#include <gtest/gtest.h>

#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/JsonWriter.h"
#include "foundation/values/KeptRoom.h"
#include "platform/platform.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/PrintValue.h"

// There where the address sanitizer watches.
extern "C" [[gnu::weak]] int __asan_address_is_poisoned(const volatile void* address);

namespace {

using tks::test::failuresUntilSuccess;

/// Texts and keys short and long, nested, out of order, and a number beyond 64 bits.
const std::string& text() {
  static const std::string text = [] {
    std::string made =
        R"({"z": [1, 2.5, true, null, 123456789012345678901234567890], "a long key, too long to stand in place": {)";
    for (int i = 0; i < 400; ++i) {
      made += "\"key" + std::to_string(997 * i % 400) + "\": \"a text that is too long to stand in place\", ";
    }
    return made + R"("last": []}, "short": "x"})";
  }();
  return text;
}

TEST(OutOfMemory, ReadingFailsCleanly) {
  const TKSValue expected = tks::platform::json().parse(text(), nullptr);
  ASSERT_TRUE(expected.isDictionary());
  const long failures = failuresUntilSuccess([&] {
    TKSError error;
    const TKSValue value = tks::platform::json().parse(text(), &error);
    if (value.isNothing()) {
      EXPECT_NE(error, TKSError());
      return false;
    }
    EXPECT_EQ(error, TKSError());
    EXPECT_TRUE(value == expected);
    return true;
  });
  EXPECT_GT(failures, 5);
}

/// An array of short texts, about so long.
std::string textOfSize(std::size_t size) {
  std::string made = "[\"short text\"";
  while (made.size() < size) made += ",\"another text\"";
  return made + "]";
}

/// What is made when the first text is read, and stays, is not to be counted.
void readTheFirstText() { tks::platform::json().parse(textOfSize(3000), nullptr); }

/// Reads a text for a second time on one thread, with no memory to be had. Whether it was read.
bool isReadAgainWithoutMemory(const std::string& text, const std::string& again) {
  bool isRead = false;
  std::thread([&] {
    { const TKSValue first = tks::platform::json().parse(text, nullptr); }
    tks::test::grantedRequests = 0;
    isRead = !tks::platform::json().parse(again, nullptr).isNothing();
    tks::test::grantedRequests = -1;
  }).join();
  return isRead;
}

TEST(OutOfMemory, AShortTextTakesOnePiece) {
  const std::string text =
      R"({"message_type":"hello","token":"6f9619ff-8b86-d011-b42d-00cf4fc964ff","message":{"pid":42,"ok":true}})";
  readTheFirstText();
  EXPECT_EQ(failuresUntilSuccess([&] { return !tks::platform::json().parse(text, nullptr).isNothing(); }), 1);
}

TEST(OutOfMemory, ATextOfSomeKilobytesIsReadInTheMemoryOfTheLastOne) {
  EXPECT_TRUE(isReadAgainWithoutMemory(textOfSize(3000), textOfSize(3000)));
  EXPECT_TRUE(isReadAgainWithoutMemory(textOfSize(3000), textOfSize(2900)));
  EXPECT_FALSE(isReadAgainWithoutMemory(textOfSize(3000), textOfSize(4000)));
  EXPECT_FALSE(isReadAgainWithoutMemory(textOfSize(8000), textOfSize(1000))) << "which would hold too much";
  EXPECT_FALSE(isReadAgainWithoutMemory(textOfSize(20'000), textOfSize(20'000))) << "more is not kept";
}

TEST(OutOfMemory, AThreadKeepsOnePieceAndGivesItBackAtItsEnd) {
  readTheFirstText();
  const std::string text = textOfSize(3000);
  const long before = tks::test::piecesOfMemory;
  std::thread([&] {
    std::vector<TKSValue> values(20);
    values[0] = tks::platform::json().parse(text, nullptr);
    const long withOne = tks::test::piecesOfMemory;
    for (TKSValue& value : values) value = tks::platform::json().parse(text, nullptr);
    for (TKSValue& value : values) value = TKSValue();
    EXPECT_EQ(tks::test::piecesOfMemory, withOne);
  }).join();
  EXPECT_EQ(tks::test::piecesOfMemory, before);
}

TEST(KeptRoom, IsNotUsedBetweenTwoDocuments) {
  constexpr std::size_t kSize = 2000;
  const std::span<char> piece = tks::value::KeptRoom::take(kSize);
  tks::value::KeptRoom::giveBack(piece.data(), piece.size());
  if (__asan_address_is_poisoned != nullptr) {
    EXPECT_NE(__asan_address_is_poisoned(piece.data()), 0);
    EXPECT_NE(__asan_address_is_poisoned(&piece.back()), 0);
  }
  const std::span<char> again = tks::value::KeptRoom::take(kSize);
  EXPECT_EQ(again.data(), piece.data());
  if (__asan_address_is_poisoned != nullptr) {
    EXPECT_EQ(__asan_address_is_poisoned(&again.back()), 0);
  }
  tks::value::KeptRoom::giveBack(again.data(), again.size());
}

TEST(OutOfMemory, AThreadThatReadsNothingKeepsNothing) {
  readTheFirstText();
  const std::string text = textOfSize(3000);
  std::thread([&] {
    TKSValue value = tks::platform::json().parse(text, nullptr);
    const long before = tks::test::piecesOfMemory;
    std::thread([&] {
      const long whileHeld = tks::test::piecesOfMemory;
      value = TKSValue();
      EXPECT_EQ(tks::test::piecesOfMemory, whileHeld - 1);
    }).join();
    EXPECT_LE(tks::test::piecesOfMemory, before - 1);
  }).join();
}

/// Lets go of a document when its thread ends, before or after what the library keeps for the thread.
struct HeldToTheEnd {
  TKSValue value;
};

TEST(OutOfMemory, DocumentsMayBeLetGoOfWhileTheirThreadEnds) {
  readTheFirstText();
  const std::string text = textOfSize(3000);
  const long before = tks::test::piecesOfMemory;
  for (const bool readsFirst : {false, true}) {
    std::thread([&] {
      if (readsFirst) tks::platform::json().parse(text, nullptr);
      thread_local HeldToTheEnd held;
      held.value = tks::platform::json().parse(text, nullptr);
    }).join();
  }
  EXPECT_EQ(tks::test::piecesOfMemory, before);
}

TEST(OutOfMemory, LookingUpByTwoKeysTakesNone) {
  const TKSKeyPath path{"a long key, too long to stand in place", "key399"};
  const TKSDictionary list = tks::platform::json().parse(text(), nullptr).dictionary();
  const long failures = failuresUntilSuccess([&] {
    const TKSValue found = TKSUtilBase::getValueFormPlist(path, list);
    // The very bytes of the list: a long text is not copied either.
    return found.text().data() == list[path[0]][path[1]].text().data() &&
           found.text() == "a text that is too long to stand in place";
  });
  EXPECT_EQ(failures, 0);
}

TEST(OutOfMemory, ReportingABadTextFailsCleanly) {
  // What the process keeps from its first bad text on is made while there is memory.
  tks::platform::Json& json = tks::platform::json();
  TKSError first;
  EXPECT_TRUE(json.parse("[1,]", &first).isNothing());
  failuresUntilSuccess([&] {
    TKSError error;
    EXPECT_TRUE(json.parse("[1,]", &error).isNothing());
    EXPECT_NE(error, TKSError());
    return error.code == 3840;
  });
}

TEST(OutOfMemory, WritingFailsCleanly) {
  const TKSValue value = tks::platform::json().parse(text(), nullptr);
  const std::string expected = tks::json::write(value).value();
  const long failures = failuresUntilSuccess([&] {
    std::string written = "kept";
    TKSError error;
    if (!tks::json::append(value, written, &error)) {
      EXPECT_TRUE(written == "kept");
      EXPECT_NE(error, TKSError());
      return false;
    }
    EXPECT_TRUE(written.size() == expected.size() + 4);
    return true;
  });
  EXPECT_GT(failures, 1);
}

TEST(OutOfMemory, WritingDeepNestingFailsCleanly) {
  TKSValue value = 1;
  for (int i = 0; i < 5000; ++i) value = TKSArray{value};
  const long failures = failuresUntilSuccess([&] { return tks::json::write(value).has_value(); });
  EXPECT_GT(failures, 3);
}

TEST(OutOfMemory, ComparingDeepNestingNeedsMemoryAndSaysNoWithoutIt) {
  const auto nested = [] {
    TKSValue value = "a text that is too long to stand in place";
    for (int i = 0; i < 5000; ++i) value = TKSArray{value};
    return value;
  };
  const TKSValue left = nested();
  const TKSValue right = nested();
  EXPECT_GT(failuresUntilSuccess([&] { return left == right; }), 0);
}

/// Runs a change that may throw; returns whether it did not, and expects that the value is as before if it did.
template <class Collection>
bool changes(const Collection& before, const std::function<void(Collection&)>& change) {
  Collection collection = before;
  try {
    change(collection);
    return true;
  } catch (const std::bad_alloc&) {
    EXPECT_TRUE(collection == before);
    return false;
  }
}

TEST(OutOfMemory, AChangeThatFailsChangesNothing) {
  const TKSDictionary read = tks::platform::json().parse(text(), nullptr).dictionary();
  const TKSDictionary made{{"z", 1}, {"a long key, too long to stand in place", 2}};
  for (const TKSDictionary& dictionary : {read, made}) {
    const std::function<void(TKSDictionary&)> changesToTry[] = {
        [](TKSDictionary& d) {
          d.set("a new key, too long to stand in place", "with a text that is too long as well");
        },
        [](TKSDictionary& d) {
          d.set("z", TKSArray{1, 2, 3});
        },
        [](TKSDictionary& d) { d.erase("z"); },
        [](TKSDictionary& d) {
          d.set("copy", TKSDictionary(std::vector<std::pair<std::string, TKSValue>>{{"b", 1}, {"a", "x"}}));
        },
    };
    for (const auto& change : changesToTry) {
      EXPECT_GT(failuresUntilSuccess([&] { return changes(dictionary, change); }), 0);
    }
  }
  const TKSArray array{1, "a text that is too long to stand in place"};
  EXPECT_GT(failuresUntilSuccess([&] { return changes<TKSArray>(array, [](TKSArray& a) { a.append(2); }); }), 0);
  EXPECT_GT(failuresUntilSuccess([&] { return changes<TKSArray>(array, [](TKSArray& a) { a.set(0, 2); }); }), 0);
}

}  // namespace
