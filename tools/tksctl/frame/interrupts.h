#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tks::ctl {

/// Ctrl-C and SIGTERM. At first either ends the program at once with exit code 130, which is right for commands that
/// only read. A command with something to finish or to clean up holds them and looks, now and then, whether one came.
/// One object a program; main thread.
class Interrupts {
 public:
  /// From now on the signals are this object's. `document` goes to `descriptor` before the program ends at once.
  Interrupts(std::string document, int descriptor);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  /// From now on a signal is only noted; a third one ends the program all the same.
  void hold();
  /// Whether one was noted.
  bool came() const;
  /// Ends the program as a signal does that nobody holds: for work that cannot be called off, once its traces are gone.
  [[noreturn]] void endProgram();

  enum class End { done, timedOut, interrupted };
  /// Runs the library's main loop until `isDone`, for at most `limit`, or until a signal comes. Holds signals.
  /// `descriptor` is watched as well, where there is one: `onReadable` is called as long as it is readable.
  End runUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit, int descriptor = -1,
               const std::function<void()>& onReadable = {});
  /// Runs what cannot be called off on a background thread, and the main loop meanwhile, until it is done or a signal
  /// comes: then it runs on, and whoever waited removes its traces and ends the program. Without a thread to be had it
  /// runs here, and a third signal ends it. What it writes has to outlive this call. Holds signals.
  End runAside(std::function<void()> work);
  /// The same as runUntil for what is done after a signal too, such as a goodbye: only one more signal ends it, because
  /// whoever presses Ctrl-C twice does not want to wait. Whether it came to `isDone`.
  bool finishWithin(std::chrono::milliseconds limit, const std::function<bool()>& isDone);
};

}  // namespace tks::ctl
