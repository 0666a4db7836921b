#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSError.h>
#include <tksinterface/TKSMessageHost.h>

#include "foundation/values/Epoch.h"
#include "messaging/LargeFrames.h"
#include "messaging/MessageFiles.h"
#include "messaging/PiecePlan.h"

namespace tks::messaging {

class FrameReader;
class SendingQueue;

/// What stands behind TKSMessageHost: its channel, what it knows of its present opening, and the steps of opening,
/// sending and receiving. What the description calls a host's fields stays in the host, where delegates see it.
///
/// Delegates may end the conversation, begin another one and destroy the host while they are called: whoever calls one
/// keeps a moment of `conversation_` and looks at it before it goes on. Main thread only, but for what says otherwise.
class Transport {
 public:
  explicit Transport(TKSMessageHost& host);
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  static Transport& of(TKSMessageHost& host) { return *host.transport_; }

  // The operations of TKSMessageHost.
  void chooseChannel();
  void setFolder(std::string_view path);
  void open(TKSMessageHandlerDelegate* delegate);
  void close();
  void onMessage(std::string_view piece);
  void handleFatalError(const std::string& description);

  // What the library itself asks of a host, beyond what is public.

  /// `sendMessage:`, and why the message can never reach the other end. Nothing when it was written or waits, and when
  /// the pipe failed, because the reader tells that. Any thread.
  std::optional<TKSError> handOver(const TKSMessage& message);

  /// Why an open host cannot talk over its files; nothing while it can, and over pipes.
  const std::optional<TKSError>& openingFailure() const { return failure_; }

  /// `setIPCFileFolderPath:` with a new folder, which is made here and now so that no other host has the same: the one
  /// at `path`, which ends in digits, or when something is there the one that counts one more, and so on. Returns the
  /// folder's path. One that cannot be made is set all the same; the opening reports it.
  std::string useNewFolder(std::string path);

  /// Who has to be at the other end of this opening's files, as far as the option `checkFilePeer` asks: a process that
  /// this one has started; 0 before it is there, when nobody is.
  void expectPeer(std::int32_t process) { peer_ = {.process = process, .isExpected = true, .isProven = false}; }

  /// Returns the memory that stays allocated from one frame to the next.
  void giveMemoryBack();

 private:
  // Opening and closing.
  MessageFiles files() const;
  bool isInterface() const;
  void makeReader();
  void openStandardHandles();
  void createFileHandle();
  void openFiles(const std::string& inputPath, const std::string& outputPath);
  void onUnopenedFile(const std::string& path, const TKSError& error);
  void closeStandardHandles();
  void destroyFileHandle();

  // Receiving.
  std::string_view begin(const PiecePlan& plan);
  std::string_view resume(const PiecePlan& plan);
  std::string_view append(const PiecePlan& plan);
  void deliver(std::string_view inPlace);
  void onBrokenInput(const TKSError& error);
  void onSlowFrame(std::chrono::milliseconds limit);
  bool isFromPeer();
  /// Where the options want it, removes the names of a conversation's files once the launcher has them open.
  void dropFileNames();

  /// Tells who watches the conversations of this process. Any thread.
  void tellObserver(TKSConversationEvent::Kind kind, std::string_view text) const noexcept;

  TKSMessageHost& host_;
  /// The way in; null while there is none.
  std::shared_ptr<FrameReader> input_;
  /// The way out.
  const std::shared_ptr<SendingQueue> output_;
  /// Ends with each opening and with the host. A conversation that was only closed is not over in this sense: what is
  /// left to do for it writes its lines.
  Epoch conversation_;
  LargeFrames largeFrames_;
  /// Why this opening's channel of files cannot be used.
  std::optional<TKSError> failure_;
  /// A "disconnect_ack" was sent or received since the opening: what becomes of the channel now is in order. Any
  /// thread.
  std::atomic<bool> saidFarewell_ = false;
  struct Peer {
    std::int32_t process = 0;
    bool isExpected = false;
    /// It had the file open when the first message came.
    bool isProven = false;
  };
  Peer peer_;
  /// The folder of an interface's conversation, from before the opening until the closing.
  std::shared_ptr<MessageFolderHold> hold_;
  /// The files of this opening have no names any more, and their folder is removed.
  bool isNameless_ = false;
};

}  // namespace tks::messaging
