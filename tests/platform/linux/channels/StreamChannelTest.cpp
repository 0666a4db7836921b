#include "platform/linux/channels/stream_channel.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ostream>
#include <string>

#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "tests/platform/linux/channels/StreamChannelTest.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_view_literals;

using std::chrono::milliseconds;
using tks::gnulinux::streamSink;
using tks::gnulinux::streamSource;
using tks::platform::Transfer;
using tks::posix::FileDescriptor;
using tks::posix::makePipe;
using tks::posix::Pipe;
using tks::test::Collector;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::Feeder;
using tks::test::flagsOf;
using tks::test::isReadable;
using tks::test::namedPipe;
using tks::test::openDescriptors;
using tks::test::pattern;
using tks::test::put;
using tks::test::sinkOf;
using tks::test::socketPair;
using tks::test::sourceOf;
using tks::test::takeUpTo;
using tks::test::terminal;

constexpr std::size_t kPipeBytes = 65536;
constexpr milliseconds kAWhile(50);

struct Kind {
  const char* name;
  Pipe (*make)();
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

const Kind kKinds[] = {{"pipe", makePipe}, {"namedPipe", namedPipe}, {"socket", socketPair}, {"terminal", terminal}};

class StreamChannel : public testing::TestWithParam<Kind> {
 protected:
  Pipe ends = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(Over, StreamChannel, testing::ValuesIn(kKinds),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(StreamChannel, ReadingGivesWhatIsThereAndNeverWaits) {
  const auto source = sourceOf(ends.reader);
  std::array<char, 4> bytes{};
  Transfer transfer = source->read(bytes);
  EXPECT_EQ(transfer.count, 0u);
  EXPECT_FALSE(transfer.end);
  EXPECT_FALSE(transfer.error);
  put(ends.writer, "abcdef");
  ASSERT_TRUE(tks::test::waitUntil([&] { return (transfer = source->read(bytes)).count > 0; }));
  EXPECT_EQ(std::string(bytes.data(), transfer.count), "abcd");
  transfer = source->read(bytes);
  EXPECT_EQ(std::string(bytes.data(), transfer.count), "ef");
  EXPECT_EQ(source->read({}).count, 0u);
}

TEST_P(StreamChannel, TheDescriptionThatOthersShareStaysAsItIs) {
  const int readerFlags = flagsOf(ends.reader);
  const int writerFlags = flagsOf(ends.writer);
  const auto source = sourceOf(ends.reader);
  const auto sink = sinkOf(ends.writer);
  const Collector collector(*source);
  sink->expect(100'000);
  sink->write("abc"sv);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
  EXPECT_EQ(flagsOf(ends.reader), readerFlags);
  EXPECT_EQ(flagsOf(ends.writer), writerFlags);
  EXPECT_EQ(readerFlags & O_NONBLOCK, 0);
}

TEST_P(StreamChannel, ReaderIsCalledUntilEverythingIsRead) {
  const auto source = sourceOf(ends.reader);
  const Collector collector(*source, 10);
  const std::string sent = pattern(995);
  put(ends.writer, sent);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size(); }));
  EXPECT_EQ(collector.bytes(), sent);
  const int calls = collector.calls();
  drainFor(kAWhile);
  EXPECT_EQ(collector.calls(), calls);
}

TEST_P(StreamChannel, ReaderMayEndTheWatchAndBeginItAgain) {
  const auto source = sourceOf(ends.reader);
  put(ends.writer, "abc");
  int calls = 0;
  source->watch([&] {
    ++calls;
    source->unwatch();
  });
  ASSERT_TRUE(drainUntil([&] { return calls == 1; }));
  drainFor(kAWhile);
  EXPECT_EQ(calls, 1);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
}

TEST_P(StreamChannel, ReaderMayDestroyTheSource) {
  auto source = sourceOf(ends.reader);
  put(ends.writer, "abc");
  bool called = false;
  const std::string held(100, 'x');
  source->watch([&, held] {
    source.reset();
    called = held.size() == 100;
  });
  ASSERT_TRUE(drainUntil([&] { return called; }));
  drainFor(kAWhile);
}

TEST_P(StreamChannel, EndIsToldOnce) {
  const auto source = sourceOf(ends.reader);
  const Collector collector(*source);
  put(ends.writer, "last");
  ends.writer.reset();
  const auto told = [&] { return collector.ends() + static_cast<int>(collector.errors().size()); };
  ASSERT_TRUE(drainUntil([&] { return told() > 0; }));
  drainFor(kAWhile);
  EXPECT_EQ(collector.bytes(), "last");
  EXPECT_EQ(told(), 1);
  EXPECT_EQ(collector.ends(), GetParam().make == terminal ? 0 : 1) << "a terminal breaks instead";
  EXPECT_EQ(collector.calls(), 2);
}

TEST_P(StreamChannel, EndThatCameBeforeTheSourceWasOpenedIsTold) {
  put(ends.writer, "last");
  ends.writer.reset();
  const auto source = sourceOf(ends.reader);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.ends() > 0 || !collector.errors().empty(); }));
  EXPECT_EQ(collector.bytes(), "last");
}

TEST_P(StreamChannel, WhatDoesNotFitIsLeftToTheWriterWhoIsCalledWhenThereIsRoom) {
  const auto sink = sinkOf(ends.writer);
  const std::string bytes = pattern(10'000'000);
  const Transfer first = sink->write(bytes);
  EXPECT_GT(first.count, 0u);
  EXPECT_LT(first.count, bytes.size());
  EXPECT_FALSE(first.error);
  // A terminal still passes bytes on for a moment.
  for (std::size_t at = first.count, more = 1; more > 0; at += more) {
    drainFor(kAWhile);
    more = sink->write(std::string_view(bytes).substr(at)).count;
  }
  int calls = 0;
  sink->whenWritable([&] { ++calls; });
  drainFor(kAWhile);
  EXPECT_EQ(calls, 0);

  std::string received;
  ASSERT_TRUE(drainUntil([&] {
    if (calls > 0) return true;
    if (isReadable(ends.reader)) received += takeUpTo(ends.reader, 65536);
    return false;
  }));
  EXPECT_EQ(received, bytes.substr(0, received.size()));
  drainFor(kAWhile);
  EXPECT_EQ(calls, 1);
}

TEST_P(StreamChannel, WriterMayWaitForRoomAgainWhileItIsCalled) {
  const auto sink = sinkOf(ends.writer);
  const auto source = sourceOf(ends.reader);
  const std::string sent = pattern(3'000'000);
  Feeder feeder(*sink, sent);
  const Collector collector(*source, 100'000);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size() || feeder.broken(); }));
  EXPECT_EQ(collector.bytes(), sent);
}

TEST_P(StreamChannel, BytesArriveWholeWhileSignalsInterruptBothEnds) {
  const auto sink = sinkOf(ends.writer);
  const auto source = sourceOf(ends.reader);
  const std::string sent = pattern(4'000'000);
  const tks::test::SignalStorm storm;
  Feeder feeder(*sink, sent);
  const Collector collector(*source, 1000);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size() && storm.caught() > 20; }));
  EXPECT_EQ(collector.bytes(), sent);
}

TEST_P(StreamChannel, HandlesArePrivateCloseOnExecAndGoneAfterwards) {
  tks::platform::mainLoop().descriptor();  // the loop makes its own descriptors
  const auto before = openDescriptors();
  for (int round = 0; round < 1000; ++round) {
    const auto source = sourceOf(ends.reader);
    const auto sink = sinkOf(ends.writer);
    const Collector collector(*source);
    sink->whenWritable([] {});
    if (round > 0) continue;
    for (const int descriptor : openDescriptors()) {
      if (before.contains(descriptor)) continue;
      EXPECT_EQ(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
      EXPECT_GT(descriptor, 2);
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_P(StreamChannel, AnotherHandleOfItHasTheSameIdentity) {
  const FileDescriptor copy(::dup(ends.writer.get()));
  EXPECT_EQ(sinkOf(ends.writer)->identity(), sinkOf(copy)->identity());
  const Pipe other = GetParam().make();
  EXPECT_NE(sinkOf(ends.writer)->identity(), sinkOf(other.writer)->identity());
}

// Two processes

/// Sends back what it gets, through the library's channels: the names of two FIFOs.
int playEcho(const tks::test::Arguments& arguments) {
  const FileDescriptor input(::open(arguments[0].c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor output(::open(arguments[1].c_str(), O_WRONLY | O_CLOEXEC));
  const auto source = streamSource(input.get(), "input", nullptr);
  const auto sink = streamSink(output.get(), "output", nullptr);
  if (!source || !sink) return 2;
  const tks::test::SignalStorm storm;
  std::string waiting;
  std::string buffer(50'000, '\0');
  bool ended = false;
  bool broken = false;
  std::function<void()> flush = [&] {
    const Transfer transfer = sink->write(waiting);
    broken = transfer.error.has_value();
    waiting.erase(0, transfer.count);
    if (!waiting.empty() && !broken) sink->whenWritable(flush);
  };
  source->watch([&] {
    const Transfer transfer = source->read(buffer);
    ended = transfer.end;
    const bool idle = waiting.empty();
    waiting.append(buffer, 0, transfer.count);
    if (idle && transfer.count > 0) flush();
  });
  drainUntil([&] { return broken || (ended && waiting.empty()); }, std::chrono::seconds(30));
  return broken ? 3 : 0;
}
const tks::test::ChildRole echoRole("channel-echo", playEcho);

TEST(StreamChannels, CarryBytesToAnotherProcessAndBackWhileSignalsInterruptBoth) {
  const tks::test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "there").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo((folder / "back").c_str(), 0600), 0);
  auto child = tks::test::ChildProcess::inRole("channel-echo", {folder / "there", folder / "back"});
  FileDescriptor there(::open((folder / "there").c_str(), O_WRONLY | O_CLOEXEC));
  const FileDescriptor back(::open((folder / "back").c_str(), O_RDONLY | O_CLOEXEC));
  auto sink = sinkOf(there);
  const auto source = sourceOf(back);
  const std::string sent = pattern(5'000'000);
  const tks::test::SignalStorm storm;
  Feeder feeder(*sink, sent);
  const Collector collector(*source, 33'333);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size(); }, std::chrono::seconds(30)));
  EXPECT_EQ(collector.bytes(), sent);
  sink.reset();
  there.reset();
  EXPECT_TRUE(drainUntil([&] { return collector.ends() == 1; }));
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
