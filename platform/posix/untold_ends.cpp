#include "platform/posix/untold_ends.h"

namespace tks::posix {

using platform::ChildEnd;

UntoldEnds& UntoldEnds::shared() {
  static auto& ends = *new UntoldEnds;
  return ends;
}

std::uint64_t UntoldEnds::add(std::int32_t process, ChildEnd end) {
  const std::scoped_lock lock(mutex_);
  untold_.emplace(++added_, Untold{process, end});
  return added_;
}

void UntoldEnds::remove(std::uint64_t number) {
  const std::scoped_lock lock(mutex_);
  untold_.erase(number);
}

std::optional<ChildEnd> UntoldEnds::find(std::int32_t process) {
  const std::scoped_lock lock(mutex_);
  for (auto untold = untold_.rbegin(); untold != untold_.rend(); ++untold) {
    if (untold->second.process == process) return untold->second.end;
  }
  return std::nullopt;
}

}  // namespace tks::posix
