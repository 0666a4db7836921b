#include "tools/tksctl/frame/interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <tksinterface/TKSMainLoop.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <utility>

#include "platform/platform.h"
#include "tools/tksctl/frame/exit_codes.h"

namespace tks::ctl {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};
/// So many end a program that does not come to its end by itself.
constexpr int kPatience = 3;

// What a signal handler may touch.
std::atomic<int> signalsHeld = 0;
std::atomic<bool> areHeld = false;
int wakingDescriptors[2] = {-1, -1};
std::string lastDocument;
int documentDescriptor = -1;

[[noreturn]] void endAtOnce() {
  (void)!::write(documentDescriptor, lastDocument.data(), lastDocument.size());
  ::_exit(static_cast<int>(Exit::interrupted));
}

void onSignal(int) {
  const int before = errno;
  if (!areHeld || ++signalsHeld >= kPatience) endAtOnce();
  (void)!::write(wakingDescriptors[1], "!", 1);
  errno = before;
}

using End = Interrupts::End;

/// What the loop is left for, beside the work of the library.
struct Watched {
  /// How many signals were noted before: one more ends it.
  int signalsBefore = 0;
  int descriptor = -1;
  std::function<void()> onReadable{};
};

End drainUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit, const Watched& also) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    TKSMainLoop::drain();
    // First: a terminal's Ctrl-C ends the launcher as well, which would look like the end that was waited for.
    if (signalsHeld > also.signalsBefore) return End::interrupted;
    if (isDone()) return End::done;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return End::timedOut;
    pollfd watched[] = {
        {TKSMainLoop::descriptor(), POLLIN, 0}, {wakingDescriptors[0], POLLIN, 0}, {also.descriptor, POLLIN, 0}};
    constexpr std::int64_t kOftenEnough = 1000;
    const int ready = ::poll(watched, std::size(watched), static_cast<int>(std::min(left.count(), kOftenEnough)));
    if (ready > 0 && watched[2].revents != 0 && also.onReadable) also.onReadable();
  }
}

}  // namespace

Interrupts::Interrupts(std::string document, int descriptor) {
  lastDocument = std::move(document);
  documentDescriptor = descriptor;
  (void)!::pipe2(wakingDescriptors, O_CLOEXEC | O_NONBLOCK);
  struct sigaction action {};
  action.sa_handler = onSignal;
  ::sigemptyset(&action.sa_mask);
  for (const int signal : kSignals) ::sigaction(signal, &action, nullptr);
}

Interrupts::~Interrupts() {
  for (const int signal : kSignals) ::signal(signal, SIG_DFL);
  areHeld = false;
  for (int& descriptor : wakingDescriptors) ::close(std::exchange(descriptor, -1));
}

void Interrupts::hold() { areHeld = true; }

bool Interrupts::came() const { return signalsHeld > 0; }

void Interrupts::endProgram() { endAtOnce(); }

Interrupts::End Interrupts::runUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit,
                                     int descriptor, const std::function<void()>& onReadable) {
  hold();
  return drainUntil(isDone, limit, {.descriptor = descriptor, .onReadable = onReadable});
}

Interrupts::End Interrupts::runAside(std::function<void()> work) {
  hold();
  constexpr std::chrono::hours kNoLimit{24 * 365};
  const auto isDone = std::make_shared<bool>(false);
  const auto run = [isDone, work = std::move(work)] {
    work();
    platform::mainLoop().post([isDone] { *isDone = true; });
  };
  if (!platform::backgroundWork().submit(run)) run();
  return runUntil([&] { return *isDone; }, kNoLimit);
}

bool Interrupts::finishWithin(std::chrono::milliseconds limit, const std::function<bool()>& isDone) {
  hold();
  const int before = signalsHeld;
  char noted[16];
  while (::read(wakingDescriptors[0], noted, sizeof noted) > 0) continue;
  return drainUntil(isDone, limit, {.signalsBefore = before}) == End::done;
}

}  // namespace tks::ctl
