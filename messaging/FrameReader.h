#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "foundation/values/Epoch.h"
#include "messaging/Frame.h"
#include "messaging/ReadAhead.h"
#include "platform/channels.h"
#include "platform/main_loop.h"

namespace tks::messaging {

/// Reads a channel ahead and hands its bytes out in pieces (see PieceCutter), for as long as it is started. All on the
/// main thread. The callbacks may call anything here and may release the reader.
///
/// Reading follows handing out: nothing is read while pieces are in hand, so that a host which drains its loop slowly
/// makes the writer wait instead of the memory grow. Each time the channel is readable at most one buffer full is
/// handled, so that a busy channel leaves the loop to others. The payload of a large frame is read into memory of its
/// own size, as it comes, and handed out whole.
class FrameReader : public std::enable_shared_from_this<FrameReader> {
 public:
  /// After the end of a channel its end is told again and again, but not more often than this.
  static constexpr std::chrono::milliseconds kEndInterval{10};
  /// Bytes that are read ahead at most, beside the payload of a large frame.
  static constexpr std::size_t kBufferBytes = PieceCutter::kMostInPieces;

  /// Takes the next piece; an empty one when the channel has ended.
  using Piece = std::function<void(std::string_view piece)>;
  /// Takes the reason why the channel failed.
  using Broken = std::function<void(const TKSError& error)>;
  /// Takes the limit of time that a frame was not whole within.
  using Slow = std::function<void(std::chrono::milliseconds limit)>;

  /// `piece` is called with each piece, and with an empty one when the channel has ended. `broken` is called instead
  /// when the channel failed, and `slow` whenever a frame takes longer than the option `frameLimit` allows. None is
  /// called while the reader is stopped. A piece is valid until the call returns.
  FrameReader(Piece piece, Broken broken, Slow slow = nullptr);

  /// Starts handing out: first what was read ahead of this very channel before the reader was stopped, then what comes.
  /// Nothing is handed out before this returns. The next byte starts a frame.
  void start(std::unique_ptr<platform::ByteSource> source);
  /// Starts with a channel that could not be opened: it counts as broken.
  void startBroken(TKSError error);
  /// What it reads from, or read from before it was stopped; nothing before the first start and after a broken one.
  const std::optional<platform::ChannelIdentity>& channel() const { return identity_; }
  /// Lets the channel go on without its name (see platform::ByteSource::dropName).
  bool dropName(TKSError* error) { return reading_.source && reading_.source->dropName(error); }
  /// Stops handing out and closes the channel. Bytes that were read ahead stay for the next start, but for those of a
  /// large frame that was begun.
  void stop();

  /// Gives back the memory that stays allocated from one large frame to the next.
  void giveMemoryBack() { ahead_.shrink(); }

 private:
  void onReadable();
  bool readOnce();
  void handOut();
  void watchFrame();
  void onSlowFrame(std::chrono::milliseconds limit);
  void onEnd();
  void tellEnd();

  /// What there is from a start to the stop after it.
  struct Reading {
    std::unique_ptr<platform::ByteSource> source;
    PieceCutter cutter;
    /// The channel has ended or failed.
    bool ended = false;
    /// Why it failed; nothing after an orderly end.
    std::optional<TKSError> failure;
    /// Tells the end again and again.
    std::unique_ptr<platform::MainLoop::Timer> endTimer;
    /// The frame that is being waited for, as PieceCutter counts them, and for how long; only with a limit.
    std::uint64_t watchedFrame = 0;
    std::unique_ptr<platform::MainLoop::Timer> frameTimer;
  };

  const Piece piece_;
  const Broken broken_;
  const Slow slow_;
  Reading reading_;
  /// Ends with each start and stop, so that work in hand notices when it is no longer wanted.
  Epoch turn_;

  /// The channel that the bytes read ahead came from.
  std::optional<platform::ChannelIdentity> identity_;
  ReadAhead ahead_{kBufferBytes};
  /// All bytes that were read, ever.
  std::uint64_t bytesRead_ = 0;
};

}  // namespace tks::messaging
