#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>

#include "platform/child_processes.h"
#include "tools/tksctl/frame/interrupts.h"

namespace tks::ctl {

/// A command that plays the launcher: its standard input and output are joined to descriptors 1 and 0 of this process,
/// as those of a launcher are to its host. Main thread; must outlive its end or the last turn of the main loop.
class JoinedCommand {
 public:
  /// Starts it; false, and the error, when it cannot be started. The first word is the path of the executable. Without
  /// `isJoined` it gets the standard handles of this process: for a conversation over files.
  bool start(const std::vector<std::string>& words, TKSError* error, bool isJoined = true);

  const std::string& executable() const { return executable_; }
  std::int32_t processIdentifier() const { return processIdentifier_; }
  bool hasEnded() const { return end_.has_value(); }
  /// How it ended, in words: "exit code: 0".
  std::string endInWords() const;
  bool succeeded() const;
  /// Ends it, by force when it does not end within two seconds.
  void end(Interrupts& interrupts);

 private:
  std::string executable_;
  std::int32_t processIdentifier_ = 0;
  std::optional<platform::ChildEnd> end_;
};

}  // namespace tks::ctl
