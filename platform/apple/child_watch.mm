#include "platform/apple/child_watch.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "foundation/logging/Logging.h"
#include "platform/apple/guarded.h"
#include "platform/posix/file_descriptor.h"

namespace tks::platform::apple {
namespace {

/// How long after the system tells of an end it may take until the child can be collected, and the time between looks
/// where the system cannot watch a child.
constexpr std::int64_t kLookInterval = 2 * static_cast<std::int64_t>(NSEC_PER_MSEC);
constexpr std::int64_t kSlowInterval = 100 * static_cast<std::int64_t>(NSEC_PER_MSEC);

/// Where children are collected, one after the other.
dispatch_queue_t childQueue() {
  static dispatch_queue_t const queue =
      dispatch_queue_create("com.tarvo.kovra.tksinterface.children", DISPATCH_QUEUE_SERIAL);
  return queue;
}

/// Whether a process is a child of this one that has ended and that nobody has collected.
bool isCollectable(pid_t process) {
  siginfo_t facts{};
  return waitid(P_PID, static_cast<id_t>(process), &facts, WEXITED | WNOHANG | WNOWAIT) == 0 && facts.si_pid == process;
}

}  // namespace

ChildWatch::ChildWatch(pid_t process, Kind kind, std::function<void(ChildEnd)> ended)
    : process_(process), kind_(kind), over_(dispatch_semaphore_create(0)), ended_(std::move(ended)) {}

std::shared_ptr<ChildWatch> ChildWatch::begin(pid_t process, Kind kind, std::function<void(ChildEnd)> ended) {
  const std::shared_ptr<ChildWatch> watch(new ChildWatch(process, kind, std::move(ended)));
  dispatch_async(childQueue(), ^{
    watch->start();
  });
  return watch;
}

void ChildWatch::start() {
  const std::shared_ptr<ChildWatch> self = shared_from_this();
  source_ = dispatch_source_create(DISPATCH_SOURCE_TYPE_PROC, static_cast<uintptr_t>(process_), DISPATCH_PROC_EXIT,
                                   childQueue());
  if (source_ != nil) {
    dispatch_source_set_event_handler(source_, ^{
      self->look(true);
    });
    dispatch_resume(source_);
  }
  // The child may have been collected by somebody else already, and its number be another's.
  look(source_ == nil);
}

void ChildWatch::look(bool hasEnded) {
  std::function<void(ChildEnd)> ended;
  std::optional<ChildEnd> end;
  {
    const std::lock_guard lock(mutex_);
    if (end_) return;
    end = end_ = collect();
    if (end) ended = tks::take(ended_);
  }
  const std::shared_ptr<ChildWatch> self = shared_from_this();
  if (!end) {
    if (!hasEnded) return;
    const std::int64_t interval = source_ != nil ? kLookInterval : kSlowInterval;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, interval), childQueue(), ^{
      self->look(true);
    });
    return;
  }
  if (source_ != nil) dispatch_source_cancel(source_);
  source_ = nil;
  dispatch_semaphore_signal(over_);
  if (!ended) return;
  const ChildEnd how = *end;
  runGuarded("end of a child", [&] { ended(how); });
}

std::optional<ChildEnd> ChildWatch::collect() const {
  // As long as the leader is not collected, no other group can have its number.
  if (kind_ == Kind::leadsGroup && isCollectable(process_)) ::kill(-process_, SIGKILL);
  int status = 0;
  const pid_t collected = posix::retried([&] { return waitpid(process_, &status, WNOHANG); });
  if (collected == 0) return std::nullopt;
  if (collected < 0) return ChildEnd();
  if (WIFEXITED(status)) return ChildEnd{ChildEnd::How::exited, WEXITSTATUS(status)};
  return ChildEnd{ChildEnd::How::killed, WTERMSIG(status)};
}

std::optional<ChildEnd> ChildWatch::waitUntil(std::chrono::steady_clock::time_point deadline) {
  using std::chrono::nanoseconds;
  {
    const std::lock_guard lock(mutex_);
    if (end_) return end_;
  }
  const auto left = std::chrono::duration_cast<nanoseconds>(deadline - std::chrono::steady_clock::now()).count();
  if (left <= 0) return std::nullopt;
  if (dispatch_semaphore_wait(over_, dispatch_time(DISPATCH_TIME_NOW, left)) != 0) return std::nullopt;
  dispatch_semaphore_signal(over_);  // for the next who waits
  const std::lock_guard lock(mutex_);
  return end_;
}

bool ChildWatch::signal(int number) {
  const std::lock_guard lock(mutex_);
  return !end_ && !isCollectable(process_) && ::kill(process_, number) == 0;
}

void ChildWatch::kill() {
  const std::lock_guard lock(mutex_);
  if (!end_) ::kill(kind_ == Kind::leadsGroup ? -process_ : process_, SIGKILL);
}

}  // namespace tks::platform::apple
