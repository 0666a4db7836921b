#include "interface/SilentLaunchers.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include <tksinterface/TKSILog.h>

#include "foundation/Options.h"
#include "platform/platform.h"

namespace tks::interface {
namespace {

/// Between asking a launcher to end and killing it.
constexpr std::chrono::seconds kGrace{2};
/// The same when the host ends, which is not to be held up for long.
constexpr std::chrono::milliseconds kGraceAtExit{1000};
constexpr std::chrono::milliseconds kBetweenLooks{20};

void kill(std::int32_t process) {
  if (!platform::childProcesses().end(process, true)) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Killed the launcher that never answered, PID: %d", process);
}

}  // namespace

SilentLaunchers& SilentLaunchers::shared() {
  static auto& launchers = *new SilentLaunchers;
  return launchers;
}

void SilentLaunchers::add(std::int32_t process) {
  if (!options().endSilentLauncher) return;
  static const AtExit atExit{};
  const std::scoped_lock lock(mutex_);
  owner_ = platform::thisProcess().identifier();
  launchers_.insert_or_assign(process, nullptr);
}

void SilentLaunchers::forget(std::int32_t process) {
  Timers::node_type forgotten;  // its timer goes without the lock
  const std::scoped_lock lock(mutex_);
  forgotten = launchers_.extract(process);
}

void SilentLaunchers::giveUp(std::int32_t process) {
  {
    const std::scoped_lock lock(mutex_);
    if (!launchers_.contains(process)) return;
  }
  if (platform::mainLoop().isMainThread()) return askToEnd(process);
  platform::mainLoop().post([this, process] { askToEnd(process); });
}

/// On the main thread, where the timers are.
void SilentLaunchers::askToEnd(std::int32_t process) {
  {
    const std::scoped_lock lock(mutex_);
    const auto found = launchers_.find(process);
    if (found == launchers_.end() || found->second) return;
    found->second = platform::mainLoop().after(kGrace, [this, process] {
      forget(process);
      kill(process);
    });
  }
  if (!platform::childProcesses().end(process, false)) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Asked the launcher that never answered to end, PID: %d", process);
}

void SilentLaunchers::endAll() {
  std::vector<std::int32_t> left;
  {
    const std::scoped_lock lock(mutex_);
    if (owner_ != platform::thisProcess().identifier()) return;
    for (const auto& [process, timer] : launchers_) left.push_back(process);
  }
  const auto hasEnded = [](std::int32_t process) { return platform::childProcesses().untoldEnd(process).has_value(); };
  std::erase_if(left, [](std::int32_t process) { return !platform::childProcesses().end(process, false); });
  for (auto waited = kBetweenLooks; !left.empty() && waited <= kGraceAtExit; waited += kBetweenLooks) {
    platform::clock().sleep(kBetweenLooks);
    std::erase_if(left, hasEnded);
  }
  for (const std::int32_t process : left) platform::childProcesses().end(process, true);
}

SilentLaunchers::AtExit::~AtExit() { shared().endAll(); }

}  // namespace tks::interface
