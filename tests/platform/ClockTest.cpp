#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <string>

#include "platform/platform.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

namespace {

/// By how many seconds the wall clock of this program is wrong.
std::atomic<long> wallClockShift = 0;

}  // namespace

/// Stands before the C library's: the kernel's clocks, with the wall clock shifted. On macOS a library takes its calls
/// straight from the system, and nothing can stand before them.
#ifdef __linux__
constexpr bool kWallClockCanBeShifted = true;
extern "C" int clock_gettime(clockid_t clock, timespec* time) {
  const long result = ::syscall(SYS_clock_gettime, clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += wallClockShift;
  return static_cast<int>(result);
}
#else
constexpr bool kWallClockCanBeShifted = false;
#endif

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tks::platform::clock;
using tks::test::drainUntil;

constexpr long kDay = 24 * 60 * 60;

/// Shifts the wall clock for a scope.
struct ShiftedWallClock {
  explicit ShiftedWallClock(long seconds) { wallClockShift = seconds; }
  ~ShiftedWallClock() { wallClockShift = 0; }
  ShiftedWallClock(const ShiftedWallClock&) = delete;
  ShiftedWallClock& operator=(const ShiftedWallClock&) = delete;
};

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

class ClockJump : public testing::TestWithParam<long> {
 protected:
  void SetUp() override {
    if (!kWallClockCanBeShifted) GTEST_SKIP() << "the wall clock cannot be shifted for a program here";
  }
};

TEST_P(ClockJump, IsSeenByTheWallClock) {
  const double before = clock().secondsSince1970();
  const ShiftedWallClock shifted(GetParam());
  EXPECT_NEAR(clock().secondsSince1970() - before, static_cast<double>(GetParam()), 60);
}

TEST_P(ClockJump, LeavesTimersAlone) {
  const auto begin = steady_clock::now();
  bool ran = false;
  const auto timer = tks::platform::mainLoop().after(milliseconds(60), [&] { ran = true; });
  const ShiftedWallClock shifted(GetParam());
  ASSERT_TRUE(drainUntil([&] { return ran; }));
  EXPECT_GE(steady_clock::now() - begin, milliseconds(60));
}

TEST_P(ClockJump, LeavesSleepsAlone) {
  const auto begin = steady_clock::now();
  std::atomic<bool> done = false;
  tks::platform::backgroundWork().submit([&] {
    clock().sleep(milliseconds(60));
    done = true;
  });
  const ShiftedWallClock shifted(GetParam());
  ASSERT_TRUE(tks::test::waitUntil([&] { return done.load(); }));
  EXPECT_GE(steady_clock::now() - begin, milliseconds(60));
}

INSTANTIATE_TEST_SUITE_P(ByADay, ClockJump, testing::Values(kDay, -kDay),
                         [](const auto& instance) { return instance.param > 0 ? "Forward" : "Backward"; });

}  // namespace
