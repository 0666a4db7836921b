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
/// the rest waits in order and is written from the main loop, even after the host was closed. Any thread; frames never
/// mix.
///
/// What waits is bounded: a frame that would have to wait after others, and would bring them beyond four messages of
/// the largest size, is refused as a whole. While nothing waits a frame of any size is taken: the channel may take it
/// at once. Failures are logged here, at level 8. Half a frame is left on a channel only when it broke.
class SendingQueue : public std::enable_shared_from_this<SendingQueue> {
 public:
  /// Why a frame was not sent.
  struct Refusal {
    /// What is wrong.
    TKSError error;
    /// The channel itself failed: the reader will learn of it too.
    bool channelFailed = false;
  };

  /// Sends to `sink` from now on. Null: there is no channel, and sending fails. What still waits for this very channel
  /// stays in front; what waits for another one can no longer be sent.
  void open(std::shared_ptr<platform::ByteSink> sink);
  /// Lets the channel go on without its name (see platform::ByteSink::dropName).
  bool dropName(TKSError* error);
  /// Closes the channel once everything that waits for it is written.
  void close();
  /// Closes the channel at once and drops what waits for it.
  void abandon();

  /// An empty buffer to make a frame in, with the room of an earlier one.
  std::string takeBuffer();
  /// Sends one whole frame. Nothing when it was written or waits; otherwise why it never will be, which is logged.
  std::optional<Refusal> send(std::string frame);

  /// Lets go of the buffer that is kept for the next frame.
  void dropSpareBuffer();

  /// Bytes that the channel has not taken yet.
  std::size_t waitingBytes() const;

 private:
  std::optional<Refusal> write(std::string& frame);
  /// Lets a frame wait after those that wait already.
  std::optional<Refusal> append(const std::string& frame);
  std::optional<TKSError> writeWaiting(const platform::ByteSink* sink);
  void keepBuffer(std::string& buffer);
  void awaitRoom();

  /// The channel, and what waits for it: replaced as a whole.
  struct Channel {
    /// Null while there is no channel.
    std::shared_ptr<platform::ByteSink> sink;
    /// What the channel refused, frame after frame, from `sent` on.
    std::string kept{};
    /// Bytes at the front of `kept` that the channel has taken.
    std::size_t sent = 0;
    /// The sink will call when it takes bytes again.
    bool awaitsRoom = false;
    /// To be closed once nothing waits.
    bool closing = false;

    std::string_view waiting() const { return std::string_view(kept).substr(sent); }
  };
  /// Lets another channel take the place of the present one, which is returned.
  Channel replaceChannel(std::shared_ptr<platform::ByteSink> sink);

  mutable std::mutex mutex_;  // guards what follows
  Channel channel_;
  /// The buffer of an earlier frame, empty, for the next one.
  std::string spareBuffer_;
};

}  // namespace tks::messaging
