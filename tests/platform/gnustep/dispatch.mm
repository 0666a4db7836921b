#include <Block.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/platform/gnustep/dispatch.h"

// One thread watches all sources and hands their handlers to the queues; a queue does one thing after the other.
// Nothing is ever released but what handlers hold, which happens once a source is cancelled.

namespace tks::gnustep {

using Steady = std::chrono::steady_clock;

struct Queue {
  enum class Kind { main, global, serial };
  explicit Queue(Kind itsKind) : kind(itsKind) {}

  const Kind kind;
  std::mutex mutex;  // guards what follows
  std::condition_variable filled;
  std::deque<dispatch_block_t> blocks;
  std::map<const void*, void*> specifics;
};

struct Semaphore {
  std::mutex mutex;  // guards what follows
  std::condition_variable raised;
  long value = 0;
};

struct SourceType {};

struct Source {
  dispatch_source_type_t type;
  int descriptor = -1;
  bool ownsDescriptor = false;
  pid_t process = 0;
  short events = 0;
  Queue* queue = nullptr;
  // Guarded by the watcher's mutex.
  dispatch_block_t handler = nullptr;
  dispatch_block_t cancelHandler = nullptr;
  std::optional<Steady::time_point> deadline;
  bool isResumed = false;
  bool isHandedOver = false;
  bool isCancelled = false;
  bool hasData = false;
};

namespace {

constexpr SourceType kDataAdd;
constexpr SourceType kProcess;
constexpr SourceType kRead;
constexpr SourceType kTimer;
constexpr SourceType kVnode;
constexpr SourceType kWrite;

Queue& mainQueue() {
  static Queue& queue = *new Queue(Queue::Kind::main);
  return queue;
}

bool isMainThread() { return ::gettid() == ::getpid(); }

/// The queue whose work the thread does; the main thread counts as the main queue's from the beginning.
Queue*& currentQueue() {
  thread_local Queue* queue = isMainThread() ? &mainQueue() : nullptr;
  return queue;
}

void runBlock(Queue& queue, dispatch_block_t block) {
  Queue* const before = std::exchange(currentQueue(), &queue);
  block();
  currentQueue() = before;
  Block_release(block);
}

void work(Queue& queue) {
  for (;;) {
    std::unique_lock lock(queue.mutex);
    queue.filled.wait(lock, [&] { return !queue.blocks.empty(); });
    const dispatch_block_t block = queue.blocks.front();
    queue.blocks.pop_front();
    lock.unlock();
    if (block == nullptr) return;
    runBlock(queue, block);
  }
}

/// Worker threads block signals, as those of the system do.
void startThread(std::function<void()> body) {
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread(std::move(body)).detach();
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void enqueue(Queue& queue, dispatch_block_t copied) {
  if (queue.kind == Queue::Kind::global) {
    Queue* const where = &queue;
    return startThread([where, copied] { runBlock(*where, copied); });
  }
  const std::lock_guard lock(queue.mutex);
  queue.blocks.push_back(copied);
  queue.filled.notify_all();
}

/// The system's own watching needs no descriptor: this one must not stand in the place of a standard handle.
int raised(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int above = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::close(descriptor);
  return above;
}

/// The thread that watches all sources.
class Watcher {
 public:
  static Watcher& shared() {
    static Watcher& watcher = *new Watcher;
    return watcher;
  }

  template <class Change>
  void change(Change change) {
    const std::lock_guard lock(mutex_);
    change();
    start();
    wake();
  }
  void add(Source* source) {
    change([&] { sources_.push_back(source); });
  }

 private:
  Watcher() : wakeUp_(raised(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

  void start() {
    if (std::exchange(isStarted_, true)) return;
    startThread([this] { watch(); });
  }
  void wake() const {
    const std::uint64_t one = 1;
    if (::write(wakeUp_, &one, sizeof one) < 0) return;
  }

  [[noreturn]] void watch() {
    for (;;) {
      std::vector<pollfd> polled{{wakeUp_, POLLIN, 0}};
      std::vector<Source*> watched{nullptr};
      const int timeout = prepare(polled, watched);
      ::poll(polled.data(), polled.size(), timeout);
      std::uint64_t count = 0;
      while (::read(wakeUp_, &count, sizeof count) > 0) continue;
      const std::lock_guard lock(mutex_);
      for (std::size_t i = 1; i < polled.size(); ++i) {
        if (polled[i].revents != 0) handOver(*watched[i]);
      }
    }
  }

  /// Milliseconds until the next deadline; -1 when there is none.
  int prepare(std::vector<pollfd>& polled, std::vector<Source*>& watched) {
    const std::lock_guard lock(mutex_);
    std::optional<Steady::time_point> next;
    std::vector<Source*> due;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      Source& source = *sources_[i];
      if (source.isCancelled) {
        finish(source);
        sources_.erase(sources_.begin() + static_cast<std::ptrdiff_t>(i--));
        continue;
      }
      if (!source.isResumed || source.isHandedOver) continue;
      if (source.type == &kProcess) next = Steady::now() + std::chrono::milliseconds(1);
      if (source.deadline && *source.deadline <= Steady::now()) {
        due.push_back(&source);
      } else if (source.hasData || hasEnded(source)) {
        handOver(source);
      } else if (source.deadline) {
        next = next ? std::min(*next, *source.deadline) : *source.deadline;
      } else if (source.descriptor >= 0 && source.events != 0) {
        polled.push_back({source.descriptor, source.events, 0});
        watched.push_back(&source);
      }
    }
    std::ranges::stable_sort(due, {}, [](const Source* source) { return *source->deadline; });
    for (Source* source : due) handOver(*source);
    if (!next) return -1;
    // What is due by now would be waited for without end.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Steady::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
  }

  /// Looked at now and then: a descriptor of the process could stand in the place of a standard handle. One that is
  /// gone is told of like one that ends.
  static bool hasEnded(const Source& source) {
    if (source.type != &kProcess) return false;
    siginfo_t facts{};
    const int result = ::waitid(P_PID, static_cast<id_t>(source.process), &facts, WEXITED | WNOHANG | WNOWAIT);
    return result != 0 || facts.si_pid == source.process;
  }

  void handOver(Source& source) {
    if (source.isCancelled || source.isHandedOver) return;
    source.isHandedOver = true;
    source.hasData = false;
    source.deadline.reset();
    if (source.type == &kVnode) emptyNotices(source.descriptor);
    Source* const which = &source;
    enqueue(*source.queue, Block_copy(^{
      Watcher::shared().handle(which);
    }));
  }

  void handle(Source* source) {
    dispatch_block_t handler = nullptr;
    {
      const std::lock_guard lock(mutex_);
      if (!source->isCancelled && source->handler != nullptr) handler = Block_copy(source->handler);
    }
    if (handler != nullptr) {
      handler();
      Block_release(handler);
    }
    change([&] { source->isHandedOver = source->type == &kProcess; });
  }

  /// Its last call: nothing of the source is used any more, and what its handlers hold is released.
  static void finish(Source& source) {
    Source* const which = &source;
    enqueue(*source.queue, Block_copy(^{
      const dispatch_block_t last = std::exchange(which->cancelHandler, nullptr);
      const dispatch_block_t handler = std::exchange(which->handler, nullptr);
      if (last != nullptr) last();
      if (last != nullptr) Block_release(last);
      if (handler != nullptr) Block_release(handler);
    }));
    giveBack(source);
  }

  static void giveBack(Source& source) {
    if (source.ownsDescriptor) ::close(std::exchange(source.descriptor, -1));
    source.ownsDescriptor = false;
  }

  static void emptyNotices(int descriptor) {
    char notices[4096];
    while (::read(descriptor, notices, sizeof notices) > 0) continue;
  }

  const int wakeUp_;
  std::mutex mutex_;  // guards what follows
  std::vector<Source*> sources_;
  bool isStarted_ = false;
};

// Made before anything counts the descriptors of the process.
[[maybe_unused]] const Watcher& firstUse = Watcher::shared();

int noticesOf(int descriptor) {
  const int notices = raised(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  ::inotify_add_watch(notices, path.c_str(), IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF);
  return notices;
}

/// Gives the source the descriptor that tells of it.
void open(Source& source, std::uintptr_t handle) {
  const int number = static_cast<int>(handle);
  source.events = source.type == &kWrite ? POLLOUT : POLLIN;
  source.descriptor = source.type == &kRead || source.type == &kWrite ? number : -1;
  if (source.type == &kVnode) source.descriptor = noticesOf(number);
  if (source.type == &kProcess) source.process = number;
  source.ownsDescriptor = source.descriptor >= 0 && source.descriptor != number;
}

bool isElsewhere = false;

/// Does what the main queue holds now.
void drainMainQueue() {
  Queue& queue = mainQueue();
  std::unique_lock lock(queue.mutex);
  for (std::size_t left = queue.blocks.size(); left > 0 && !queue.blocks.empty(); --left) {
    const dispatch_block_t block = queue.blocks.front();
    queue.blocks.pop_front();
    lock.unlock();
    runBlock(queue, block);
    lock.lock();
  }
}

}  // namespace

MainQueueElsewhere::MainQueueElsewhere() : over_(dispatch_semaphore_create(0)) {
  isElsewhere = true;
  currentQueue() = nullptr;
  startThread([over = over_] {
    work(mainQueue());
    dispatch_semaphore_signal(over);
  });
}

// What comes into the queue after its thread's last work, as the end of a source does, waits for the main thread.
MainQueueElsewhere::~MainQueueElsewhere() {
  enqueue(mainQueue(), nullptr);
  dispatch_semaphore_wait(over_, DISPATCH_TIME_FOREVER);
  currentQueue() = &mainQueue();
  isElsewhere = false;
}

}  // namespace tks::gnustep

using namespace tks::gnustep;

const dispatch_source_type_t DISPATCH_SOURCE_TYPE_DATA_ADD = &kDataAdd;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_PROC = &kProcess;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_READ = &kRead;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_TIMER = &kTimer;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_VNODE = &kVnode;
const dispatch_source_type_t DISPATCH_SOURCE_TYPE_WRITE = &kWrite;

dispatch_queue_t dispatch_get_main_queue() { return &mainQueue(); }

dispatch_queue_t dispatch_get_global_queue(long, unsigned long) {
  static Queue& queue = *new Queue(Queue::Kind::global);
  return &queue;
}

dispatch_queue_t dispatch_queue_create(const char*, std::nullptr_t) {
  Queue* const queue = new Queue(Queue::Kind::serial);
  startThread([queue] { work(*queue); });
  return queue;
}

void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* value, std::nullptr_t) {
  const std::lock_guard lock(queue->mutex);
  queue->specifics[key] = value;
}

void* dispatch_get_specific(const void* key) {
  Queue* const queue = currentQueue();
  if (queue == nullptr) return nullptr;
  const std::lock_guard lock(queue->mutex);
  const auto found = queue->specifics.find(key);
  return found == queue->specifics.end() ? nullptr : found->second;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) { enqueue(*queue, Block_copy(block)); }

void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
  dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue);
  dispatch_source_set_timer(source, when, DISPATCH_TIME_FOREVER, 0);
  dispatch_source_set_event_handler(source, ^{
    dispatch_source_cancel(source);
    block();
  });
  dispatch_resume(source);
}

dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t nanoseconds) {
  const auto now = static_cast<dispatch_time_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(Steady::now().time_since_epoch()).count());
  return (when == DISPATCH_TIME_NOW ? now : when) + static_cast<dispatch_time_t>(nanoseconds);
}

dispatch_semaphore_t dispatch_semaphore_create(long value) {
  auto* const semaphore = new Semaphore;
  semaphore->value = value;
  return semaphore;
}

long dispatch_semaphore_signal(dispatch_semaphore_t semaphore) {
  const std::lock_guard lock(semaphore->mutex);
  ++semaphore->value;
  semaphore->raised.notify_one();
  return 0;
}

long dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t until) {
  std::unique_lock lock(semaphore->mutex);
  const auto isRaised = [&] { return semaphore->value > 0; };
  const Steady::time_point deadline{std::chrono::nanoseconds(static_cast<std::int64_t>(until))};
  if (until == DISPATCH_TIME_FOREVER) semaphore->raised.wait(lock, isRaised);
  if (!semaphore->raised.wait_until(lock, deadline, isRaised)) return 1;
  --semaphore->value;
  return 0;
}

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle, unsigned long,
                                         dispatch_queue_t queue) {
  auto* const source = new Source;
  source->type = type;
  source->queue = queue;
  open(*source, handle);
  Watcher::shared().add(source);
  return source;
}

void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler) {
  Watcher::shared().change([&] { source->handler = Block_copy(handler); });
}

void dispatch_source_set_cancel_handler(dispatch_source_t source, dispatch_block_t handler) {
  Watcher::shared().change([&] { source->cancelHandler = Block_copy(handler); });
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, std::uint64_t, std::uint64_t) {
  Watcher::shared().change(
      [&] { source->deadline = Steady::time_point(std::chrono::nanoseconds(static_cast<std::int64_t>(start))); });
}

void dispatch_source_merge_data(dispatch_source_t source, unsigned long) {
  Watcher::shared().change([&] { source->hasData = true; });
}

void dispatch_source_cancel(dispatch_source_t source) {
  Watcher::shared().change([&] { source->isCancelled = true; });
}

long dispatch_source_testcancel(dispatch_source_t source) { return source->isCancelled ? 1 : 0; }

void dispatch_resume(dispatch_source_t source) {
  Watcher::shared().change([&] { source->isResumed = true; });
}

CFRunLoopRef CFRunLoopGetMain() { return &mainQueue(); }
CFRunLoopRef CFRunLoopGetCurrent() { return isMainThread() && !isElsewhere ? CFRunLoopGetMain() : nullptr; }

int CFRunLoopRunInMode(const char*, double seconds, bool) {
  if (CFRunLoopGetCurrent() != CFRunLoopGetMain()) return 0;
  {
    Queue& queue = mainQueue();
    std::unique_lock lock(queue.mutex);
    queue.filled.wait_for(lock, std::chrono::duration<double>(std::min(seconds, 1e6)),
                          [&] { return !queue.blocks.empty(); });
  }
  drainMainQueue();
  return 0;
}
