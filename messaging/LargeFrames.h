#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/main_loop.h"

namespace tks::messaging {

/// Notices when no more large frames follow, so that their memory can be returned. Between large frames it stays
/// allocated: taking it and giving it back costs more than the frame.
class LargeFrames {
 public:
  /// `idle` is called on the main thread, within two of these of the last large frame.
  static constexpr std::chrono::milliseconds kPause{300};
  /// Frames of this many bytes or more are large.
  static constexpr std::size_t kLarge = std::size_t{1} << 20;

  explicit LargeFrames(std::function<void()> idle) : idle_(std::move(idle)) {}

  /// A frame of that size was sent or received. Any thread.
  void note(std::size_t bytes);

 private:
  void lookLater();
  void look();

  const std::function<void()> idle_;
  std::mutex mutex_;  // guards what follows
  /// Large frames so far, and how many there were at the last look.
  std::uint64_t noted_ = 0;
  std::uint64_t seen_ = 0;
  std::unique_ptr<platform::MainLoop::Timer> timer_;
};

}  // namespace tks::messaging
