#include "tools/tksctl/recording/frames.h"

#include <utility>

#include "messaging/Frame.h"

namespace tks::ctl {

FrameFinder::FrameFinder(std::function<void(std::string_view)> found, std::function<void(std::string_view)> lost)
    : found_(std::move(found)), lost_(std::move(lost)) {}

void FrameFinder::take(std::string_view bytes) {
  if (isLost_) return;
  ahead_.append(bytes);
  std::size_t done = 0;
  while (ahead_.size() - done >= messaging::kHeaderBytes) {
    const std::string_view rest = std::string_view(ahead_).substr(done);
    const std::uint64_t length = messaging::announcedLength(rest);
    if (length > messaging::largestMessage()) {
      lose("no frame: it announces " + std::to_string(length) + " bytes");
      return;
    }
    if (rest.size() - messaging::kHeaderBytes < length) break;
    found_(rest.substr(messaging::kHeaderBytes, length));
    done += messaging::kHeaderBytes + length;
  }
  ahead_.erase(0, done);
}

void FrameFinder::end() {
  if (!isLost_ && !ahead_.empty())
    lose("ended inside a frame, after " + std::to_string(ahead_.size()) + " bytes of it");
}

void FrameFinder::lose(std::string_view why) {
  isLost_ = true;
  lost_(why);
  ahead_.clear();
}

}  // namespace tks::ctl
