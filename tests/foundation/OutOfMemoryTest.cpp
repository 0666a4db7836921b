// What happens to values and JSON when the n-th request for memory is refused, for every n until all goes well. Nothing
// may leak, and every object has to stay usable.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/PrintValue.h"

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
