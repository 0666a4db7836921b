#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSMessage.h>
#include <tksinterface/TKSValue.h>

namespace tks::messaging {
class Transport;
}  // namespace tks::messaging

/// Receives what a message host reads. Called on the main thread.
class TKS_EXPORT TKSMessageHandlerDelegate {
 public:
  virtual ~TKSMessageHandlerDelegate() = default;
  /// `handleMessage:from:` One complete message. `sender` is the delegate itself.
  virtual void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) = 0;
  /// `handleMessageHostFatalError:` The channel or what it carried is broken; `description` says how. The host stays
  /// open unless the delegate closes it.
  virtual void handleMessageHostFatalError(const std::string& description) = 0;
};

/// Carries messages between the interface (in a host) and the launcher: frames each JSON text, writes frames to the
/// output, reassembles frames from the input and hands each complete message to its delegate.
///
///   frame   := length payload
///   length  := uint32, little-endian, bytes in payload (these four bytes do not count)
///   payload := UTF-8 JSON text, no terminator
///
/// Two kinds of channel: the process's own standard input and output ("pipe"), or a pair of files in a folder of the
/// conversation ("file"). Everything but `sendMessage` belongs to the main thread, where messages and failures arrive.
class TKS_EXPORT TKSMessageHost {
 public:
  /// `initWithType:` tksMessageHostTypeInterface or tksMessageHostTypeTKS. Chooses the channel from the main bundle's
  /// identifier and from the launch arguments "Communicate" and "TempIPCFilePath".
  explicit TKSMessageHost(std::int32_t type);
  /// Releases the handles and paths. Does not close an open conversation in good order: call `close` first.
  ~TKSMessageHost();
  TKSMessageHost(const TKSMessageHost&) = delete;
  TKSMessageHost& operator=(const TKSMessageHost&) = delete;

  /// `sharedMessengeHost` The launcher's host, made on first use; it lives as long as the process.
  static TKSMessageHost& sharedMessengeHost();

  /// `openWithMessengeHandler:` Starts reading. The delegate is not owned and must outlive the conversation. For the
  /// file channel the interface makes the folder and both files (modes 0700 and 0600); the launcher only looks at them.
  /// Problems with the files are logged; they never fail the opening.
  void openWithMessengeHandler(TKSMessageHandlerDelegate* handler);

  /// `close` Stops reading and forgets the delegate. The interface's side of a file channel removes the folder, and
  /// both sides forget the paths: set the folder again before the next opening.
  void close();

  /// `sendMessage:` Writes one message, at once as far as the channel takes it; the rest waits in order, bounded, until
  /// the channel takes more. Failures are logged. Any thread; the frames of several threads never mix.
  void sendMessage(const TKSMessage& message);

  /// `setIPCFileFolderPath:` Sets both file paths from the folder of the conversation.
  void setIPCFileFolderPath(std::string_view folderPath);

  /// `handleFatalError:` Logs the text and passes it to the delegate.
  void handleFatalError(const std::string& description);

  /// `onMessage:` Takes one piece of the input, as the reader delivers it: an empty piece on the pipe means its end.
  /// Public for those who bring bytes of their own, tests above all.
  void onMessage(std::string_view piece);

  /// Bytes of the message being reassembled. Left alone by `close`, emptied by the next opening.
  TKSData receivedData;
  /// Bytes still missing from the current message; 0: the next piece starts a new frame.
  std::uint64_t pendingDataSize = 0;
  /// True from opening to closing. May be read from any thread.
  std::atomic<bool> isOpened = false;
  /// Not owned; null while closed.
  TKSMessageHandlerDelegate* messageHandler = nullptr;
  /// True: file channel; false: pipe channel.
  bool ipcByFile = false;
  /// tksMessageHostTypeInterface or tksMessageHostTypeTKS.
  std::uint64_t type = 0;
  /// Full path of "ipcFile_TKS2Interface": the launcher writes, the interface reads.
  std::string tempIPCFileFullPathFromTKS2Interface;
  /// Full path of "ipcFile_Interface2TKS": the interface writes, the launcher reads.
  std::string tempIPCFileFullPathFromInterface2TKS;

 private:
  friend class tks::messaging::Transport;
  const std::unique_ptr<tks::messaging::Transport> transport_;
};
