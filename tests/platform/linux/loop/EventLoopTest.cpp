#include "platform/linux/loop/event_loop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/InjectedSystemCall.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

namespace {

using std::chrono::milliseconds;
using tks::gnulinux::EventLoop;
using tks::gnulinux::SystemCalls;
using tks::posix::FileDescriptor;
using tks::test::InjectedSystemCall;
using tks::test::LogRecorder;
using tks::test::openDescriptors;
using tks::test::refusing;

struct Pipe {
  Pipe() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  void fill(std::string_view bytes) const {
    ASSERT_EQ(::write(writer.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  char take() const {
    char byte = 0;
    return ::read(reader.get(), &byte, 1) == 1 ? byte : '\0';
  }
  FileDescriptor reader;
  FileDescriptor writer;
};

bool isReadable(int descriptor, int limit = 0) {
  pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&watched, 1, limit) == 1;
}

TEST(EventLoop, MakesNoDescriptorBeforeItIsUsed) {
  const auto before = openDescriptors();
  const EventLoop loop;
  EXPECT_EQ(openDescriptors(), before);
}

TEST(EventLoop, ClosesItsDescriptorsOnExecAndAtItsEnd) {
  const auto before = openDescriptors();
  {
    EventLoop loop;
    loop.post([] {});
    const auto timer = loop.after(milliseconds(1), [] {});
    int made = 0;
    for (const int descriptor : openDescriptors()) {
      if (before.contains(descriptor)) continue;
      ++made;
      EXPECT_EQ(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << descriptor;
    }
    EXPECT_EQ(made, 3);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(EventLoop, NeverTakesTheNumberOfAStandardHandle) {
  const FileDescriptor before(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::close(STDIN_FILENO);
  for (const bool withEventfd : {true, false}) {
    const InjectedSystemCall eventfd(&SystemCalls::eventfd,
                                     withEventfd ? tks::gnulinux::systemCalls().eventfd : refusing<ENOSYS>);
    EventLoop loop;
    EXPECT_GT(loop.descriptor(), 2);
    EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1);
  }
  if (before) ::dup2(before.get(), STDIN_FILENO);
}

TEST(EventLoop, CallsTheWatcherWhileTheDescriptorIsReady) {
  EventLoop loop;
  const Pipe pipe;
  std::string received;
  const auto watch = loop.watch(pipe.reader.get(), EPOLLIN, [&](std::uint32_t events) {
    EXPECT_EQ(events, static_cast<std::uint32_t>(EPOLLIN));
    received += pipe.take();
  });
  loop.drain();
  EXPECT_EQ(received, "");
  pipe.fill("abc");
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.drain();
  EXPECT_EQ(received, "abc");
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST(EventLoop, WatchThatIsDestroyedIsNotCalledAgain) {
  EventLoop loop;
  const Pipe pipe;
  int calls = 0;
  auto watch = loop.watch(pipe.reader.get(), EPOLLIN, [&](std::uint32_t) { ++calls; });
  pipe.fill("a");
  watch.reset();
  EXPECT_FALSE(isReadable(loop.descriptor(), 10) && (loop.drain(), calls > 0));
  EXPECT_EQ(calls, 0);
}

TEST(EventLoop, WatchMayDestroyItselfWhileItIsCalled) {
  EventLoop loop;
  const Pipe pipe;
  int calls = 0;
  std::unique_ptr<EventLoop::Watch> watch;
  const std::string held(100, 'x');
  watch = loop.watch(pipe.reader.get(), EPOLLIN, [&, held](std::uint32_t) {
    watch.reset();
    ++calls;
    EXPECT_EQ(held.size(), 100u) << "what the callback holds lives until it returns";
  });
  pipe.fill("a");
  loop.drain();
  loop.drain();
  EXPECT_EQ(calls, 1);
}

TEST(EventLoop, WatchDestroyedByAnotherThatIsDueWithItIsNotCalled) {
  EventLoop loop;
  const Pipe pipes[2];
  std::unique_ptr<EventLoop::Watch> watches[2];
  int calls = 0;
  for (std::size_t index = 0; index < 2; ++index) {
    watches[index] = loop.watch(pipes[index].reader.get(), EPOLLIN, [&, index](std::uint32_t) {
      ++calls;
      pipes[index].take();
      watches[1 - index].reset();
    });
    pipes[index].fill("a");
  }
  loop.drain();
  EXPECT_EQ(calls, 1);
}

TEST(EventLoop, DescriptorNumberUsedAgainBelongsToTheNewWatch) {
  EventLoop loop;
  std::string called;
  auto first = std::make_unique<Pipe>();
  auto watch = loop.watch(first->reader.get(), EPOLLIN, [&](std::uint32_t) { called += "first "; });
  first->fill("a");
  watch.reset();
  const int number = first->reader.get();
  first.reset();
  const Pipe second;
  ASSERT_EQ(second.reader.get(), number);
  watch = loop.watch(second.reader.get(), EPOLLIN, [&](std::uint32_t) { called += second.take(); });
  second.fill("b");
  loop.drain();
  EXPECT_EQ(called, "b");
}

TEST(EventLoop, WhatAWatcherThrowsIsLoggedAndTheOthersAreCalled) {
  const LogRecorder log;
  EventLoop loop;
  const Pipe first;
  const Pipe second;
  std::string received;
  const auto bad = loop.watch(first.reader.get(), EPOLLIN, [&](std::uint32_t) {
    first.take();
    throw std::runtime_error("broken");
  });
  const auto good = loop.watch(second.reader.get(), EPOLLIN, [&](std::uint32_t) { received += second.take(); });
  first.fill("a");
  second.fill("b");
  loop.drain();
  EXPECT_EQ(received, "b");
  EXPECT_THAT(log.texts(8), testing::ElementsAre("Callback 'watched descriptor' threw an exception: broken"));
}

TEST(EventLoop, EndOfAPipeIsReported) {
  EventLoop loop;
  Pipe pipe;
  std::uint32_t reported = 0;
  std::unique_ptr<EventLoop::Watch> watch = loop.watch(pipe.reader.get(), EPOLLIN, [&](std::uint32_t events) {
    reported = events;
    watch.reset();
  });
  pipe.writer.reset();
  loop.drain();
  EXPECT_EQ(reported, static_cast<std::uint32_t>(EPOLLHUP));
}

TEST(EventLoop, FilesCannotBeWatched) {
  EventLoop loop;
  const FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(loop.watch(file.get(), EPOLLIN, [](std::uint32_t) {}), nullptr);
  EXPECT_EQ(errno, EPERM);
}

TEST(EventLoop, WatchesOfOtherThreadsAreMadeAndEndedWithoutHarm) {
  EventLoop loop;
  std::atomic<int> calls = 0;
  std::atomic<int> threadsLeft = 4;
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const Pipe pipe;
        pipe.fill("a");
        auto state = std::make_shared<std::atomic<bool>>(false);
        const auto watch = loop.watch(pipe.reader.get(), EPOLLIN | EPOLLONESHOT, [&calls, state](std::uint32_t) {
          *state = true;
          ++calls;
        });
        tks::test::waitUntil([&] { return state->load(); });
      }
      if (--threadsLeft == 0) loop.stop();
    });
  }
  loop.run();
  EXPECT_EQ(calls, 400);
}

TEST(EventLoop, SilentLoopTakesNoMemoryForWhatItsDescriptorsHold) {
  EventLoop loop;
  const Pipe pipe;
  ::fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK);
  std::size_t received = 0;
  const auto watch = loop.watch(pipe.reader.get(), EPOLLIN, [&](std::uint32_t) {
    char bytes[512];
    const auto count = ::read(pipe.reader.get(), bytes, sizeof bytes);
    if (count > 0) received += static_cast<std::size_t>(count);
  });
  loop.drain();
  // While the host's loop is silent the kernel holds what its bounds allow; nothing of it is read ahead.
  std::size_t sent = 0;
  rusage before{};
  ::getrusage(RUSAGE_SELF, &before);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (std::chrono::steady_clock::now() < end) {
    const char bytes[512] = {};
    const auto count = ::write(pipe.writer.get(), bytes, sizeof bytes);
    if (count > 0) sent += static_cast<std::size_t>(count);
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  rusage after{};
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(received, 0u);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1024) << "KiB";
  for (int round = 0; round < 1000 && received < sent; ++round) loop.drain();
  EXPECT_EQ(received, sent);
}

TEST(EventLoop, SignalsThatInterruptItsWaitsChangeNothing) {
  static volatile std::sig_atomic_t signals = 0;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { signals = signals + 1; };  // without SA_RESTART
  ::sigaction(SIGALRM, &action, &before);
  const itimerval often{{0, 1000}, {0, 1000}};
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &often, nullptr);
  EventLoop loop;
  const auto begin = std::chrono::steady_clock::now();
  const auto timer = loop.after(milliseconds(100), [&] { loop.stop(); });
  loop.run();
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
  EXPECT_GT(signals, 0);
}

// What a kernel or a limit may refuse

TEST(EventLoopWithoutEventfd, IsWokenThroughAPipe) {
  const InjectedSystemCall refused(&SystemCalls::eventfd, refusing<ENOSYS>);
  EventLoop loop;
  int calls = 0;
  for (int round = 0; round < 100'000; ++round) {
    loop.post([&] { ++calls; });
    ASSERT_TRUE(isReadable(loop.descriptor()));
    loop.drain();
    ASSERT_FALSE(isReadable(loop.descriptor()));
  }
  EXPECT_EQ(calls, 100'000);
  for (int round = 0; round < 100'000; ++round) loop.stop();  // more than the pipe holds: must not wait
  loop.run();
  loop.drain();
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST(EventLoopWithoutTimerDescriptors, RunsTimersInTime) {
  const InjectedSystemCall refused(&SystemCalls::timerfdCreate, refusing<EPERM>);
  EventLoop loop;
  const auto begin = std::chrono::steady_clock::now();
  std::string order;
  const auto late = loop.after(milliseconds(60), [&] {
    order += "late ";
    loop.stop();
  });
  const auto early = loop.after(milliseconds(30), [&] { order += "early "; });
  loop.run();
  EXPECT_EQ(order, "early late ");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(60));
}

TEST(EventLoopWithoutTimerDescriptors, LearnsOfTimersThatOtherThreadsSet) {
  const InjectedSystemCall refused(&SystemCalls::timerfdCreate, refusing<ENOSYS>);
  EventLoop loop;
  loop.drain();
  std::unique_ptr<tks::platform::MainLoop::Timer> timer;
  std::jthread other([&] {
    std::this_thread::sleep_for(milliseconds(20));
    timer = loop.after(milliseconds(10), [&] { loop.stop(); });
  });
  loop.run();
}

class EventLoopWithoutDescriptors : public testing::TestWithParam<int> {};

TEST_P(EventLoopWithoutDescriptors, StillRunsPostedWorkAndTimersAndSaysSoOnce) {
  const LogRecorder log;
  {
    // A first round of the same: the undefined-behaviour sanitizer needs descriptors to look at objects new to it.
    EventLoop first;
    first.post([] {});
    const auto timer = first.after(milliseconds(0), [&] { first.stop(); });
    first.run();
    TKSILog::logWithLevel(TKSILogLevelTrace, "first round %@", "done");
  }
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const int used = *openDescriptors().rbegin() + 1;
  const rlimit few{static_cast<rlim_t>(used + GetParam()), before.rlim_max};
  std::vector<FileDescriptor> gaps;
  while (true) {
    FileDescriptor next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (next.get() >= used) break;
    gaps.push_back(std::move(next));
  }
  ::setrlimit(RLIMIT_NOFILE, &few);
  EventLoop loop;
  std::string order;
  std::unique_ptr<tks::platform::MainLoop::Timer> timer;
  loop.post([&] {
    order += "posted ";
    timer = loop.after(milliseconds(1), [&] {
      order += "timer ";
      loop.stop();
    });
  });
  EXPECT_EQ(loop.descriptor(), -1);
  loop.run();
  EXPECT_EQ(order, "posted timer ");
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(log.texts(8), testing::ElementsAre(testing::StartsWith("No descriptors for the main loop")));

  // Once there are descriptors again, what was posted meanwhile is announced.
  loop.post([&] { order += "again"; });
  EXPECT_TRUE(isReadable(loop.descriptor()));
  loop.drain();
  EXPECT_EQ(order, "posted timer again");
}

INSTANTIATE_TEST_SUITE_P(Left, EventLoopWithoutDescriptors, testing::Values(0, 1, 2));

}  // namespace
