#include "messaging/LargeFrames.h"

#include "foundation/logging/HeldLines.h"
#include "platform/platform.h"

namespace tks::messaging {

void LargeFrames::note(std::size_t bytes) {
  if (bytes < kLarge) return;
  const HeldLines lines;
  const std::scoped_lock lock(mutex_);
  ++noted_;
  if (!timer_) lookLater();
}

void LargeFrames::lookLater() {
  timer_ = platform::mainLoop().after(kPause, [this] { look(); });
}

void LargeFrames::look() {
  {
    const HeldLines lines;
    const std::scoped_lock lock(mutex_);
    if (seen_ != noted_) {
      seen_ = noted_;
      return lookLater();
    }
    timer_.reset();
  }
  idle_();
}

}  // namespace tks::messaging
