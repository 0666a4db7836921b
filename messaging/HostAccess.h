#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <tksinterface/TKSMessageHost.h>

#include "messaging/LargeFrames.h"
#include "messaging/MessageFiles.h"

namespace tks::messaging {

/// What a message host knows of its present opening and its frames, beside its public fields.
struct Opening {
  explicit Opening(std::function<void()> giveMemoryBack) : largeFrames(std::move(giveMemoryBack)) {}

  LargeFrames largeFrames;
  /// Why its channel of files cannot be used.
  std::optional<TKSError> failure;
  /// A "disconnect_ack" was sent or received: what becomes of the channel now is in order. Any thread.
  std::atomic<bool> saidFarewell = false;
  /// The folder of an interface's conversation, from before the opening until the closing.
  std::shared_ptr<MessageFolderHold> hold;
};

/// What the library itself asks of a message host, beyond what is public.
class HostAccess {
 public:
  /// `sendMessage:`, for those who have to know: why the message can never reach the other end. Nothing when it was
  /// written or waits, and when the pipe failed, which the reader tells. Any thread.
  static std::optional<TKSError> handOver(TKSMessageHost& host, const TKSMessage& message);

  /// Why an open host cannot talk over its files; nothing while it can, and over pipes. Main thread only.
  static std::optional<TKSError> openingFailure(const TKSMessageHost& host) { return host.opening_->failure; }

  /// `setIPCFileFolderPath:` with a new folder, which is made here and now so that no other host has the same: the one
  /// at `path`, which ends in digits, or when something is there the one that counts one more, and so on. Returns the
  /// folder's path. One that cannot be made is set all the same, for the opening to report. Main thread only.
  static std::string useNewFolder(TKSMessageHost& host, std::string path);

  /// Lets go of the memory that is kept from one frame to the next. Main thread only.
  static void giveMemoryBack(TKSMessageHost& host);
};

}  // namespace tks::messaging
