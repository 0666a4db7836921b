#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "platform/child_processes.h"

namespace tks::posix {

/// The ends of children that are known and that the main thread has still to tell. Any thread.
class UntoldEnds {
 public:
  /// The only ones; never destroyed.
  static UntoldEnds& shared();

  /// Returns the number to remove the end by when it is told.
  std::uint64_t add(std::int32_t process, platform::ChildEnd end);
  void remove(std::uint64_t number);
  /// The end of a process; the latest, when the same number was given to several.
  std::optional<platform::ChildEnd> find(std::int32_t process);

 private:
  struct Untold {
    std::int32_t process;
    platform::ChildEnd end;
  };

  UntoldEnds() = default;

  std::mutex mutex_;
  std::uint64_t added_ = 0;
  std::map<std::uint64_t, Untold> untold_;
};

}  // namespace tks::posix
