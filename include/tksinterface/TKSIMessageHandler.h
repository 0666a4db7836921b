#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSMessageHost.h>

namespace tks::messaging {
class Dialogue;
}  // namespace tks::messaging

/// The interface's side of the conversation with the launcher: sends "hello", "launch_meeting" and "disconnect", reacts
/// to the answers, greets again when the transport fails before there is a connection, and turns every outcome into a
/// call of one of the callbacks below. Main thread only. A callback is taken out of its place before it is called.
class TKS_EXPORT TKSIMessageHandler : public TKSMessageHandlerDelegate {
 public:
  /// `init` All callbacks are empty; makes the message host, of the interface's type.
  TKSIMessageHandler();
  /// Closes the message host; the callbacks are dropped uncalled.
  ~TKSIMessageHandler() override;
  TKSIMessageHandler(const TKSIMessageHandler&) = delete;
  TKSIMessageHandler& operator=(const TKSIMessageHandler&) = delete;

  /// `startMessageHost` Opens the message host unless it is open.
  void startMessageHost();
  /// `stopMessageHost` Closes the message host if it is open.
  void stopMessageHost();
  /// `setIPCFileFolderPath:` The folder of the conversation, for the file channel.
  void setIPCFileFolderPath(std::string_view folderPath);

  /// `sendCommonMessageOfType:` Sends "hello" or "disconnect"; returns false for any other type.
  virtual bool sendCommonMessageOfType(std::string_view type);
  /// `sendHelloMessage:errorBlock:` Opens the message host if need be and greets the launcher.
  void sendHelloMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);
  /// `sendDisconnectMessage:errorBlock:` Asks the launcher to end the conversation.
  void sendDisconnectMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock);
  /// `sendLaunchMessage:finishBlock:errorBlock:TKSUpdateDoneBlock:` Asks the launcher to launch a meeting. An absent
  /// dictionary (nothing) is reported to the error callback, and the request is sent all the same.
  void sendLaunchMessage(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock,
                         TKSFinishBlock TKSUpdateDoneBlock);

  /// `handleMessage:from:` Reacts to one message of the launcher.
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override;
  /// `handleMessageHostFatalError:` Greets again, or closes the message host and reports the failure. Sleeps 100 ms on
  /// the calling thread before it greets again.
  void handleMessageHostFatalError(const std::string& description) override;

  /// `handleError:` Drops the finish callbacks of hello and launch and calls the error callbacks that are set.
  void handleError(const TKSError& error);
  /// `handleErrorString:` The same with the default error of a text.
  void handleErrorString(const std::string& text);
  /// `handleLaunchErrorMessageInfo:` Reports the launcher's own error to the launch error callback.
  void handleLaunchErrorMessageInfo(const TKSDictionary& info);
  /// `handleDisconnectAckMessage` Ends the conversation in good order.
  virtual void handleDisconnectAckMessage();
  /// `cleanupFinishBlocksAfterError` Drops the finish callbacks of hello and launch, uncalled.
  void cleanupFinishBlocksAfterError();
  /// `cleanupStatusBlocks` Drops the two status callbacks.
  void cleanupStatusBlocks();
  /// `cleanupConnectStatus4FileIPC` Ends a conversation over files at once; no callback of the conversation is called.
  virtual void cleanupConnectStatus4FileIPC();

  /// The transport; owned.
  std::unique_ptr<TKSMessageHost> messageHost;
  /// Called on "hello_ack"; dropped by an error.
  TKSFinishBlock helloFinishBlock;
  /// Called by handleError; dropped on "hello_ack".
  TKSErrorBlock helloErrorBlock;
  /// Called on "launch_meeting_ack"; dropped by an error.
  TKSFinishBlock launchFinishBlock;
  /// Called by errors; on "launch_meeting_ack" handed on to the disconnect.
  TKSErrorBlock launchErrorBlock;
  /// Called when the disconnect that follows "host_notify" is answered.
  TKSFinishBlock TKSUpdateDoneBlock;
  /// Called on "disconnect_ack".
  TKSFinishBlock disconnectFinishBlock;
  /// Called by handleError; dropped on "disconnect_ack".
  TKSErrorBlock disconnectErrorBlock;
  /// Told of the status: 1, 3 or 4. Stays installed over several calls.
  TKSNotifyStatusBlock notifyStatusBlock;
  /// Asked for the status when the transport fails. Stays installed over several calls.
  TKSQueryStatusBlock queryStatusBlock;

 protected:
  /// Ends a conversation of which a request can never reach the launcher: status 1, the message host closed, and the
  /// error callbacks called with `error`.
  virtual void handleRefusedRequest(const TKSError& error);

 private:
  friend class tks::messaging::Dialogue;
  const std::unique_ptr<tks::messaging::Dialogue> dialogue_;
};
