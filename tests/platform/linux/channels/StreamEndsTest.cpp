#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "tests/platform/linux/channels/StreamChannelTest.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/HostLoop.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_view_literals;

using std::chrono::milliseconds;
using tks::gnulinux::streamSink;
using tks::gnulinux::streamSource;
using tks::gnulinux::SystemCalls;
using tks::platform::ByteSink;
using tks::platform::ByteSource;
using tks::platform::Transfer;
using tks::posix::FileDescriptor;
using tks::posix::makePipe;
using tks::posix::Pipe;
using tks::test::Collector;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::Feeder;
using tks::test::flagsOf;
using tks::test::InjectedSystemCall;
using tks::test::pattern;
using tks::test::put;
using tks::test::sinkOf;
using tks::test::socketPair;
using tks::test::sourceOf;
using tks::test::takeUpTo;
using tks::test::terminal;

constexpr std::size_t kPipeBytes = 65536;
constexpr milliseconds kAWhile(50);

// Reading

TEST(StreamSource, StaysWithItsPipeWhenTheHandleIsReplaced) {
  const Pipe first = makePipe();
  const Pipe second = makePipe();
  const FileDescriptor handle(::dup(first.reader.get()));
  const auto source = sourceOf(handle);
  const Collector collector(*source);
  ASSERT_GE(::dup2(second.reader.get(), handle.get()), 0);
  put(second.writer, "second");
  put(first.writer, "first");
  ASSERT_TRUE(drainUntil([&] { return !collector.bytes().empty(); }));
  drainFor(kAWhile);
  EXPECT_EQ(collector.bytes(), "first");
}

TEST(StreamSource, DoesNotKeepItsPipeAliveForTheReader) {
  Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  auto source = sourceOf(pipe.reader);
  pipe.reader.reset();
  EXPECT_FALSE(sink->write("a"sv).error);
  source.reset();
  EXPECT_TRUE(sink->write("a"sv).end);
}

TEST(StreamSource, BrokenChannelIsToldOnce) {
  Pipe ends = socketPair();
  const auto source = sourceOf(ends.reader);
  const Collector collector(*source);
  put(ends.reader, "never read");
  ends.writer.reset();  // with bytes left to read: the other side gets ECONNRESET
  ASSERT_TRUE(drainUntil([&] { return collector.calls() > 0; }));
  drainFor(kAWhile);
  ASSERT_EQ(collector.errors().size(), 1u);
  EXPECT_EQ(collector.errors()[0].code, ECONNRESET);
  EXPECT_EQ(collector.errors()[0].localizedDescription, "read \"channel\": Connection reset by peer");
  EXPECT_EQ(collector.ends(), 0);
}

TEST(StreamSource, PlainFileIsReadToItsEnd) {
  const tks::test::TemporaryFolder folder;
  const std::string content = pattern(100'000);
  tks::test::writeFile(folder / "input", content);
  const FileDescriptor file(::open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC));
  const auto source = sourceOf(file);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.ends() > 0; }));
  drainFor(kAWhile);
  EXPECT_EQ(collector.bytes(), content);
  EXPECT_EQ(collector.ends(), 1);
}

TEST(StreamSource, NullDeviceEndsAtOnce) {
  const FileDescriptor null(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const auto source = sourceOf(null);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.ends() > 0; }));
  drainFor(kAWhile);
  EXPECT_EQ(collector.ends(), 1);
}

TEST(StreamSource, TerminalIsReadWithoutWaiting) {
  const Pipe ends = terminal();
  const auto source = sourceOf(ends.writer);
  std::array<char, 10> bytes{};
  EXPECT_EQ(source->read(bytes).count, 0u);
  const Collector collector(*source);
  put(ends.reader, "typed");
  EXPECT_TRUE(drainUntil([&] { return collector.bytes() == "typed"; }));
  EXPECT_EQ(flagsOf(ends.writer) & O_NONBLOCK, 0);
}

TEST(StreamSource, ReaderOfAPlainFileThatThrowsIsCalledAgain) {
  const tks::test::LogRecorder log;
  const FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  const auto source = sourceOf(file);
  int calls = 0;
  source->watch([&] {
    if (++calls == 3) source->unwatch();
    throw std::runtime_error("broken");
  });
  ASSERT_TRUE(drainUntil([&] { return calls == 3; }));
  drainFor(kAWhile);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(log.texts(8).size(), 3u);
}

TEST(StreamSource, PipeThatIsFoundFullIsEnlarged) {
  const Pipe pipe = makePipe();
  const auto source = sourceOf(pipe.reader);
  put(pipe.writer, pattern(kPipeBytes));
  std::string buffer(2 * kPipeBytes, '\0');
  EXPECT_EQ(source->read(buffer).count, kPipeBytes);
  EXPECT_GT(::fcntl(pipe.writer.get(), F_GETPIPE_SZ), static_cast<int>(kPipeBytes));
}

TEST(StreamSource, HandleThatIsNotOpenForReadingIsRefused) {
  const Pipe pipe = makePipe();
  TKSError error;
  EXPECT_EQ(streamSource(pipe.writer.get(), "standard input", &error), nullptr);
  EXPECT_EQ(error.localizedDescription, "open \"standard input\": Bad file descriptor");
  EXPECT_EQ(streamSource(-1, "standard input", nullptr), nullptr);
  EXPECT_EQ(streamSink(pipe.reader.get(), "standard output", &error), nullptr);
  EXPECT_EQ(error.localizedDescription, "open \"standard output\": Bad file descriptor");
}

// Writing

TEST(StreamSink, EnlargesThePipeForALargeFrameAndLeavesItForSmallOnes) {
  const Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  sink->expect(1000);
  sink->expect(kPipeBytes);
  EXPECT_EQ(::fcntl(pipe.writer.get(), F_GETPIPE_SZ), static_cast<int>(kPipeBytes));
  sink->expect(300'000);
  EXPECT_EQ(::fcntl(pipe.writer.get(), F_GETPIPE_SZ), 524'288);
  EXPECT_EQ(sink->write(pattern(300'000)).count, 300'000u);
  sink->expect(10'000'000);
  EXPECT_GE(::fcntl(pipe.writer.get(), F_GETPIPE_SZ), 1'048'576);
  EXPECT_EQ(takeUpTo(pipe.reader, 300'000), pattern(300'000));
}

TEST(StreamSink, PlainFileTakesEverything) {
  const tks::test::TemporaryFolder folder;
  const FileDescriptor file(::open((folder / "output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const auto sink = sinkOf(file);
  EXPECT_EQ(sink->write(pattern(100'000)).count, 100'000u);
  bool called = false;
  sink->whenWritable([&] { called = true; });
  EXPECT_TRUE(drainUntil([&] { return called; }));
  EXPECT_EQ(tks::test::contentOf(folder / "output"), pattern(100'000));
}

TEST(StreamSink, WaitingForRoomMayBeginOnAnotherThread) {
  const Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  bool here = false;
  const auto thisThread = std::this_thread::get_id();
  std::thread([&] { sink->whenWritable([&] { here = std::this_thread::get_id() == thisThread; }); }).join();
  EXPECT_TRUE(drainUntil([&] { return here; }));
}

TEST(StreamSink, LetsGoOfItsCallerOnceItHasCalled) {
  const Pipe pipe = makePipe();
  auto sink = sinkOf(pipe.writer);
  const std::weak_ptr<ByteSink> watched = sink;
  bool called = false;
  sink->whenWritable([&called, sink] { called = true; });  // keeps the sink until then
  sink.reset();
  EXPECT_FALSE(watched.expired());
  ASSERT_TRUE(drainUntil([&] { return called; }));
  EXPECT_TRUE(watched.expired());
}

TEST(StreamSink, DestroyedWhileItWaitsItDoesNotCall) {
  const Pipe pipe = makePipe();
  auto sink = sinkOf(pipe.writer);
  bool called = false;
  sink->whenWritable([&] { called = true; });
  sink.reset();
  drainFor(kAWhile);
  EXPECT_FALSE(called);
}

TEST(StreamSink, WaitingEndsWhenTheReaderGoes) {
  Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  while (sink->write(pattern(kPipeBytes)).count > 0) {
  }
  bool called = false;
  sink->whenWritable([&] { called = true; });
  drainFor(kAWhile);
  EXPECT_FALSE(called);
  pipe.reader.reset();
  EXPECT_TRUE(drainUntil([&] { return called; }));
  EXPECT_TRUE(sink->write("a"sv).end);
}

/// What of a process's signals somebody could notice.
struct SignalState {
  SignalState() {
    ::sigaction(SIGPIPE, nullptr, &action_);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask_);
    ::sigpending(&pending_);
  }
  friend bool operator==(const SignalState& left, const SignalState& right) {
    bool same = left.action_.sa_handler == right.action_.sa_handler;
    for (int number = 1; number < 32; ++number) {
      same = same && ::sigismember(&left.mask_, number) == ::sigismember(&right.mask_, number) &&
             ::sigismember(&left.pending_, number) == ::sigismember(&right.pending_, number);
    }
    return same;
  }

 private:
  struct sigaction action_ {};
  sigset_t mask_;
  sigset_t pending_;
};

void expectBroken(const Transfer& transfer) {
  EXPECT_EQ(transfer.count, 0u);
  EXPECT_TRUE(transfer.end);
  ASSERT_TRUE(transfer.error);
  EXPECT_EQ(transfer.error->code, EPIPE);
  EXPECT_EQ(transfer.error->localizedDescription, "write \"channel\": Broken pipe");
}

/// With and without the kernel's own way to write without a signal.
class BrokenChannel : public testing::TestWithParam<bool> {
 protected:
  BrokenChannel() {
    // At its default SIGPIPE would end the test program.
    ::sigaction(SIGPIPE, nullptr, &before_);
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &action, nullptr);
    if (!GetParam()) {
      injected_.emplace(&SystemCalls::writeWithoutSignal, [](int, const void*, std::size_t) -> ssize_t {
        errno = EOPNOTSUPP;
        return -1;
      });
    }
  }
  ~BrokenChannel() override { ::sigaction(SIGPIPE, &before_, nullptr); }

 private:
  struct sigaction before_ {};
  std::optional<InjectedSystemCall<decltype(SystemCalls::writeWithoutSignal)>> injected_;
};

INSTANTIATE_TEST_SUITE_P(Kernel, BrokenChannel, testing::Bool(),
                         [](const auto& instance) { return instance.param ? "WritesWithoutSignal" : "Older"; });

TEST_P(BrokenChannel, WritingToAPipeWithoutReaderRaisesNoSignal) {
  Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  EXPECT_EQ(sink->write("abc"sv).count, 3u);
  EXPECT_EQ(takeUpTo(pipe.reader, 10), "abc");
  pipe.reader.reset();
  const SignalState before;
  expectBroken(sink->write("abc"sv));
  expectBroken(sink->write("abc"sv));
  EXPECT_TRUE(before == SignalState());
}

TEST_P(BrokenChannel, PipeThatHadNoReaderFromTheBeginningIsToldAtTheWrite) {
  Pipe pipe = makePipe();
  pipe.reader.reset();
  const auto sink = sinkOf(pipe.writer);
  const SignalState before;
  expectBroken(sink->write("abc"sv));
  EXPECT_TRUE(before == SignalState());
}

TEST_P(BrokenChannel, WritingToASocketWithoutPeerRaisesNoSignal) {
  Pipe ends = socketPair();
  const auto sink = sinkOf(ends.writer);
  ends.reader.reset();
  const SignalState before;
  expectBroken(sink->write("abc"sv));
  EXPECT_TRUE(before == SignalState());
}

TEST_P(BrokenChannel, SignalThatTheHostHasPendingStaysPending) {
  sigset_t pipeSignal;
  sigset_t mask;
  ::sigemptyset(&pipeSignal);
  ::sigaddset(&pipeSignal, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &mask);
  ::raise(SIGPIPE);
  Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  pipe.reader.reset();
  const SignalState before;
  expectBroken(sink->write("abc"sv));
  EXPECT_TRUE(before == SignalState());
  const timespec now{};
  EXPECT_EQ(::sigtimedwait(&pipeSignal, nullptr, &now), SIGPIPE);
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

TEST_P(BrokenChannel, SignalThatTheHostBlocksIsNotLeftPending) {
  sigset_t pipeSignal;
  sigset_t mask;
  ::sigemptyset(&pipeSignal);
  ::sigaddset(&pipeSignal, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &mask);
  Pipe pipe = makePipe();
  const auto sink = sinkOf(pipe.writer);
  pipe.reader.reset();
  const SignalState before;
  expectBroken(sink->write("abc"sv));
  EXPECT_TRUE(before == SignalState());
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

// Pipes of other users

/// Acts as another user for a scope, who may use descriptors that are open but not open them again.
class OtherUser {
 public:
  OtherUser() { changed_ = ::seteuid(65534) == 0; }
  ~OtherUser() {
    if (changed_ && ::seteuid(0) != 0) std::abort();
  }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;

 private:
  bool changed_ = false;
};

class PipeOfAnotherUser : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs the rights to become another user";
    const OtherUser other;
    source = sourceOf(pipe.reader);
    sink = sinkOf(pipe.writer);
    const std::string path = "/proc/self/fd/" + std::to_string(pipe.reader.get());
    ASSERT_LT(FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)).get(), 0);
  }

  Pipe pipe = makePipe();
  std::unique_ptr<ByteSource> source;
  std::shared_ptr<ByteSink> sink;
};

TEST_F(PipeOfAnotherUser, IsReadWithoutWaiting) {
  std::array<char, 10> bytes{};
  EXPECT_EQ(source->read(bytes).count, 0u);
  const Collector collector(*source);
  put(pipe.writer, "abc");
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
  EXPECT_EQ(flagsOf(pipe.reader) & O_NONBLOCK, 0);
}

TEST_F(PipeOfAnotherUser, IsWrittenWithoutWaiting) {
  const std::string bytes = pattern(10 * kPipeBytes);
  const Transfer first = sink->write(bytes);
  EXPECT_GT(first.count, kPipeBytes / 2);
  EXPECT_LT(first.count, bytes.size());
  EXPECT_EQ(sink->write(bytes).count, 0u);
  EXPECT_EQ(takeUpTo(pipe.reader, bytes.size()), bytes.substr(0, first.count));
  EXPECT_EQ(flagsOf(pipe.writer) & O_NONBLOCK, 0);
}

TEST_F(PipeOfAnotherUser, CarriesEverything) {
  const std::string sent = pattern(1'000'000);
  Feeder feeder(*sink, sent);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size(); }));
  EXPECT_EQ(collector.bytes(), sent);
}

}  // namespace
