// What happens to whole operations when the n-th request for memory is refused, for every n until all goes well:
// nothing is thrown at the host, nothing leaks, nothing is half-written, and everything stays usable.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/PipeChannels.h"

namespace {

using namespace tks::test;

/// How often a line has said that a message could not be made ready for the channel.
int transferFailures = 0;

/// A host that formats every line and keeps none; for a scope.
class Listener {
 public:
  Listener() {
    TKSILog::sharedInstance().setLogBlock([](std::int32_t level, const std::string& line) {
      if (level == 8 && line == "Transfer string to data blob failed.") ++transferFailures;
    });
  }
  ~Listener() { TKSILog::sharedInstance().setLogBlock(nullptr); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
};

constexpr const char* kLongText = "a text that is much too long to stand in place of its pointer";

TKSDictionary parameters() {
  TKSDictionary made;
  for (int i = 0; i < 20; ++i) made.set("parameter " + std::to_string(i), kLongText);
  return made;
}

class OutOfMemoryOperations : public testing::TestWithParam<bool> {
 protected:
  OutOfMemoryOperations() {
    if (GetParam()) listener_.emplace();
  }

 private:
  std::optional<Listener> listener_;
};

INSTANTIATE_TEST_SUITE_P(Log, OutOfMemoryOperations, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Listening" : "Silent"; });

TEST_P(OutOfMemoryOperations, AMessageIsSentWholeOrNotAtAll) {
  const FakeHostProcess process;
  const PipeChannels channels;
  ASSERT_EQ(::fcntl(channels.output->reader(), F_SETFL, O_NONBLOCK), 0);
  RecordingDelegate delegate;
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.openWithMessengeHandler(&delegate);
  TKSMessage message;
  message.messageType = "launch_meeting";
  message.message = parameters();
  const std::string expected = frame(message.dumpJSONString().value());
  host.sendMessage(message);
  ASSERT_EQ(channels.output->read(expected.size()), expected);

  const long failures = failuresUntilSuccess([&] {
    host.sendMessage(message);
    const PlentyOfMemory forTheTest;
    std::string sent(1 << 16, '\0');
    const ssize_t count = ::read(channels.output->reader(), sent.data(), sent.size());
    if (count <= 0) return false;
    sent.resize(static_cast<std::size_t>(count));
    EXPECT_EQ(sent, expected);
    return true;
  });
  EXPECT_GT(failures, 0);
}

/// What a launcher reads up to a text, while the host's loop runs.
std::vector<std::string> framesUpTo(const PipeChannels& channels, const std::optional<std::string>& last) {
  std::vector<std::string> read;
  std::atomic<bool> ended = false;
  std::thread launcher([&] {
    while (read.empty() || read.back() != last) read.push_back(channels.output->readFrame());
    ended = true;
  });
  EXPECT_TRUE(drainUntil([&] { return ended.load(); }, std::chrono::seconds(30)));
  launcher.join();
  return read;
}

TEST_P(OutOfMemoryOperations, AMessageThatWaitsForRoomIsKeptWholeOrNotAtAll) {
  const FakeHostProcess process;
  const PipeChannels channels;
  RecordingDelegate delegate;
  TKSMessage large;
  large.messageType = "first";
  large.message = std::string(std::size_t{4} << 20, 'x');
  TKSMessage next;
  next.messageType = "next";
  next.message = std::string(std::size_t{6} << 20, 'y');
  bool told = false;
  for (long attempt = 0; attempt < 400; ++attempt) {
    SCOPED_TRACE(attempt);
    const long n = attempt / 2;
    TKSMessageHost host(tksMessageHostTypeInterface);  // no host keeps room of an earlier round
    host.openWithMessengeHandler(&delegate);
    host.sendMessage(large);
    transferFailures = 0;
    grantedRequests = n;
    refusesOnce = attempt % 2 == 0;
    host.sendMessage(next);
    grantedRequests = -1;
    refusesOnce = false;
    told = told || transferFailures > 0;
    TKSMessage last;
    last.messageType = "last";
    host.sendMessage(last);
    const std::vector<std::string> read = framesUpTo(channels, last.dumpJSONString());
    ASSERT_EQ(read.front(), large.dumpJSONString());
    if (read.size() == 3) {
      EXPECT_EQ(read[1], next.dumpJSONString());
      if (attempt % 2 == 0) {  // a refusal that did not matter
        host.close();
        continue;
      }
      EXPECT_GT(n, 0);
      EXPECT_EQ(told, GetParam());
      return;
    }
    ASSERT_EQ(read.size(), 2u);
    host.close();
  }
  ADD_FAILURE() << "never succeeds";
}

TEST_P(OutOfMemoryOperations, AReceivedTextIsParsedOrTheRecordKeepsWhatItHad) {
  TKSMessage message;
  message.messageType = "launch_meeting";
  message.message = parameters();
  const std::string text = message.dumpJSONString().value();
  TKSMessage before;
  before.messageType = "before";
  before.message = kLongText;
  // What the process keeps from its first text on is made while there is memory.
  ASSERT_TRUE(TKSMessage().parseJSONString(text));
  const long failures = failuresUntilSuccess([&] {
    TKSMessage record;
    {
      const PlentyOfMemory forTheTest;
      record = before;
    }
    TKSError error;
    const bool parsed = record.parseJSONString(text, &error);
    const PlentyOfMemory forTheTest;
    EXPECT_EQ(record.messageType, parsed ? message.messageType : before.messageType);
    EXPECT_TRUE(record.message == (parsed ? message.message : before.message));
    EXPECT_EQ(error == TKSError(), parsed);
    return parsed;
  });
  EXPECT_GT(failures, 3);
}

TEST_P(OutOfMemoryOperations, AListIsWrittenWholeOrStaysAsItWas) {
  const FakeHome home;
  const std::string path = home / "list.plist";
  ASSERT_TRUE(TKSUtilBase::setPlist({"kept"}, kLongText, path));
  int round = 0;
  const auto write = [&] {
    ++round;
    TKSKeyPath keyPath;
    TKSValue value;
    std::string content;
    {
      const PlentyOfMemory forTheTest;
      keyPath = {"outer", "inner"};
      value = round;
      content = contentOf(path);
    }
    const bool written = TKSUtilBase::setPlist(keyPath, value, path);
    const PlentyOfMemory forTheTest;
    if (!written) {
      EXPECT_EQ(contentOf(path), content);
    }
    for (const auto& left : std::filesystem::directory_iterator(home / "")) EXPECT_EQ(left.path(), path);
    EXPECT_EQ(TKSUtilBase::getValueFormPlist({"kept"}, path), TKSValue(kLongText));
    if (written) {
      EXPECT_EQ(TKSUtilBase::getValueFormPlist(keyPath, path), TKSValue(round));
    }
    return written;
  };
  ASSERT_TRUE(write());  // what the process keeps from its first reading does not count as leaked
  EXPECT_GT(failuresUntilSuccess(write), 10);
}

TEST_P(OutOfMemoryOperations, CollectionsAreBuiltWholeOrNotAtAll) {
  const auto builds = [](const std::function<void()>& build) {
    return failuresUntilSuccess([&] {
      try {
        build();
        return true;
      } catch (const std::bad_alloc&) {
        return false;
      }
    });
  };
  EXPECT_GT(
      builds([] {
        const TKSDictionary made{{"key", kLongText}, {"another key, too long to stand in place", TKSArray{1, "x"}}};
        if (made.size() != 2) ADD_FAILURE() << made.size();
      }),
      3);
  EXPECT_GT(builds([] {
              TKSArray made;
              for (int i = 0; i < 40; ++i) made.append(kLongText);
              if (made.size() != 40) ADD_FAILURE() << made.size();
            }),
            5);
  EXPECT_GT(builds([] {
              TKSMessage message;
              message.message = TKSDictionary{{"key", kLongText}};
              if (message.dumpDictionary().size() != 1) ADD_FAILURE();
            }),
            2);
}

}  // namespace
