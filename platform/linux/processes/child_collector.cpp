#include "platform/linux/processes/child_collector.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "foundation/logging/HeldLines.h"
#include "platform/linux/loop/system_calls.h"
#include "platform/linux/processes/process_table.h"
#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "platform/posix/untold_ends.h"

namespace tks::gnulinux {
namespace {

using platform::ChildEnd;

/// How often children are looked at that cannot be watched.
constexpr std::chrono::milliseconds kLookInterval{200};

ChildEnd endOf(const siginfo_t& facts) {
  return {facts.si_code == CLD_EXITED ? ChildEnd::How::exited : ChildEnd::How::killed, facts.si_status};
}

/// waitid for one child: false when it is not ours to wait for any more.
bool waitFor(pid_t process, const posix::FileDescriptor& descriptor, int flags, siginfo_t& facts) {
  if (descriptor) {
    const id_t number = static_cast<id_t>(descriptor.get());
    if (posix::retried([&] { return ::waitid(P_PIDFD, number, &facts, flags); }) == 0) return true;
    // Older kernels know descriptors of processes, but not how to wait for them; and a host may have closed this one.
    if (errno != EINVAL && errno != EBADF) return false;
  }
  return posix::retried([&] { return ::waitid(P_PID, static_cast<id_t>(process), &facts, flags); }) == 0;
}

/// The kernel's PIDFD_GET_INFO in its first size, which the C library's headers do not have yet.
struct PidfdInformation {
  std::uint64_t mask;
  std::uint64_t controlGroup;
  std::uint32_t identifiers[11];
  std::int32_t exitCode;
};
static_assert(sizeof(PidfdInformation) == 64);
constexpr std::uint64_t kPidfdExit = 1 << 3;
constexpr unsigned long kPidfdGetInformation = _IOWR(0xFF, 11, PidfdInformation);

}  // namespace

posix::FileDescriptor openProcess(pid_t process) {
  posix::FileDescriptor descriptor(systemCalls().pidfdOpen(process, 0));
  if (!posix::raiseAboveStandard(descriptor)) descriptor.reset();
  return descriptor;
}

std::optional<ChildEnd> collectChild(pid_t process, const posix::FileDescriptor& descriptor) {
  siginfo_t facts{};
  if (!waitFor(process, descriptor, WEXITED | WNOHANG, facts)) return ChildEnd{};
  if (facts.si_pid == 0) return std::nullopt;
  return endOf(facts);
}

ChildState childState(pid_t process, const posix::FileDescriptor& descriptor) {
  siginfo_t facts{};
  if (!waitFor(process, descriptor, WEXITED | WNOHANG | WNOWAIT, facts)) return ChildState::collected;
  return facts.si_pid == 0 ? ChildState::running : ChildState::collectable;
}

std::optional<ChildEnd> rememberedEnd(const posix::FileDescriptor& descriptor) {
  PidfdInformation information{};
  information.mask = kPidfdExit;
  if (!descriptor || ::ioctl(descriptor.get(), kPidfdGetInformation, &information) != 0) return std::nullopt;
  if ((information.mask & kPidfdExit) == 0) return std::nullopt;
  const int status = information.exitCode;
  if (WIFEXITED(status)) return ChildEnd{ChildEnd::How::exited, WEXITSTATUS(status)};
  return ChildEnd{ChildEnd::How::killed, WTERMSIG(status)};
}

ChildCollector& ChildCollector::shared() {
  static auto& collector = *new ChildCollector;
  return collector;
}

void ChildCollector::adopt(SpawnedProcess process, std::function<void(ChildEnd)> ended) {
  Child child;
  child.process = process.identifier;
  child.descriptor = std::move(process.descriptor);
  child.ended = std::move(ended);

  const HeldLines lines;
  const std::lock_guard lock(mutex_);
  const std::uint64_t number = ++adopted_;
  const bool isComplete = static_cast<bool>(child.descriptor);
  children_.emplace(number, std::move(child));
  ++count_;
  if (isComplete) return watch(number);
  EventLoop::main().post([this, number] {
    collectOne(number);
    const HeldLines linesOfTheTurn;
    const std::lock_guard turn(mutex_);
    watch(number);
  });
}

/// With the lock held: what is watched for waits for it, so it finds the child complete.
void ChildCollector::watch(std::uint64_t number) {
  const auto found = children_.find(number);
  if (found == children_.end()) return;  // it has ended by now
  Child& child = found->second;
  if (!child.descriptor) child.descriptor = openProcess(child.process);
  if (child.descriptor) {
    child.watch = EventLoop::main().watch(child.descriptor.get(), EPOLLIN, [this, number](std::uint32_t events) {
      if (events == EventLoop::kLost) watchAgain(number);
      collectOne(number);
    });
  } else {
    child.startTime = readProcessFacts(child.process).value_or(ProcessFacts()).startTime;
  }
  if (!child.watch) keepLooking();
}

/// The child's descriptor may be gone with those of the loop; its number may be somebody else's, so it is not closed.
void ChildCollector::watchAgain(std::uint64_t number) {
  std::unique_ptr<EventLoop::Watch> before;
  const std::lock_guard lock(mutex_);
  const auto found = children_.find(number);
  if (found == children_.end()) return;
  before = std::move(found->second.watch);
  found->second.descriptor.release();
  watch(number);
}

void ChildCollector::collect() {
  if (count_.load(std::memory_order_relaxed) == 0) return;
  std::vector<std::uint64_t> numbers;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [number, child] : children_) numbers.push_back(number);
  }
  for (const std::uint64_t number : numbers) collectOne(number);
}

std::optional<ChildEnd> ChildCollector::lookAt(const Child& child) {
  if (child.startTime) {
    const std::optional<ProcessFacts> facts = readProcessFacts(child.process);
    if (!facts || facts->startTime != child.startTime) return ChildEnd{};  // somebody else collected it
  }
  return collectChild(child.process, child.descriptor);
}

void ChildCollector::collectOne(std::uint64_t number) {
  Child child;
  std::optional<ChildEnd> end;
  {
    const std::lock_guard lock(mutex_);
    const auto found = children_.find(number);
    if (found == children_.end() || !(end = lookAt(found->second))) return;
    child = std::move(found->second);
    children_.erase(found);
    --count_;
  }
  if (!child.ended) return;
  const std::uint64_t untold = posix::UntoldEnds::shared().add(child.process, *end);
  platform::mainLoop().post([untold, ended = std::move(child.ended), end = *end] {
    posix::UntoldEnds::shared().remove(untold);
    ended(end);
  });
}

/// With the lock held nobody else here collects the child, so that its number stays its own; where somebody else does,
/// its descriptor, or its start time, tells.
bool ChildCollector::signal(pid_t process, int signal) {
  const std::lock_guard lock(mutex_);
  for (const auto& [number, child] : children_) {
    if (child.process != process || childState(process, child.descriptor) != ChildState::running) continue;
    if (child.descriptor) return systemCalls().pidfdSendSignal(child.descriptor.get(), signal, nullptr, 0) == 0;
    return ::kill(process, signal) == 0;
  }
  return false;
}

void ChildCollector::keepLooking() {
  if (timer_) return;
  timer_ = EventLoop::main().after(kLookInterval, [this] {
    collect();
    const HeldLines lines;
    const std::lock_guard lock(mutex_);
    timer_.reset();
    const auto isUnwatched = [](const auto& entry) { return !entry.second.watch; };
    if (std::any_of(children_.begin(), children_.end(), isUnwatched)) keepLooking();
  });
}

}  // namespace tks::gnulinux
