#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/linux/loop/event_loop.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sanitized.h"

// The ways in which a host's own loop may watch the descriptor of the main loop.

namespace {

using tks::gnulinux::EventLoop;
using tks::posix::FileDescriptor;

/// For each of the four ways.
const int kRounds = tks::test::kThreadSanitized ? 10'000 : 250'000;
/// A wait as long as this means that a wake-up was lost.
constexpr int kTooLongMilliseconds = 5000;

bool waitByPoll(int descriptor, int limit) {
  pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&watched, 1, limit) == 1;
}

bool waitBySelect(int descriptor, int limit) {
  fd_set watched;
  FD_ZERO(&watched);
  FD_SET(descriptor, &watched);
  timeval time{.tv_sec = limit / 1000, .tv_usec = limit % 1000 * 1000};
  return ::select(descriptor + 1, &watched, nullptr, nullptr, &time) == 1;
}

class OuterEpoll {
 public:
  OuterEpoll(int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event);
  }
  bool wait(int limit) {
    epoll_event event{};
    return ::epoll_wait(epoll_.get(), &event, 1, limit) == 1;
  }

 private:
  FileDescriptor epoll_{::epoll_create1(EPOLL_CLOEXEC)};
};

using Wait = std::function<bool(int limit)>;

struct Watcher {
  const char* name;
  std::function<Wait(int descriptor)> make;
};

Wait outerEpoll(int descriptor, std::uint32_t events) {
  return [outer = std::make_shared<OuterEpoll>(descriptor, events)](int limit) { return outer->wait(limit); };
}

const Watcher kWatchers[] = {
    {"poll", [](int descriptor) -> Wait { return [=](int limit) { return waitByPoll(descriptor, limit); }; }},
    {"select", [](int descriptor) -> Wait { return [=](int limit) { return waitBySelect(descriptor, limit); }; }},
    {"epollLevelTriggered", [](int descriptor) { return outerEpoll(descriptor, EPOLLIN); }},
    {"epollEdgeTriggered", [](int descriptor) { return outerEpoll(descriptor, EPOLLIN | EPOLLET); }},
};

class MainLoopWatchers : public testing::TestWithParam<Watcher> {
 protected:
  EventLoop loop;
  Wait wait = GetParam().make(loop.descriptor());
};

TEST_P(MainLoopWatchers, LoseNoWakeUp) {
  std::atomic<int> done = 0;
  std::atomic<bool> lost = false;
  // The next piece of work is posted as soon as the last one was done, while the drain that did it is ending.
  const std::jthread poster([&] {
    for (int round = 0; round < kRounds && !lost; ++round) {
      loop.post([&] { done.fetch_add(1, std::memory_order_release); });
      while (done.load(std::memory_order_acquire) + round % 3 <= round && !lost) std::this_thread::yield();
    }
  });
  while (done < kRounds && !lost) {
    lost = !wait(kTooLongMilliseconds);
    loop.drain();
  }
  EXPECT_FALSE(lost) << "after " << done << " rounds";
}

TEST_P(MainLoopWatchers, SeeWorkThatWasPostedBeforeTheyBegan) {
  loop.drain();
  bool ran = false;
  loop.post([&] { ran = true; });
  const Wait late = GetParam().make(loop.descriptor());
  ASSERT_TRUE(late(kTooLongMilliseconds));
  loop.drain();
  EXPECT_TRUE(ran);
}

TEST_P(MainLoopWatchers, SeeWorkThatADrainLeft) {
  int left = 100;
  std::function<void()> again = [&] {
    if (--left > 0) loop.post(again);
  };
  loop.post(again);
  while (left > 0) {
    ASSERT_TRUE(wait(kTooLongMilliseconds)) << left;
    loop.drain();
  }
}

TEST_P(MainLoopWatchers, SeeADescriptorThatStaysReadable) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const FileDescriptor reader(ends[0]);
  const FileDescriptor writer(ends[1]);
  std::string received;
  const std::string sent(300, 'x');
  const auto watch = loop.watch(reader.get(), EPOLLIN, [&](std::uint32_t) {
    char one = 0;
    if (::read(reader.get(), &one, 1) == 1) received += one;
  });
  ASSERT_NE(watch, nullptr);
  ASSERT_EQ(::write(writer.get(), sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  while (received.size() < sent.size()) {
    ASSERT_TRUE(wait(kTooLongMilliseconds)) << received.size();
    loop.drain();
  }
  EXPECT_EQ(received, sent);
}

TEST_P(MainLoopWatchers, SeeTimers) {
  bool ran = false;
  const auto timer = loop.after(std::chrono::milliseconds(20), [&] { ran = true; });
  while (!ran) {
    ASSERT_TRUE(wait(kTooLongMilliseconds));
    loop.drain();
  }
}

TEST_P(MainLoopWatchers, SleepOnceEverythingIsDone) {
  loop.post([] {});
  const auto timer = loop.after(std::chrono::milliseconds(0), [] {});
  const auto later = loop.after(std::chrono::hours(1), [] {});
  while (wait(0)) loop.drain();
  loop.drain();
  EXPECT_FALSE(wait(20));
}

INSTANTIATE_TEST_SUITE_P(By, MainLoopWatchers, testing::ValuesIn(kWatchers),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
