#include <poll.h>

#include <chrono>
#include <optional>

#include <tksinterface/tksinterface.h>

// A host's plug-in, which brings the library with it.

extern "C" {

/// Starts background work, waits for its answer on the main thread, and returns whether it came.
__attribute__((visibility("default"))) bool useLibrary() {
  bool answered = false;
  TKSUtilBase::launchAppWithExePath("/nowhere/A.app/Contents/MacOS/A", {},
                                    [&](const std::optional<TKSRunningApplication>& application,
                                        const std::optional<TKSError>& error) { answered = !application && error; });
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!answered && std::chrono::steady_clock::now() < end) {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    ::poll(&watched, 1, 100);
    TKSMainLoop::drain();
  }
  return answered;
}
}
