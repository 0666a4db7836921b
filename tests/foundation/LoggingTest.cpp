#include "foundation/Trace.h"
#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/MaskSensitiveInformation.h>

#include "platform/platform.h"
#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using tks::test::LogLine;
using tks::test::LogRecorder;

/// Takes the host's callback away again, whatever a test installed.
class Logging : public ::testing::Test {
 protected:
  ~Logging() override { TKSILog::sharedInstance().setLogBlock({}); }
};

/// Counts how often its text is wanted.
struct Counted {
  std::string description() const {
    ++*wanted;
    return "counted";
  }
  int* wanted;
};

TEST_F(Logging, TheInstanceIsOneForTheProcess) {
  EXPECT_EQ(&TKSILog::sharedInstance(), &TKSILog::sharedInstance());
  EXPECT_FALSE(TKSILog::sharedInstance().logBlock());
}

TEST_F(Logging, TheCallbackGetsTheLevelAndExactlyTheFormattedText) {
  const LogRecorder log;
  TKSILog::logWithLevel(TKSILogLevelTrace, "trace");
  TKSILog::logWithLevel(TKSILogLevelInfo, "Send message string: %@", std::string("a"));
  TKSILog::logWithLevel(TKSILogLevelWarning, "Bundle not exists with path: %@", "/users/jane/x");
  TKSILog::logWithLevel(TKSILogLevelError, "%d of %lu", -1, 2UL);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{1, "trace"}, LogLine{2, "Send message string: a"},
                          LogLine{4, "Bundle not exists with path: /users/jane/x"}, LogLine{8, "-1 of 2"}));
}

TEST_F(Logging, AnyLevelIsPassedOnUnchanged) {
  const LogRecorder log;
  TKSILog::logWithLevel(-5, "a");
  TKSILog::logWithLevel(0, "b");
  TKSILog::logWithLevel(3, "c");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{-5, "a"}, LogLine{0, "b"}, LogLine{3, "c"}));
}

TEST_F(Logging, WithoutACallbackNothingIsFormatted) {
  int wanted = 0;
  TKSILog::logWithLevel(TKSILogLevelError, "%@", Counted{&wanted});
  EXPECT_EQ(wanted, 0);
  EXPECT_FALSE(TKSILog::isListening());
  {
    const LogRecorder log;
    EXPECT_TRUE(TKSILog::isListening());
    TKSILog::logWithLevel(TKSILogLevelError, "%@", Counted{&wanted});
    EXPECT_EQ(wanted, 1);
  }
  TKSILog::logWithLevel(TKSILogLevelError, "%@", Counted{&wanted});
  EXPECT_EQ(wanted, 1);
}

TEST_F(Logging, AnEmptyCallbackDropsLinesAgain) {
  int lines = 0;
  TKSILog::sharedInstance().setLogBlock([&lines](std::int32_t, const std::string&) { ++lines; });
  EXPECT_TRUE(TKSILog::sharedInstance().logBlock());
  TKSILog::logWithLevel(TKSILogLevelInfo, "a");
  TKSILog::sharedInstance().setLogBlock({});
  EXPECT_FALSE(TKSILog::sharedInstance().logBlock());
  TKSILog::logWithLevel(TKSILogLevelInfo, "b");
  EXPECT_EQ(lines, 1);
}

TEST_F(Logging, WhatACallbackThrowsIsDropped) {
  int lines = 0;
  TKSILog::sharedInstance().setLogBlock([&lines](std::int32_t, const std::string& message) {
    ++lines;
    if (message == "a number") throw 1;
    throw std::runtime_error("callback");
  });
  for (int i = 0; i < 20; ++i) EXPECT_NO_THROW(TKSILog::logWithLevel(TKSILogLevelInfo, "an exception"));
  EXPECT_NO_THROW(TKSILog::logWithLevel(TKSILogLevelInfo, "a number"));
  EXPECT_EQ(lines, 21);
}

TEST_F(Logging, ACallbackThatLogsAgainIsServedEightLinesDeep) {
  std::vector<std::string> lines;
  TKSILog::sharedInstance().setLogBlock([&lines](std::int32_t, const std::string& message) {
    lines.push_back(message);
    TKSILog::logWithLevel(TKSILogLevelInfo, "line %lu", lines.size());
  });
  TKSILog::logWithLevel(TKSILogLevelInfo, "line 0");
  EXPECT_THAT(lines, ElementsAre("line 0", "line 1", "line 2", "line 3", "line 4", "line 5", "line 6", "line 7"));
  TKSILog::logWithLevel(TKSILogLevelInfo, "again");
  EXPECT_THAT(lines, SizeIs(16));
}

TEST_F(Logging, LinesThatAreHeldBackComeInOrderWhenTheOutermostScopeEnds) {
  const LogRecorder log;
  {
    const tks::HeldLines outer;
    TKSILog::logWithLevel(TKSILogLevelInfo, "one");
    {
      const tks::HeldLines inner;
      TKSILog::logWithLevel(TKSILogLevelError, "two");
    }
    TKSILog::logWithLevel(TKSILogLevelInfo, "three");
    EXPECT_THAT(log.lines(), IsEmpty());
  }
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "one"}, LogLine{8, "two"}, LogLine{2, "three"}));
}

TEST_F(Logging, ACallbackMayReplaceItselfWhileItRuns) {
  std::vector<std::string> first;
  std::vector<std::string> second;
  const auto owned = std::make_shared<std::string>("alive");
  TKSILog::sharedInstance().setLogBlock([&first, &second, owned](std::int32_t, const std::string& message) {
    TKSILog::sharedInstance().setLogBlock(
        [&second](std::int32_t, const std::string& other) { second.push_back(other); });
    first.push_back(message + *owned);
    TKSILog::logWithLevel(TKSILogLevelInfo, "nested");
  });
  TKSILog::logWithLevel(TKSILogLevelInfo, "outer ");
  EXPECT_THAT(first, ElementsAre("outer alive"));
  EXPECT_THAT(second, ElementsAre("nested"));
  EXPECT_EQ(owned.use_count(), 1) << "the first callback was not released";
}

TEST_F(Logging, ALineInDeliveryKeepsItsReplacedCallbackAlive) {
  std::latch inside(1);
  std::promise<void> leave;
  auto content = std::make_shared<std::string>("content");
  const std::weak_ptr<std::string> alive = content;
  std::string seen;
  TKSILog::sharedInstance().setLogBlock([&inside, &seen, left = leave.get_future().share(),
                                         content = std::move(content)](std::int32_t, const std::string&) {
    inside.count_down();
    left.wait();
    seen = *content;
  });
  std::thread logging([] { TKSILog::logWithLevel(TKSILogLevelInfo, "slow"); });
  inside.wait();
  TKSILog::sharedInstance().setLogBlock({});
  EXPECT_FALSE(alive.expired());
  leave.set_value();
  logging.join();
  EXPECT_EQ(seen, "content");
  EXPECT_TRUE(alive.expired());
}

TEST_F(Logging, ASlowCallbackHoldsUpNobodyElse) {
  std::latch inside(1);
  std::promise<void> leave;
  std::atomic<int> lines = 0;
  TKSILog::sharedInstance().setLogBlock(
      [&inside, &lines, left = leave.get_future().share()](std::int32_t, const std::string& message) {
        if (message == "slow") {
          inside.count_down();
          left.wait();
        }
        ++lines;
      });
  std::thread slow([] { TKSILog::logWithLevel(TKSILogLevelInfo, "slow"); });
  inside.wait();
  // Would never come back if the slow line held anything that this one needs.
  for (int i = 0; i < 100; ++i) TKSILog::logWithLevel(TKSILogLevelInfo, "quick");
  EXPECT_EQ(lines, 100);
  leave.set_value();
  slow.join();
  EXPECT_EQ(lines, 101);
}

TEST_F(Logging, NoLockIsHeldWhileAReplacedCallbackIsDestroyed) {
  struct LogsAtItsEnd {
    ~LogsAtItsEnd() { TKSILog::logWithLevel(TKSILogLevelInfo, "the end"); }
  };
  TKSILog::sharedInstance().setLogBlock([end = std::make_shared<LogsAtItsEnd>()](std::int32_t, const std::string&) {});
  std::vector<std::string> lines;
  TKSILog::sharedInstance().setLogBlock(
      [&lines](std::int32_t, const std::string& message) { lines.push_back(message); });
  EXPECT_THAT(lines, ElementsAre("the end"));
}

TEST_F(Logging, ACallbackIsReplacedWhileOthersLog) {
  constexpr int kLoggers = 4;
  constexpr int kLines = 2000;
  std::atomic<int> delivered = 0;
  std::atomic<int> torn = 0;
  std::atomic<int> logging = kLoggers;
  std::vector<std::thread> threads;
  for (int i = 0; i < kLoggers; ++i) {
    threads.emplace_back([&logging] {
      for (int line = 0; line < kLines; ++line) TKSILog::logWithLevel(TKSILogLevelInfo, "line %d", line);
      --logging;
    });
  }
  while (logging > 0) {
    // Each callback owns what it looks at: one that were called after its end would find something else there.
    auto mark = std::make_shared<std::string>("this callback is whole");
    TKSILog::sharedInstance().setLogBlock([&delivered, &torn, mark](std::int32_t level, const std::string& message) {
      if (*mark != "this callback is whole" || level != 2 || !message.starts_with("line ")) ++torn;
      ++delivered;
    });
    if (logging % 2 == 0) TKSILog::sharedInstance().setLogBlock({});
    EXPECT_NO_THROW(TKSILog::sharedInstance().logBlock());
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
  EXPECT_LE(delivered, kLoggers * kLines);
  TKSILog::sharedInstance().setLogBlock([&delivered](std::int32_t, const std::string&) { delivered = -1; });
  TKSILog::logWithLevel(TKSILogLevelInfo, "line");
  EXPECT_EQ(delivered, -1) << "the callback that was installed last is the one in force";
}

TEST_F(Logging, TheLastOfCallbacksInstalledAtOnceIsListenedTo) {
  for (int round = 0; round < 200; ++round) {
    std::thread other([] { TKSILog::sharedInstance().setLogBlock({}); });
    TKSILog::sharedInstance().setLogBlock([](std::int32_t, const std::string&) {});
    other.join();
    ASSERT_EQ(TKSILog::isListening(), static_cast<bool>(TKSILog::sharedInstance().logBlock()));
  }
}

TEST_F(Logging, LinesOfSeveralThreadsAllArrive) {
  const LogRecorder log;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < 500; ++line) TKSILog::logWithLevel(TKSILogLevelInfo, "line");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(log.lines(), SizeIs(2000));
}

TEST_F(Logging, TheTraceLineNamesProcessThreadClassMethodAndLine) {
  const LogRecorder log;
  tks::platform::ThisProcess& process = tks::platform::thisProcess();
  tks::trace("TKSInterface", "start:errorBlock:");
  const int line = __LINE__ - 1;
  EXPECT_THAT(
      log.lines(),
      ElementsAre(LogLine{1, "[" + std::to_string(process.identifier()) + ":" + std::to_string(process.threadNumber()) +
                                 "][TKSInterface: start:errorBlock:] line:" + std::to_string(line)}));
}

TEST_F(Logging, TheTraceLineNamesTheThreadThatWritesIt) {
  const LogRecorder log;
  std::thread([] { tks::trace("A", "b"); }).join();
  tks::trace("A", "b");
  const std::vector<LogLine> lines = log.lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_NE(lines[0].text.substr(0, lines[0].text.find(']')), lines[1].text.substr(0, lines[1].text.find(']')));
}

// ---- Masking through the log's own operations.

TEST(LogMasking, TextsAreMaskedByAllRules) {
  EXPECT_EQ(TKSILog::removeSensitiveInformation(std::string("GET /users/12345/profile")), "GET /users/*****/profile");
  EXPECT_EQ(TKSILog::removeSensitiveInformation(std::string_view("a@x")), "*@x");
  EXPECT_EQ(TKSILog::removeSensitiveInformation("username=abc"), "username=***");
  EXPECT_EQ(TKSILog::removeSensitiveInformation(""), "");
  EXPECT_EQ(TKSILog::addMask(std::string("secret")), "sec***");
  EXPECT_EQ(TKSILog::addMask(std::string_view("abc")), "***");
  EXPECT_EQ(TKSILog::addMask("ab\u20ac"), "ab***");
}

TEST(LogMasking, OtherObjectsAreMaskedInTheirDescription) {
  EXPECT_EQ(TKSILog::removeSensitiveInformation(TKSValue("a@x")), "*@x");
  EXPECT_EQ(TKSILog::removeSensitiveInformation(TKSValue(12)), "12");
  EXPECT_EQ(TKSILog::addMask(TKSValue(123456)), "123***");
  EXPECT_EQ(TKSILog::addMask(TKSValue(12)), "**");
  const TKSDictionary dictionary{{"path", "/users/jane/x"}};
  EXPECT_EQ(TKSILog::removeSensitiveInformation(TKSValue(dictionary)), removePII(TKSValue(dictionary).description()));
  EXPECT_THAT(TKSILog::removeSensitiveInformation(TKSValue(dictionary)), ::testing::HasSubstr("/users/****/x"));
}

TEST(LogMasking, AnAbsentObjectPrintsAsNullMaskedOrNot) {
  const char* none = nullptr;
  EXPECT_EQ(TKSILog::removeSensitiveInformation(none), "(null)");
  EXPECT_EQ(TKSILog::removeSensitiveInformation(TKSValue()), "(null)");
  EXPECT_EQ(TKSILog::addMask(none), "(nu***");
}

TEST(LogMasking, AMaskedArgumentIsMaskedInTheLine) {
  const LogRecorder log;
  const std::string text = "/users/jane/x";
  const TKSValue value = text;
  const std::string_view view = text;
  TKSILog::logWithLevel(TKSILogLevelInfo, "%@ %@ %@", tks::masked(text), tks::masked(value), tks::masked(view));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "/users/****/x /users/****/x /users/****/x"}));
}

// ---- Calling the host.

TEST(CallingTheHost, PassesItsArgumentsOn) {
  const LogRecorder log;
  int sum = 0;
  tks::callHost("sum", std::function<void(int, int)>([&sum](int a, int b) { sum = a + b; }), 1, 2);
  EXPECT_EQ(sum, 3);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CallingTheHost, AnAbsentCallbackIsNotCalled) {
  const LogRecorder log;
  tks::callHost("finish", std::function<void()>());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CallingTheHost, WhatACallbackThrowsIsLoggedMasked) {
  const LogRecorder log;
  tks::callHost("finish", std::function<void()>([] { throw std::runtime_error("no jane@a.example"); }));
  tks::callHost("error", std::function<void()>([] { throw 1; }));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "Callback 'finish' threw an exception: no jan*@a.example"},
                                       LogLine{8, "Callback 'error' threw an exception: unknown"}));
}

TEST(CallingTheHost, ATakenCallbackLeavesItsSlotEmpty) {
  std::function<void()> slot = [] {};
  EXPECT_TRUE(tks::take(slot));
  EXPECT_FALSE(slot);
}

}  // namespace
