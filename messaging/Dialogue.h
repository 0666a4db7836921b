#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSIMessageHandler.h>

#include "foundation/values/Epoch.h"
#include "messaging/AnswerLimits.h"
#include "messaging/Transport.h"

namespace tks::messaging {

/// What stands behind TKSIMessageHandler: the steps of the conversation with the launcher. The callbacks and the
/// message host stay in the handler, where hosts see them. What becomes of the callbacks:
///
///   event                hello           launch          disconnect      update  notify  query
///                        finish  error   finish  error   finish  error   done
///   hello is sent        set     set
///   "hello_ack"          CALL    drop                                            3
///   launch is sent                       set     set                     set     4
///   "launch_meeting_ack"                 CALL    (moved)         (here)
///   disconnect is sent                                   set     set
///   "host_notify"                                        (own)   drop
///   "disconnect_ack"                                     CALL    drop    *       1       drop
///   "error" with a text  drop    CALL    drop    CALL            CALL
///   "error", an object   drop            drop    CALL
///   refused or broken    drop    CALL    drop    CALL            CALL            1
///   file clean-up        drop    drop    drop    drop    drop    drop    drop    1,drop  drop
///
///   *  called when the disconnect was that of "host_notify", whose own finish callback calls it
///
/// A callback is out of its place before it is called. It may go on with the conversation, end it and destroy the
/// handler: each step that calls one begins with a StepWatch, and looks at it before it goes on. Main thread only.
///
/// It knows the handler's fields and none of its operations: the steps that a class derived from the handler takes part
/// in are the operations below that the handler's own dialogue defines.
class Dialogue {
 public:
  /// Defined beside the handler.
  class OfHandler;

  explicit Dialogue(TKSIMessageHandler& handler) : handler_(handler) {}
  virtual ~Dialogue() = default;
  Dialogue(const Dialogue&) = delete;
  Dialogue& operator=(const Dialogue&) = delete;
  /// The handler is being destroyed: no step goes on.
  void close();

  // Requests.
  void startMessageHost();
  void stopMessageHost();
  bool sendCommonMessage(std::string_view type);
  void sendHello(TKSFinishBlock finish, TKSErrorBlock error);
  void sendDisconnect(TKSFinishBlock finish, TKSErrorBlock error);
  void sendLaunch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error, TKSFinishBlock updateDone);

  // Answers.
  void onMessage(const TKSMessage& message);
  void endInGoodOrder();

  // Errors and clean-ups.
  void endRefused(const TKSError& error);
  void handleFatalError(const std::string& description);
  void handleError(const TKSError& error);
  void handleErrorText(const std::string& text);
  void handleLaunchError(const TKSDictionary& info);
  void dropFinishBlocks();
  void dropStatusBlocks();
  void cleanUpFileChannel();

 protected:
  // Asked for by the steps of this class; whoever else takes part has done so when they come back to it.

  /// Comes back to sendCommonMessage.
  virtual bool send(std::string_view type) = 0;
  /// Comes back to endInGoodOrder.
  virtual void leave() = 0;
  /// Comes back to endRefused.
  virtual void refuse(const TKSError& error) = 0;

 private:
  struct Listeners;
  /// Watches one step of the conversation: says what has happened since it began.
  class StepWatch {
   public:
    explicit StepWatch(const Dialogue& dialogue)
        : life_(dialogue.life_.now()), request_(dialogue.request_.now()), talk_(dialogue.talk_.now()) {}
    /// The handler is gone: nothing of it may be touched any more.
    bool handlerIsGone() const { return life_.isOver(); }
    /// A callback has itself gone on with the conversation.
    bool hasNewRequest() const { return request_.isOver(); }
    /// The callbacks of the conversation were dropped; none may be called any more.
    bool isCleanedUp() const { return talk_.isOver(); }
    /// Tells each of them the same error, until the conversation is cleaned up.
    void tell(const Listeners& listeners, const TKSError& error) const;

   private:
    const Epoch::Moment life_;
    const Epoch::Moment request_;
    const Epoch::Moment talk_;
  };
  class Sending;

  void onHelloAck(const TKSMessage& message);
  void onLaunchAck(const TKSMessage& message);
  void onDisconnectAck(const TKSMessage& message);
  void onUpdateDone(const TKSMessage& message);
  void onError(const TKSMessage& message);
  void updateDone();

  void endIfRefused(const Sending& sending);
  void onSilence(const std::string& problem);
  void notifyStatus(TKSIAppStatus status);
  TKSIAppStatus queryStatus();
  bool greetAgain();
  void giveUp(const std::string& description);

  Transport& transport() { return Transport::of(*handler_.messageHost); }

  /// Greetings repeated since the last answer, by all handlers of the process: a new conversation does not reset it.
  static std::atomic<std::uint64_t> greetingsRepeated;

  TKSIMessageHandler& handler_;
  /// Ends with the handler.
  Epoch life_;
  /// Ends with each request, hello, launch and disconnect, and with each opening of the message host.
  Epoch request_;
  /// Ends when a conversation is ended at once, with all its callbacks dropped.
  Epoch talk_;
  /// The request that is being sent; null at other times.
  Sending* sending_ = nullptr;
  AnswerLimits limits_{[this](const std::string& problem) { onSilence(problem); }};
};

}  // namespace tks::messaging
