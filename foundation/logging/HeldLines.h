#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tks {

/// Holds back what this thread logs and delivers it, in order, when the scope ends. For work under a lock or under the
/// guard of something that is made once: the host's callback may call any operation, also one that needs the same lock
/// or the same thing, or wait for a thread that does. Declare it before the lock, so that it ends after it.
///
///   const HeldLines lines;
///   static const bool made = make();  // may log
///   return made;
class HeldLines {
 public:
  HeldLines() noexcept;
  ~HeldLines();
  HeldLines(const HeldLines&) = delete;
  HeldLines& operator=(const HeldLines&) = delete;

  /// The innermost scope of this thread; null outside of all.
  static HeldLines* current() noexcept;
  void keep(std::int32_t level, std::string text) { lines_.emplace_back(level, std::move(text)); }

 private:
  HeldLines* const outer_;
  std::vector<std::pair<std::int32_t, std::string>> lines_;
};

}  // namespace tks
