#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

// To be preloaded into a program and all that it starts: threads and processes pause at random, where others see what
// they do. What counts on an order that nobody promised goes wrong then, as it otherwise does once in some thousand
// runs. The environment variable TKS_DELAYS says how: "often", "usual" or "long".

namespace {

struct Delays {
  const char* name;
  /// Of a thousand calls so many pause, for at most so many microseconds.
  unsigned perThousand, longest;
  /// One process of five begins so much later, at most.
  unsigned longestStart;
};

constexpr Delays kNone{"", 0, 1, 1};
constexpr Delays kAll[] = {
    {"often", 200, 15'000, 50'000}, {"usual", 30, 40'000, 100'000}, {"long", 15, 400'000, 700'000}};
/// All pauses of a process together: who makes a hundred thousand calls still comes to an end.
constexpr unsigned long kMost = 2'000'000;

const Delays& chosen() {
  const char* wanted = std::getenv("TKS_DELAYS");
  for (const Delays& each : kAll) {
    if (wanted != nullptr && std::string_view(wanted) == each.name) return each;
  }
  return kNone;
}

// No local static here needs to be set up at run time: that has a lock, whose calls pause too.

/// Another row of numbers in each process, and in each run. (The generator is splitmix64.)
std::uint64_t nextNumber() {
  static std::atomic<std::uint64_t> state = 0;
  if (state == 0) {
    // What the system gives each process for such things. Programs may have a clock of their own.
    std::uint64_t drawn = 0;
    std::memcpy(&drawn, reinterpret_cast<const void*>(::getauxval(AT_RANDOM)), sizeof drawn);
    state = drawn | 1;
  }
  std::uint64_t z = state += 0x9E3779B97F4A7C15;
  z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
  z = (z ^ z >> 27) * 0x94D049BB133111EB;
  return z ^ z >> 31;
}

void sleepFor(unsigned long microseconds) {
  static std::atomic<unsigned long> slept = 0;
  if ((slept += microseconds) > kMost) return;
  const int reason = errno;
  const timespec time{static_cast<time_t>(microseconds / 1'000'000),
                      static_cast<long>(microseconds % 1'000'000) * 1'000};
  ::clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
  errno = reason;
}

void maybePause() {
  static std::atomic<const Delays*> known = nullptr;
  if (known == nullptr) known = &chosen();
  const Delays& delays = *known;
  if (const std::uint64_t drawn = nextNumber(); drawn % 1'000 < delays.perThousand) {
    sleepFor((drawn >> 20) % delays.longest);
  }
}

__attribute__((constructor)) void maybeBeginLate() {
  if (const std::uint64_t drawn = nextNumber(); drawn % 5 == 0) sleepFor((drawn >> 20) % chosen().longestStart);
}

/// The function of that name which the program would have called.
template <typename Function>
Function* nextOf(std::atomic<Function*>& known, const char* name) {
  if (known == nullptr) known = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
  return known;
}

struct Begin {
  void* (*work)(void*);
  void* argument;
};

void* beginLate(void* given) {
  const Begin begin = *std::unique_ptr<Begin>(static_cast<Begin*>(given));
  maybePause();
  return begin.work(begin.argument);
}

}  // namespace

// Named by the symbol, because each system header declares its calls in its own way.
#define TKS_DELAYED(result, name, parameters, ...)                                                   \
  extern "C" __attribute__((visibility("default"))) result delayed_##name parameters __asm__(#name); \
  extern "C" result delayed_##name parameters {                                                      \
    static std::atomic<result(*) parameters> known = nullptr;                                        \
    maybePause();                                                                                    \
    const auto done = nextOf(known, #name)(__VA_ARGS__);                                             \
    maybePause();                                                                                    \
    return done;                                                                                     \
  }

TKS_DELAYED(ssize_t, read, (int file, void* into, std::size_t size), file, into, size)
TKS_DELAYED(ssize_t, write, (int file, const void* from, std::size_t size), file, from, size)
TKS_DELAYED(ssize_t, writev, (int file, const iovec* pieces, int count), file, pieces, count)
TKS_DELAYED(ssize_t, send, (int file, const void* from, std::size_t size, int flags), file, from, size, flags)
TKS_DELAYED(ssize_t, recv, (int file, void* into, std::size_t size, int flags), file, into, size, flags)
TKS_DELAYED(int, close, (int file), file)
TKS_DELAYED(int, poll, (pollfd * files, nfds_t count, int time), files, count, time)
TKS_DELAYED(int, epoll_wait, (int file, epoll_event* events, int count, int time), file, events, count, time)
TKS_DELAYED(int, kill, (pid_t process, int number), process, number)
TKS_DELAYED(pid_t, fork, ())
TKS_DELAYED(pid_t, waitpid, (pid_t process, int* status, int options), process, status, options)
TKS_DELAYED(int, waitid, (idtype_t kind, id_t id, siginfo_t* facts, int options), kind, id, facts, options)
TKS_DELAYED(int, unlink, (const char* path), path)
TKS_DELAYED(int, unlinkat, (int folder, const char* path, int flags), folder, path, flags)
TKS_DELAYED(int, rename, (const char* from, const char* to), from, to)
TKS_DELAYED(int, renameat2, (int a, const char* from, int b, const char* to, unsigned flags), a, from, b, to, flags)
TKS_DELAYED(int, pthread_cond_signal, (pthread_cond_t * condition), condition)
TKS_DELAYED(int, pthread_mutex_unlock, (pthread_mutex_t * mutex), mutex)

/// Such as the calls that the C library has no function for: pidfd_open, pidfd_send_signal, close_range.
TKS_DELAYED(long, syscall, (long number, long a, long b, long c, long d, long e, long f), number, a, b, c, d, e, f)

extern "C" __attribute__((visibility("default"))) int delayed_create(pthread_t*, const pthread_attr_t*,
                                                                     void* (*)(void*), void*) __asm__("pthread_create");
extern "C" int delayed_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*work)(void*),
                              void* argument) {
  static std::atomic<decltype(&delayed_create)> known = nullptr;
  auto begin = std::make_unique<Begin>(Begin{work, argument});
  const int result = nextOf(known, "pthread_create")(thread, attributes, beginLate, begin.get());
  if (result == 0) (void)begin.release();
  maybePause();
  return result;
}
