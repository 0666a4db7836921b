#include "platform/linux/channels/stream_channel.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SignalStorm.h"
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
using tks::test::InjectedSystemCall;
using tks::test::openDescriptors;
using tks::test::pattern;

constexpr std::size_t kPipeBytes = 65536;
constexpr milliseconds kAWhile(50);

std::unique_ptr<ByteSource> sourceOf(const FileDescriptor& descriptor) {
  TKSError error;
  auto source = streamSource(descriptor.get(), "channel", &error);
  EXPECT_NE(source, nullptr) << error.localizedDescription;
  return source;
}

std::shared_ptr<ByteSink> sinkOf(const FileDescriptor& descriptor) {
  TKSError error;
  auto sink = streamSink(descriptor.get(), "channel", &error);
  EXPECT_NE(sink, nullptr) << error.localizedDescription;
  return sink;
}

void put(const FileDescriptor& descriptor, std::string_view bytes) {
  ASSERT_EQ(::write(descriptor.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string takeUpTo(const FileDescriptor& descriptor, std::size_t most) {
  std::string bytes(most, '\0');
  const auto count = ::read(descriptor.get(), bytes.data(), bytes.size());
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

bool isReadable(const FileDescriptor& descriptor) {
  pollfd watched{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
  return ::poll(&watched, 1, 0) == 1;
}

int flagsOf(const FileDescriptor& descriptor) { return ::fcntl(descriptor.get(), F_GETFL); }

// The kinds of channels that a standard handle can stand for, as pairs of a reading and a writing end.

Pipe socketPair() {
  int ends[2] = {-1, -1};
  ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Pipe namedPipe() {
  const tks::test::TemporaryFolder folder;
  const std::string path = folder / "fifo";
  ::mkfifo(path.c_str(), 0600);
  FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  FileDescriptor writer(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  ::fcntl(reader.get(), F_SETFL, 0);
  return {std::move(reader), std::move(writer)};
}

/// A terminal that passes bytes through as they are, written to by the program that runs in it.
Pipe terminal() {
  int control = -1;
  int terminal = -1;
  termios raw{};
  ::cfmakeraw(&raw);
  raw.c_cflag |= CREAD;
  if (::openpty(&control, &terminal, nullptr, &raw, nullptr) != 0) throw std::runtime_error("no terminal");
  return {FileDescriptor(control), FileDescriptor(terminal)};
}

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
