// A host whose steps stand in one coroutine, in the order in which they happen: start, launch, launch again, stop. It
// needs nothing but the standard library.
//
//   loop_coroutine LAUNCHER    launches meetings through the launcher at this path

#include <tksinterface/loops/coroutines.h>
#include <tksinterface/tksinterface.h>

#include <coroutine>
#include <exception>
#include <iostream>

namespace {

/// A coroutine that begins at once and that nobody waits for.
struct Steps {
  struct promise_type {
    Steps get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

/// Says what became of a step; false when it failed.
bool succeeded(const char* step, const std::optional<TKSError>& error) {
  std::cerr << step << (error ? ": " + error->localizedDescription : " done") << "\n";
  return !error;
}

Steps playMeetings(int& exitCode) {
  const TKSDictionary meeting{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}};
  if (succeeded("start", co_await tks::start()) && succeeded("launch", co_await tks::launch(meeting)) &&
      succeeded("stop", co_await tks::stop())) {
    std::cerr << "The meeting was launched.\n";
    exitCode = 0;
  }
  TKSMainLoop::stop();
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return 2;
  int exitCode = 1;
  TKSInterface::sharedInstance().setTKSAppPath(arguments[1]);
  playMeetings(exitCode);
  TKSMainLoop::run();
  return exitCode;
}
