#include <gtest/gtest.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>

#include "platform/platform.h"

// What every implementation of the contract promises. On macOS the wall clock is that of NSDate and the time zone the
// system's; a sleep counts on through signals, and through changes of the wall clock, which no test there can make: a
// library takes its calls straight from the system. How they are made on Linux: linux/text/ClockJumpTest.cpp.

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tks::platform::clock;

/// The local time in seconds as "MMddHHmmss".
std::string localSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  tm local{};
  ::localtime_r(&time.tv_sec, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%m%d%H%M%S", &local)};
}

TEST(Clock, LocalTimestampIsMonthDayTimeAndMilliseconds) {
  std::string before;
  std::string stamp;
  do {
    before = localSeconds();
    stamp = clock().localTimestamp();
  } while (before != localSeconds());
  EXPECT_EQ(stamp.size(), 13u);
  EXPECT_EQ(stamp.substr(0, 10), before);
  EXPECT_EQ(stamp.find_first_not_of("0123456789"), std::string::npos);
}

TEST(Clock, SecondsSince1970AreThoseOfTheWallClock) {
  const auto before = static_cast<double>(std::time(nullptr));
  const double seconds = clock().secondsSince1970();
  EXPECT_GE(seconds, before - 0.1);
  EXPECT_LE(seconds, before + 2);
}

TEST(Clock, SleepLastsAsLongAsAskedForAlsoThroughInterruptions) {
  static volatile std::sig_atomic_t signals = 0;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { signals = signals + 1; };  // without SA_RESTART
  ::sigaction(SIGALRM, &action, &before);
  const itimerval often{{0, 1000}, {0, 1000}};
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &often, nullptr);
  const auto begin = steady_clock::now();
  clock().sleep(milliseconds(100));
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(100));
  EXPECT_GT(signals, 0);
}

TEST(Clock, SleepOfNothingReturnsAtOnce) {
  clock().sleep(microseconds(0));
  clock().sleep(microseconds(-5));
}

}  // namespace
