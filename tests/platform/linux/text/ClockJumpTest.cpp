#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>

#include "platform/platform.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

// The wall clock jumps while something waits.

namespace {

/// By how many seconds the wall clock of this program is wrong.
std::atomic<long> wallClockShift = 0;

}  // namespace

/// Stands before the C library's: the kernel's clocks, with the wall clock shifted.
extern "C" int clock_gettime(clockid_t clock, timespec* time) {
  const long result = ::syscall(SYS_clock_gettime, clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += wallClockShift;
  return static_cast<int>(result);
}

namespace {

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

class ClockJump : public testing::TestWithParam<long> {};

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
