#include "platform/linux/loop/event_loop.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <ctime>

#include "foundation/logging/Logging.h"
#include "platform/linux/loop/system_calls.h"
#include "platform/posix/forked_copy.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::gnulinux {
namespace {

/// What epoll reports for the loop's own descriptors; watches are numbered from there on.
constexpr std::uint64_t kWakerNumber = 0;
constexpr std::uint64_t kTimerNumber = 1;
constexpr std::uint64_t kFirstWatchNumber = 2;

/// How often `drain` looks for more before it gives the host's own loop a turn.
constexpr int kRoundsOfDrain = 16;
/// How often `run` looks for work while there is no descriptor to wait on.
constexpr int kPollingMilliseconds = 10;
constexpr std::int64_t kNanosecondsInSecond = 1'000'000'000;
constexpr std::int64_t kNanosecondsInMillisecond = 1'000'000;
/// Longer delays are cut to this one, a century, so that no deadline overflows.
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24 * 365 * 100);

/// Whether a descriptor is one of the kernel's own kinds, an eventfd for example, which no path leads to.
bool isKernelObject(int descriptor) {
  struct stat facts {};
  return ::fstat(descriptor, &facts) == 0 && (facts.st_mode & S_IFMT) == 0;
}

std::int64_t monotonicNow() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsInSecond + now.tv_nsec;
}

}  // namespace

class EventLoop::LoopTimer final : public platform::MainLoop::Timer {
 public:
  LoopTimer(EventLoop& loop, TimerKey key) : loop_(loop), key_(key) {}
  ~LoopTimer() override { loop_.cancel(key_); }

 private:
  EventLoop& loop_;
  TimerKey key_;
};

/// The loop is worked by one thread at a time, and not from inside its own work.
class EventLoop::LoopInUse {
 public:
  LoopInUse(EventLoop& loop, std::string_view operation) : loop_(loop) {
    std::thread::id nobody;
    granted_ = loop_.loopThread_.compare_exchange_strong(nobody, std::this_thread::get_id(), std::memory_order_acquire);
    if (granted_) {
      loop_.homeThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
      return;
    }
    TKSILog::logWithLevel(TKSILogLevelError, "Main loop is being run or drained already, '%@' does nothing.",
                          operation);
  }
  ~LoopInUse() {
    if (granted_) loop_.loopThread_.store({}, std::memory_order_release);
  }
  LoopInUse(const LoopInUse&) = delete;
  LoopInUse& operator=(const LoopInUse&) = delete;
  explicit operator bool() const { return granted_; }

 private:
  EventLoop& loop_;
  bool granted_ = false;
};

EventLoop::Watch::~Watch() { loop_.unwatch(number_, descriptor_); }

EventLoop& EventLoop::main() {
  static auto& loop = *new EventLoop;
  return loop;
}

// Descriptors

bool EventLoop::hasDescriptors() {
  if (posix::isForkedCopy()) return false;
  if (epoll_.load(std::memory_order_acquire) >= 0) return true;
  bool sayIt = false;
  {
    const std::scoped_lock lock(mutex_);
    if (epollOwner_ || makeDescriptors()) return true;
    sayIt = !std::exchange(saidThereAreNone_, true);
  }
  if (sayIt) {
    TKSILog::logWithLevel(TKSILogLevelError, "No descriptors for the main loop, polling until there are: %@",
                          posix::reasonText(errno));
  }
  return false;
}

bool EventLoop::makeDescriptors() {
  posix::claimProcess();
  posix::FileDescriptor epoll(systemCalls().epollCreate(EPOLL_CLOEXEC));
  if (!posix::raiseAboveStandard(epoll)) return false;
  if (!makeWaker() || !makeTimer() || !join(epoll.get(), waker_.get(), kWakerNumber) ||
      (timer_ && !join(epoll.get(), timer_.get(), kTimerNumber))) {
    timer_.reset();
    waker_.reset();
    wakerWriter_.reset();
    return false;
  }
  epollOwner_ = std::move(epoll);
  saidThereAreNone_ = false;
  epoll_.store(epollOwner_.get(), std::memory_order_release);
  // Work may have come before there was anything to announce it with.
  wake();
  if (!timers_.empty()) armTimer(timers_.begin()->first.first);
  return true;
}

bool EventLoop::makeWaker() {
  waker_.reset(systemCalls().eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (waker_) return posix::raiseAboveStandard(waker_);
  posix::Pipe pipe = posix::makePipe();
  if (!pipe.reader) return false;
  // Nobody else has these descriptions, so the flag may be set after the fact.
  ::fcntl(pipe.reader.get(), F_SETFL, O_NONBLOCK);
  ::fcntl(pipe.writer.get(), F_SETFL, O_NONBLOCK);
  waker_ = std::move(pipe.reader);
  wakerWriter_ = std::move(pipe.writer);
  return true;
}

/// A kernel or filter that refuses timer descriptors altogether leaves the loop without one; see millisecondsToWait.
bool EventLoop::makeTimer() {
  timer_.reset(systemCalls().timerfdCreate(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer_) return errno != EMFILE && errno != ENFILE && errno != ENOMEM;
  return posix::raiseAboveStandard(timer_);
}

bool EventLoop::join(int epoll, int descriptor, std::uint64_t number) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = number;
  return ::epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

/// Makes the loop's descriptor readable, with a new edge for those who watch for edges. A full pipe or counter is as
/// good as a written one.
void EventLoop::wake() {
  const std::uint64_t one = 1;
  const int descriptor = wakerWriter_ ? wakerWriter_.get() : waker_.get();
  if (descriptor < 0) return;
  // A host that closed it may have a file of its own under this number by now.
  if (!wakerWriter_ && !isKernelObject(descriptor)) return;
  [[maybe_unused]] const auto written = posix::retried([&] { return ::write(descriptor, &one, sizeof one); });
}

void EventLoop::clearWaker() {
  std::array<char, 1024> thrownAway;
  while (posix::retried([&] { return ::read(waker_.get(), thrownAway.data(), thrownAway.size()); }) ==
         static_cast<ssize_t>(thrownAway.size())) {
  }
}

/// Somebody has closed them. Their numbers may be somebody else's by now, so that they are not closed once more.
void EventLoop::loseDescriptors() {
  std::vector<std::uint64_t> lost;
  {
    const std::scoped_lock lock(mutex_);
    for (posix::FileDescriptor* mine : {&epollOwner_, &waker_, &wakerWriter_, &timer_}) mine->release();
    epoll_.store(-1, std::memory_order_release);
    armedFor_ = kNever;
    attentive_ = false;
    for (const auto& [number, ready] : watches_) lost.push_back(number);
  }
  ++losses_;
  TKSILog::logWithLevel(TKSILogLevelError,
                        "The descriptors of the main loop were closed by somebody else, it goes on with new ones.");
  for (const std::uint64_t number : lost) runWatch(number, kLost);
}

// What any thread may ask for

void EventLoop::post(Work work) {
  if (posix::isForkedCopy()) return;
  hasDescriptors();
  const std::scoped_lock lock(mutex_);
  posted_.push_back(std::move(work));
  hasPosted_ = true;
  if (attentive_ || isOnLoopThread()) return;
  attentive_ = true;
  wake();
}

std::unique_ptr<platform::MainLoop::Timer> EventLoop::after(std::chrono::milliseconds delay, Work work) {
  if (posix::isForkedCopy()) return nullptr;
  hasDescriptors();
  const auto wait = std::clamp(delay, std::chrono::milliseconds(0), kLongestDelay);
  const Nanoseconds deadline = monotonicNow() + wait.count() * kNanosecondsInMillisecond;
  const std::scoped_lock lock(mutex_);
  const TimerKey key(deadline, timersSet_++);
  auto timer = std::make_unique<LoopTimer>(*this, key);
  timers_.emplace(key, std::move(work));
  // Later timers need no system call: the one that is armed rings first and arms the next.
  if (deadline < armedFor_) armTimer(deadline);
  return timer;
}

void EventLoop::cancel(const TimerKey& key) {
  if (posix::isForkedCopy()) return;
  decltype(timers_)::node_type cancelled;  // destroyed without the lock: what the work holds may call us
  const std::scoped_lock lock(mutex_);
  cancelled = timers_.extract(key);
}

std::unique_ptr<EventLoop::Watch> EventLoop::watch(int descriptor, std::uint32_t events, Ready ready) {
  if (!hasDescriptors()) return nullptr;
  auto shared = std::make_shared<const Ready>(std::move(ready));
  const std::scoped_lock lock(mutex_);
  const std::uint64_t number = kFirstWatchNumber + watchesMade_++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = number;
  const auto place = watches_.emplace(number, std::move(shared)).first;
  if (::epoll_ctl(epollOwner_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    watches_.erase(place);
    return nullptr;
  }
  return std::unique_ptr<Watch>(new Watch(*this, number, descriptor));
}

void EventLoop::unwatch(std::uint64_t number, int descriptor) {
  if (posix::isForkedCopy()) return;
  decltype(watches_)::node_type ended;  // destroyed without the lock
  const std::scoped_lock lock(mutex_);
  ended = watches_.extract(number);
  // Once it was lost the number may be another's, which is watched by now.
  if (ended) ::epoll_ctl(epollOwner_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

bool EventLoop::isMainThread() const {
  const std::thread::id home = homeThread_.load(std::memory_order_relaxed);
  return home == std::thread::id() ? ::gettid() == ::getpid() : home == std::this_thread::get_id();
}

void EventLoop::stop() {
  if (posix::refusesAsForkedCopy("stop")) return;
  stopped_ = true;
  hasDescriptors();
  const std::scoped_lock lock(mutex_);
  if (!isOnLoopThread()) wake();
}

int EventLoop::descriptor() { return hasDescriptors() ? epoll_.load(std::memory_order_acquire) : -1; }

// The thread that works

void EventLoop::run() {
  if (posix::refusesAsForkedCopy("run")) return;
  const LoopInUse inUse(*this, "run");
  if (!inUse) return;
  while (!stopped_.exchange(false)) waitAndWork(settle());
  if (settle()) return;
  const std::scoped_lock lock(mutex_);
  wake();
}

void EventLoop::drain() {
  if (posix::refusesAsForkedCopy("drain")) return;
  const LoopInUse inUse(*this, "drain");
  if (!inUse) return;
  for (int round = 0; round < kRoundsOfDrain; ++round) {
    if (!waitAndWork(false) && settle()) return;
  }
  const std::scoped_lock lock(mutex_);
  wake();
}

/// One round: waits until there is something to do, when it may, and does it. Whether there was anything.
bool EventLoop::waitAndWork(bool mayWait) {
  std::array<epoll_event, 64> events;
  int count = 0;
  bool lost = false;
  const bool waitable = hasDescriptors();
  if (waitable) {
    const int wait = mayWait ? millisecondsToWait() : 0;
    count = ::epoll_wait(epoll_.load(std::memory_order_relaxed), events.data(), static_cast<int>(events.size()), wait);
    lost = count < 0 && (errno == EBADF || errno == EINVAL);
    if (lost) loseDescriptors();
  } else if (mayWait) {
    ::poll(nullptr, 0, kPollingMilliseconds);
  }
  for (int index = 0; index < count; ++index) handle(events[static_cast<std::size_t>(index)]);
  const bool timersRan = !(waitable && timer_) && runTimers();
  const bool postedRan = runPosted();
  return count > 0 || lost || timersRan || postedRan;
}

/// From now on posting has to wake the loop. False when work is posted already, so that no waking is needed.
bool EventLoop::settle() {
  if (!attentive_ && !hasPosted_) return true;
  const std::scoped_lock lock(mutex_);
  if (!posted_.empty()) return false;
  attentive_ = false;
  return true;
}

int EventLoop::millisecondsToWait() {
  if (timer_) return -1;
  const std::scoped_lock lock(mutex_);
  if (timers_.empty()) return -1;
  const Nanoseconds left = std::max<Nanoseconds>(timers_.begin()->first.first - monotonicNow(), 0);
  return static_cast<int>(std::min<Nanoseconds>(left / kNanosecondsInMillisecond + 1, INT_MAX));
}

void EventLoop::handle(const epoll_event& event) {
  switch (event.data.u64) {
    case kWakerNumber:
      return clearWaker();
    case kTimerNumber:
      runTimers();
      return;
    default:
      return runWatch(event.data.u64, event.events);
  }
}

void EventLoop::runWatch(std::uint64_t number, std::uint32_t events) {
  std::shared_ptr<const Ready> ready;
  {
    const std::scoped_lock lock(mutex_);
    const auto found = watches_.find(number);
    if (found == watches_.end()) return;  // destroyed since epoll reported it
    ready = found->second;
    if (events == kLost) watches_.erase(found);
  }
  callHost("watched descriptor", *ready, events);
}

/// Runs the timers that are due now, not those that they set.
bool EventLoop::runTimers() {
  const Nanoseconds now = monotonicNow();
  bool ran = false;
  std::unique_lock lock(mutex_);
  while (!timers_.empty() && timers_.begin()->first.first <= now) {
    Work due = std::move(timers_.extract(timers_.begin()).mapped());
    lock.unlock();
    callHost("timer", take(due));
    ran = true;
    lock.lock();
  }
  armTimer(timers_.empty() ? kNever : timers_.begin()->first.first);
  return ran;
}

/// Runs the work that is posted now, not what it posts itself.
bool EventLoop::runPosted() {
  if (!hasPosted_) return false;
  std::vector<Work> batch;
  {
    const std::scoped_lock lock(mutex_);
    batch.swap(posted_);
    hasPosted_ = false;
  }
  for (Work& work : batch) callHost("posted work", take(work));
  return true;
}

/// Arms the timerfd and thereby clears its pending expiry.
void EventLoop::armTimer(Nanoseconds deadline) {
  armedFor_ = deadline;
  if (!timer_) {
    if (!isOnLoopThread()) wake();
    return;
  }
  itimerspec when{};
  if (deadline != kNever) {
    when.it_value.tv_sec = deadline / kNanosecondsInSecond;
    when.it_value.tv_nsec = deadline % kNanosecondsInSecond;
  }
  if (::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr) == 0) return;
  timer_.release();  // somebody has closed it; see millisecondsToWait
  if (!isOnLoopThread()) wake();
}

}  // namespace tks::gnulinux
