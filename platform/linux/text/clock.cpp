#include "platform/clock.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "platform/backend.h"

namespace tks::platform {
namespace {

constexpr long kNanosecondsInSecond = 1'000'000'000;
constexpr long kNanosecondsInMillisecond = 1'000'000;

timespec now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return time;
}

class LinuxClock final : public Clock {
 public:
  std::string localTimestamp() override {
    const timespec time = now(CLOCK_REALTIME);
    tm local{};
    ::localtime_r(&time.tv_sec, &local);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%02d%02d%02d%02d%02d%03ld", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec, time.tv_nsec / kNanosecondsInMillisecond);
    return text.data();
  }

  double secondsSince1970() override {
    const timespec time = now(CLOCK_REALTIME);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / kNanosecondsInSecond;
  }

  void sleep(std::chrono::microseconds duration) override {
    if (duration.count() <= 0) return;
    timespec until = now(CLOCK_MONOTONIC);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    const auto nanoseconds = std::chrono::nanoseconds(duration - seconds);
    until.tv_sec += seconds.count();
    until.tv_nsec += nanoseconds.count();
    if (until.tv_nsec >= kNanosecondsInSecond) {
      until.tv_nsec -= kNanosecondsInSecond;
      ++until.tv_sec;
    }
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
  }
};

}  // namespace

template <>
Clock& backend<Clock>() {
  static auto& clock = *new LinuxClock;
  return clock;
}

}  // namespace tks::platform
