#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tks::ctl {

/// Finds the messages in the bytes of one direction of a conversation, for somebody who only looks on. One thread.
class FrameFinder {
 public:
  /// `found` is called with the payload of each whole frame; `lost` once, with the reason, when what comes are no
  /// frames: nothing is found from there on.
  FrameFinder(std::function<void(std::string_view payload)> found, std::function<void(std::string_view why)> lost);

  void take(std::string_view bytes);
  /// The direction has ended. A frame that is not whole is told as lost.
  void end();

 private:
  void lose(std::string_view why);

  std::function<void(std::string_view)> found_;
  std::function<void(std::string_view)> lost_;
  std::string ahead_;
  bool isLost_ = false;
};

}  // namespace tks::ctl
