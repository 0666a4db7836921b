#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/channels.h"

namespace tks::messaging {

/// The way out of a message host. Frames are written at once, on the caller's thread, as far as the channel takes them;
/// the rest waits in order and follows from the main loop, also after the host was closed. Any thread; frames never
/// mix.
///
/// What waits is bounded: a frame that would bring it beyond four messages of the largest size is refused as a whole.
/// Failures are logged here, at level 8; no half frame is left behind but on a channel that broke.
class SendingQueue : public std::enable_shared_from_this<SendingQueue> {
 public:
  /// Sends to `sink` from now on. Null: there is no channel, and sending fails. What still waits for this very channel
  /// stays in front; what waits for another one can no longer be sent.
  void open(std::shared_ptr<platform::ByteSink> sink);
  /// Lets go of the channel, once what waits for it is written.
  void close();
  /// Lets go of the channel at once.
  void abandon();

  /// An empty buffer to make a frame in, with the room of an earlier one.
  std::string takeBuffer();
  /// Sends one whole frame.
  void send(std::string frame);

  std::size_t waitingBytes() const;

 private:
  std::optional<TKSError> write(std::string& frame);
  std::optional<TKSError> writeWaiting(const platform::ByteSink* sink);
  void keepBuffer(std::string& buffer);
  void awaitRoom();
  std::string_view waiting() const { return std::string_view(waiting_).substr(waitingFrom_); }
  std::size_t dropWaiting();

  mutable std::mutex mutex_;
  std::shared_ptr<platform::ByteSink> sink_;
  /// What the channel refused, without borders between frames, from `waitingFrom_` on.
  std::string waiting_;
  std::size_t waitingFrom_ = 0;
  /// The sink will call when it takes bytes again.
  bool awaitingRoom_ = false;
  bool closing_ = false;
  std::string spareBuffer_;
};

}  // namespace tks::messaging
