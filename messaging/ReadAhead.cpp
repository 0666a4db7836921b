#include "messaging/ReadAhead.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tks::messaging {
namespace {

/// As much memory is asked for at once; more follows when as much has come. Memory that nobody has written to is none.
constexpr std::size_t kAtOnce = std::size_t{16} << 20;

}  // namespace

std::span<char> ReadAhead::room(std::size_t awaited) {
  if (bytes().empty()) clear();
  if (awaited <= bytes().size()) {
    moveToFront();
    if (capacity_ < least_ && !grow(least_)) return {};
    return {memory_.get() + end_, least_ - std::min(end_, least_)};
  }
  const std::size_t missing = awaited - bytes().size();
  if (missing > capacity_ - end_) {
    const std::size_t wanted = std::min(missing, std::max(end_, kAtOnce));
    if (wanted > capacity_ - end_ && !grow(end_ + wanted)) return {};
  }
  return {memory_.get() + end_, std::min(missing, capacity_ - end_)};
}

void ReadAhead::shrink() {
  if (!bytes().empty() || capacity_ <= least_) return;
  clear();
  memory_.reset();
  capacity_ = 0;
}

/// As a rule nothing is left to move, or a part of a header.
void ReadAhead::moveToFront() {
  if (begin_ == 0) return;
  const std::size_t left = bytes().size();
  std::memmove(memory_.get(), memory_.get() + begin_, left);
  begin_ = 0;
  end_ = left;
}

bool ReadAhead::grow(std::size_t capacity) {
  std::unique_ptr<char[]> larger(new (std::nothrow) char[capacity]);
  if (larger == nullptr) return false;
  if (end_ > 0) std::memcpy(larger.get(), memory_.get(), end_);
  memory_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

}  // namespace tks::messaging
