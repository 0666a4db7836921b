#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "platform/main_loop.h"

namespace tks::interface {

/// The launchers of this process that have not answered a greeting, as far as the option `endSilentLauncher` asks. What
/// is given up is asked to end, and killed two seconds later; what is left when the host ends, too. Any thread, but for
/// what says otherwise.
class SilentLaunchers {
 public:
  /// The only ones.
  static SilentLaunchers& shared();

  /// A launcher was started for a conversation.
  void add(std::int32_t process);
  /// It has answered, or it has ended.
  void forget(std::int32_t process);
  /// Nobody waits for its answer any more. Nothing happens to a launcher that is not among these.
  void giveUp(std::int32_t process);

 private:
  using Timers = std::map<std::int32_t, std::unique_ptr<platform::MainLoop::Timer>>;
  /// Ends those that are left when the program ends.
  struct AtExit {
    ~AtExit();
  };

  SilentLaunchers() = default;
  void askToEnd(std::int32_t process);
  void endAll();

  std::mutex mutex_;  // guards what follows
  /// The process that they are children of: a copy of it by fork ends nobody.
  std::int32_t owner_ = 0;
  /// With the timer of those that were asked to end.
  Timers launchers_;
};

}  // namespace tks::interface
