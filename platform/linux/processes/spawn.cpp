#include "platform/linux/processes/spawn.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "platform/linux/loop/system_calls.h"
#include "platform/posix/standard_handles.h"

// The child shares this process's memory, and the calling thread waits, until the child's program runs: nothing is
// copied, so that the size of the host does not matter. The C library's posix_spawn does the same, but takes half as
// long again: it maps and unmaps a stack each time and asks for every signal before it sets it.
//
// What runs in the child until then must not touch the state of the C library, and nothing of it may be watched by a
// sanitizer, which would take it for the waiting thread: system calls only, in functions marked below.

#if defined(__has_attribute)
#if __has_attribute(disable_sanitizer_instrumentation)
#define TKS_IN_THE_CHILD __attribute__((disable_sanitizer_instrumentation))
#else
#define TKS_IN_THE_CHILD __attribute__((no_sanitize("address", "thread", "undefined")))
#endif
#endif

// The C library's clone under its other name: the thread sanitizer takes every call of "clone" for a fork and changes
// its own state in the child, which here is that of this very process.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

namespace tks::gnulinux {
namespace {

constexpr int kFirstForeign = 3;
/// Enough for the functions below, and a small part of what any thread has.
constexpr std::size_t kStackSize = std::size_t{16} * 1024;
/// Bytes of the kernel's signal sets.
constexpr std::size_t kSignalSetSize = 8;
constexpr std::uint64_t kNoSignals = 0;
constexpr std::uint64_t kAllSignals = ~std::uint64_t{0};
/// The signals whose handling a program inherits to any effect. Not the others: SIGKILL and SIGSTOP are never handled;
/// SIGCONT, SIGURG and SIGWINCH are ignored by default as well; what the program's own fault raises, and abort, end it
/// although they are ignored. Real-time signals mean what a program makes of them, and until it does, nobody sends one.
constexpr auto kInheritedSignals =
    std::to_array<int>({SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD, SIGTSTP, SIGTTIN,
                        SIGTTOU, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO, SIGPWR});
/// The kernel's own description of a signal's handling differs between processors, but "default" is all zeros on each.
constexpr std::array<std::byte, 152> kDefaultHandling{};

/// What the child is to do, prepared before it exists.
struct Plan {
  const char* executable = nullptr;
  char* const* arguments = nullptr;
  char* const* environment = nullptr;
  /// For 0, 1 and 2.
  std::array<int, 3> sources{};
  SpawnRequest::Group group = SpawnRequest::Group::inherited;
  std::uint64_t fileSizeLimit = 0;
  bool endsWithThread = false;
  int descriptorFlag = 0;
  int (*closeRange)(unsigned first, unsigned last, unsigned flags) = nullptr;
  /// Written by the child: why its program does not run.
  int failure = 0;
};

TKS_IN_THE_CHILD bool joinGroup(SpawnRequest::Group group) {
  if (group == SpawnRequest::Group::ownSession) return ::syscall(SYS_setsid) >= 0;
  return true;
}

/// The host's handlers must never run in here, and what it ignores would stay ignored in the new program.
TKS_IN_THE_CHILD void resetSignals() {
  for (const int signal : kInheritedSignals) {
    ::syscall(SYS_rt_sigaction, signal, &kDefaultHandling, nullptr, kSignalSetSize);
  }
}

/// A process that goes beyond the limit is killed by SIGXFSZ, without a core dump.
TKS_IN_THE_CHILD bool limitFiles(std::uint64_t size) {
  if (size == 0) return true;
  const std::uint64_t files[] = {size, size};
  const std::uint64_t images[] = {0, 0};
  return ::syscall(SYS_prlimit64, 0, RLIMIT_FSIZE, files, nullptr) == 0 &&
         ::syscall(SYS_prlimit64, 0, RLIMIT_CORE, images, nullptr) == 0;
}

TKS_IN_THE_CHILD bool connect(int target, int source) {
  // Even onto itself: clears close-on-exec, and tells whether there is anything at all.
  if (source == target && ::syscall(SYS_fcntl, target, F_SETFD, 0) == 0) return true;
  if (source >= kFirstForeign) return ::syscall(SYS_dup3, source, target, 0) == target;
  const auto null = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR, 0));
  if (null < 0) return false;
  if (null == target) return true;
  const bool connected = ::syscall(SYS_dup3, null, target, 0) == target;
  ::syscall(SYS_close, null);
  return connected;
}

/// The number that a name consists of; -1 for other names.
TKS_IN_THE_CHILD int numberIn(const char* name) {
  int number = -1;
  for (; *name >= '0' && *name <= '9'; ++name) number = (number < 0 ? 0 : number) * 10 + (*name - '0');
  return *name == '\0' ? number : -1;
}

/// Closes one by one what the kernel cannot close at once.
TKS_IN_THE_CHILD bool closeEach() {
  const auto folder =
      static_cast<int>(::syscall(SYS_openat, AT_FDCWD, "/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (folder < 0) return false;
  // struct linux_dirent64: 8 bytes number, 8 bytes offset, 2 bytes length of the entry, 1 byte kind, name.
  alignas(8) char entries[2048];
  bool closedSome = true;
  while (closedSome) {
    closedSome = false;
    ::syscall(SYS_lseek, folder, 0, SEEK_SET);
    long size = 0;
    while ((size = ::syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0) {
      for (long at = 0; at < size; at += *reinterpret_cast<const std::uint16_t*>(entries + at + 16)) {
        const int number = numberIn(entries + at + 19);
        if (number < kFirstForeign || number == folder) continue;
        ::syscall(SYS_close, number);
        closedSome = true;
      }
    }
  }
  ::syscall(SYS_close, folder);
  return true;
}

TKS_IN_THE_CHILD int runInChild(void* argument) {
  Plan& plan = *static_cast<Plan*>(argument);
  resetSignals();
  bool ready = joinGroup(plan.group) && limitFiles(plan.fileSizeLimit);
  if (plan.endsWithThread) ::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
  for (int target = 0; ready && target < kFirstForeign; ++target) {
    ready = connect(target, plan.sources[static_cast<std::size_t>(target)]);
  }
  if (ready && plan.closeRange(kFirstForeign, ~0u, CLOSE_RANGE_CLOEXEC) != 0) ready = closeEach();
  if (ready) {
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kNoSignals, nullptr, kSignalSetSize);
    ::syscall(SYS_execve, plan.executable, plan.arguments, plan.environment);
  }
  plan.failure = errno;
  ::syscall(SYS_exit_group, 127);
  return 127;
}

SpawnedProcess start(Plan& plan) {
  // The child's, which must not be this function's own frame. The stacks of all systems of this kind grow down.
  alignas(16) std::array<std::byte, kStackSize> stack;
  const int flags = CLONE_VM | CLONE_VFORK | plan.descriptorFlag | SIGCHLD;
  int descriptor = -1;
  std::uint64_t before = 0;
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kAllSignals, &before, kSignalSetSize);
  const pid_t process = ::__clone(runInChild, stack.data() + stack.size(), flags, &plan, &descriptor);
  const int reason = errno;
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &before, nullptr, kSignalSetSize);

  SpawnedProcess spawned{process, posix::FileDescriptor(descriptor)};
  if (spawned && plan.failure == 0) return spawned;
  if (spawned) posix::retried([&] { return ::waitpid(process, nullptr, 0); });
  errno = spawned ? plan.failure : reason;
  return {};
}

}  // namespace

SpawnedProcess spawn(const SpawnRequest& request) {
  if (!posix::canBePassed(request)) return {};
  std::vector<std::string> clean;
  if (request.cleanEnvironment) clean = posix::cleanEnvironment("C.UTF-8");
  clean.insert(clean.end(), request.variables.begin(), request.variables.end());
  if (request.environment) clean = *request.environment;
  const std::vector<char*> arguments = posix::pointersTo(request.arguments, &request.executable);
  const std::vector<char*> environment = posix::pointersTo(clean);

  Plan plan;
  plan.executable = request.executable.c_str();
  plan.arguments = arguments.data();
  plan.environment = request.cleanEnvironment || request.environment ? environment.data() : ::environ;
  plan.sources = {request.standardInput, request.standardOutput, request.standardError};
  plan.group = request.group;
  plan.fileSizeLimit = request.fileSizeLimit;
  plan.endsWithThread = request.endsWithThread;
  plan.descriptorFlag = request.makesDescriptor ? systemCalls().cloneDescriptorFlag : 0;
  plan.closeRange = systemCalls().closeRange;
  SpawnedProcess spawned = start(plan);
  if (!spawned || !request.makesDescriptor) return spawned;
  if (!spawned.descriptor) spawned.descriptor.reset(systemCalls().pidfdOpen(spawned.identifier, 0));
  if (!posix::raiseAboveStandard(spawned.descriptor)) spawned.descriptor.reset();
  return spawned;
}

}  // namespace tks::gnulinux
