#pragma once

#include <cstddef>
#include <memory>

#include <simdjson.h>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueBuilder.h"
#include "platform/linux/text/json_windows.h"

namespace tks::gnulinux {

/// Lists in one another; more are an error.
inline constexpr std::size_t kDeepestJson = 512;

/// An open list: how many values stood on the stack before its own, and how it ends.
struct JsonLevel {
  std::size_t first;
  char closing;
};

/// Memory for the values of open lists.
class JsonValueStack {
 public:
  using Slot = value::StackBuilder::Slot;

  Slot* slots() const noexcept { return slots_.get(); }
  std::size_t size() const noexcept { return size_; }
  /// Larger memory, for at least so many values, whose content the caller copies. What was there before stays until
  /// `replaceBy`. Throws std::bad_alloc.
  std::unique_ptr<Slot[]> larger(std::size_t& wanted) const;
  void replaceBy(std::unique_ptr<Slot[]> larger, std::size_t size) noexcept;

 private:
  std::unique_ptr<Slot[]> slots_;
  std::size_t size_ = 0;
};

/// Makes the value of a text whose top level is an object or an array, from the present window on, which is the first
/// one. When the first window is not the whole text, errors only tell that there is one. Throws std::bad_alloc.
simdjson::error_code readJsonDocument(JsonWindows& windows, JsonValueStack& stack, TKSValue& value);

}  // namespace tks::gnulinux
