#pragma once

#include <string_view>

#include "platform/posix/file_descriptor.h"
#include "tools/tksctl/recording/frames.h"
#include "tools/tksctl/recording/recorder.h"

namespace tks::ctl {

/// One direction of a conversation that is passed on byte for byte and recorded on the way.
class Passage {
 public:
  /// Works on copies of the descriptors; the caller closes its own.
  Passage(int from, int to, Direction direction, Recorder& recorder);

  /// Passes on until either end is gone, then closes both, so that the end is passed on too. Once `stop` is readable,
  /// only what is there already. On a thread of its own.
  void run(int stop);

 private:
  bool waitForBytes(int stop) const;
  RecordedEvent made(std::string_view event, std::string_view note) const;

  posix::FileDescriptor from_;
  posix::FileDescriptor to_;
  const Direction direction_;
  Recorder& recorder_;
  FrameFinder frames_;
};

}  // namespace tks::ctl
