#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/posix/file_descriptor.h"
#include "tools/tksctl/recording/recording.h"

namespace tks::ctl {

/// Writes a recording, each event as it happens: what was recorded before a crash is kept. Any thread.
class Recorder {
 public:
  /// Begins a recording in a file that only this user can read; what was in the file is gone. Null, and the error, when
  /// it cannot be made.
  static std::unique_ptr<Recorder> create(std::string_view path, TKSError* error);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Records the conversations of this process from now on, and tells who watched them before as well. That one must
  /// live longer.
  void watch();
  /// Records one event of another process's conversation, which happens now.
  void add(RecordedEvent event);
  /// Whether everything could be written.
  bool isWhole() const;

 private:
  explicit Recorder(posix::FileDescriptor file);
  void write(const RecordedEvent& event);
  void writeText(std::string_view text);

  mutable std::mutex mutex_;
  posix::FileDescriptor file_;
  const std::chrono::steady_clock::time_point beginning_ = std::chrono::steady_clock::now();
  bool isWhole_ = true;
  bool isWatching_ = false;
  TKSConversationObserver::Block before_;
};

}  // namespace tks::ctl
