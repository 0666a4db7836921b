#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/main_loop.h"
#include "platform/posix/file_descriptor.h"

namespace tks::gnulinux {

/// A loop without a thread: one epoll descriptor that gathers posted work, timers and watched descriptors, and that is
/// itself readable while there is something to do, so that any other loop can watch it.
///
/// Work is only ever done inside `run` or `drain`, see platform/main_loop.h. Everything else may be called from any
/// thread. What work throws is caught and logged. Descriptors are made on first use. While none can be had, posted work
/// and timers still run, by polling inside `run`, and every use tries again. The same when a host closes them: the loop
/// goes on with new ones, and whoever watched a descriptor is told. In a copy of the process, made by fork, nothing is
/// done, because the descriptors are the other process's as well.
class EventLoop {
 public:
  using Work = std::function<void()>;
  /// Receives what epoll reports: EPOLLIN, EPOLLHUP and so on; or kLost, once and for the last time.
  using Ready = std::function<void(std::uint32_t events)>;
  /// The loop's own descriptors were closed by somebody else, so that it watches nothing any more. The watched
  /// descriptor may be gone as well, and its number may be somebody else's.
  static constexpr std::uint32_t kLost = 1U << 26;

  /// A watched descriptor. Destroying it on the loop's thread ends the calls, also from inside a call, also when one is
  /// due already; on another thread a call may just be running. Destroy it before the descriptor is closed.
  class Watch {
   public:
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

   private:
    friend class EventLoop;
    Watch(EventLoop& loop, std::uint64_t number, int descriptor)
        : loop_(loop), number_(number), descriptor_(descriptor) {}

    EventLoop& loop_;
    std::uint64_t number_;
    int descriptor_;
  };

  EventLoop() = default;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// The loop of the process's main queue; never destroyed.
  static EventLoop& main();

  void post(Work work);
  /// Null in a copy of the process.
  [[nodiscard]] std::unique_ptr<platform::MainLoop::Timer> after(std::chrono::milliseconds delay, Work work);
  /// Calls `ready` whenever the descriptor is ready for `events`: EPOLLIN or EPOLLOUT, with EPOLLONESHOT or EPOLLET
  /// when wanted. Null, and errno, when the descriptor cannot be watched; files and folders never can.
  [[nodiscard]] std::unique_ptr<Watch> watch(int descriptor, std::uint32_t events, Ready ready);

  /// Whether the caller is on the thread that works the loop; see platform/main_loop.h.
  bool isMainThread() const;
  void run();
  void stop();
  int descriptor();
  void drain();

  /// How often descriptors of any loop were found closed by somebody else. One load.
  static unsigned losses() { return losses_.load(std::memory_order_relaxed); }

 private:
  class LoopTimer;
  class LoopInUse;
  using Nanoseconds = std::int64_t;
  /// Deadline by the monotonic clock, then order of setting.
  using TimerKey = std::pair<Nanoseconds, std::uint64_t>;

  static constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

  bool isOnLoopThread() const { return loopThread_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }
  bool hasDescriptors();
  void loseDescriptors();
  bool makeDescriptors();
  bool makeWaker();
  bool makeTimer();
  bool join(int epoll, int descriptor, std::uint64_t number);
  void wake();
  void clearWaker();

  bool waitAndWork(bool mayWait);
  bool settle();
  int millisecondsToWait();
  void handle(const epoll_event& event);
  void runWatch(std::uint64_t number, std::uint32_t events);
  bool runTimers();
  bool runPosted();
  void armTimer(Nanoseconds deadline);
  void cancel(const TimerKey& key);
  void unwatch(std::uint64_t number, int descriptor);

  static inline std::atomic<unsigned> losses_ = 0;

  std::atomic<bool> stopped_ = false;
  /// The thread inside `run` or `drain`.
  std::atomic<std::thread::id> loopThread_;
  /// The thread that was inside last.
  std::atomic<std::thread::id> homeThread_;
  /// Set once the descriptors below are made; they stay as they are from then on.
  std::atomic<int> epoll_ = -1;

  /// There is posted work. Written with the lock held; the loop's thread reads it without, so that an ordinary message
  /// costs a round without the lock.
  std::atomic<bool> hasPosted_ = false;
  /// The loop will look at `posted_` without being woken again. Written with the lock held, and set by a wake only.
  std::atomic<bool> attentive_ = false;

  std::mutex mutex_;  // guards what follows
  posix::FileDescriptor epollOwner_;
  posix::FileDescriptor waker_;
  /// The writing end of the pipe that stands in for an eventfd where there is none.
  posix::FileDescriptor wakerWriter_;
  posix::FileDescriptor timer_;
  bool saidThereAreNone_ = false;
  std::vector<Work> posted_;
  std::map<TimerKey, Work> timers_;
  std::uint64_t timersSet_ = 0;
  Nanoseconds armedFor_ = kNever;
  std::unordered_map<std::uint64_t, std::shared_ptr<const Ready>> watches_;
  std::uint64_t watchesMade_ = 0;
};

}  // namespace tks::gnulinux
