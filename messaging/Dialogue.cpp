#include "messaging/Dialogue.h"

#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <tksinterface/TKSURL.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "messaging/MessageText.h"

// Requests and their answers.

namespace tks::messaging {
namespace {

/// The address of the site that a launch concerns, when the parameters name one.
std::optional<std::string> domainOf(const TKSValue& param) {
  const TKSValue& siteDomain = param[tks_param_key_gpcsitedomain];
  const TKSValue& source = siteDomain.isNothing() ? param[tks_param_key_gpcurlroot] : siteDomain;
  if (!source.isText()) return std::nullopt;
  const std::optional<TKSURL> url = TKSURL::URLWithString(source.text());
  return url ? std::optional(url->absoluteString()) : std::nullopt;
}

/// A message whose body is the name of its type.
TKSMessage commonMessage(std::string_view type) {
  TKSMessage message;
  message.messageType = type;
  message.message = type;
  return message;
}

}  // namespace

/// A step that sends a request. Why the request can never reach the launcher is noted here while it is handed over,
/// and forgotten with the step.
class Dialogue::Sending {
 public:
  explicit Sending(Dialogue& dialogue)
      : step(dialogue), dialogue_(dialogue), outer_(std::exchange(dialogue.sending_, this)) {}
  ~Sending() {
    if (!step.handlerIsGone()) dialogue_.sending_ = outer_;
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  const StepWatch step;
  std::optional<TKSError> refusal;

 private:
  Dialogue& dialogue_;
  Sending* const outer_;
};

void Dialogue::close() {
  life_.end();
  request_.end();
  talk_.end();
  if (handler_.messageHost) stopMessageHost();
}

// Requests.

void Dialogue::startMessageHost() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "-[TKSIMessageHandler startMessageHost]");
  if (handler_.messageHost->isOpened) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host has been started, and don't need start again.");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host not started yet, start host.");
  request_.end();
  handler_.messageHost->openWithMessengeHandler(&handler_);
}

void Dialogue::stopMessageHost() {
  limits_.forgetAll();
  TKSILog::logWithLevel(TKSILogLevelInfo, "-[TKSIMessageHandler stopMessageHost]");
  if (!handler_.messageHost->isOpened) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host running, stop it.");
  handler_.messageHost->close();
}

bool Dialogue::sendCommonMessage(std::string_view type) {
  if (type != tks_message_type_hello && type != tks_message_type_disconnect) {
    TKSILog::logWithLevel(TKSILogLevelError, "Not able to handle message type: %@", type);
    return false;
  }
  const StepWatch step(*this);
  std::optional<TKSError> refusal = transport().handOver(commonMessage(type));
  if (step.handlerIsGone()) return true;
  using Request = AnswerLimits::Request;
  if (!refusal) limits_.sent(type == tks_message_type_hello ? Request::hello : Request::disconnect);
  if (sending_ != nullptr) sending_->refusal = std::move(refusal);
  return true;
}

void Dialogue::sendHello(TKSFinishBlock finish, TKSErrorBlock error) {
  request_.end();
  startMessageHost();
  Sending sending(*this);
  handler_.helloFinishBlock = std::move(finish);
  handler_.helloErrorBlock = std::move(error);
  send(tks_message_type_hello);
  endIfRefused(sending);
}

void Dialogue::sendDisconnect(TKSFinishBlock finish, TKSErrorBlock error) {
  request_.end();
  handler_.disconnectFinishBlock = std::move(finish);
  handler_.disconnectErrorBlock = std::move(error);
  Sending sending(*this);
  const bool isOpened = handler_.messageHost->isOpened;
  send(tks_message_type_disconnect);
  if (isOpened) endIfRefused(sending);
}

void Dialogue::sendLaunch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error,
                          TKSFinishBlock updateDone) {
  request_.end();
  Sending sending(*this);
  const StepWatch& step = sending.step;
  if (!param.isDictionary()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Launch param nil!");
    callHost("errorBlock", error, defaultError(TKSErrorReason::invalidArgument, "Launch param nil!"));
    // The request goes on without parameters, unless the host has turned to another one.
    if (step.handlerIsGone() || step.hasNewRequest()) return;
  }
  handler_.launchFinishBlock = std::move(finish);
  handler_.launchErrorBlock = std::move(error);
  handler_.TKSUpdateDoneBlock = std::move(updateDone);

  TKSMessage message;
  message.messageType = tks_message_type_launch_meeting;
  message.domain = domainOf(param);
  message.message = param;
  notifyStatus(TKSI_APP_STATUS_LAUNCHING);
  if (step.handlerIsGone()) return;
  std::optional<TKSError> refusal = transport().handOver(message);
  if (step.handlerIsGone()) return;
  if (!refusal) return limits_.sent(AnswerLimits::Request::launch);
  // The launcher is not left waiting for the job.
  if (handler_.messageHost->isOpened) send(tks_message_type_disconnect);
  sending.refusal = std::move(refusal);
  endIfRefused(sending);
}

/// A launcher that is silent for too long is treated like one that cannot be reached.
void Dialogue::onSilence(const std::string& problem) {
  const StepWatch step(*this);
  TKSILog::logWithLevel(TKSILogLevelError, "Limit of time reached: %@", problem);
  if (!step.handlerIsGone()) handler_.handleRefusedRequest(defaultError(TKSErrorReason::notAnswered, problem));
}

/// A request that can never reach the launcher will not be answered.
void Dialogue::endIfRefused(const Sending& sending) {
  if (sending.step.handlerIsGone() || !sending.refusal || sending.step.hasNewRequest()) return;
  const std::string text = formatted("Send message failed: %@", sending.refusal->localizedDescription);
  refuse(defaultError(reasonOf(*sending.refusal, TKSErrorReason::channelFailed), text));
}

// Answers.

void Dialogue::onMessage(const TKSMessage& message) {
  struct Known {
    std::string_view type;
    void (Dialogue::*on)(const TKSMessage& message);
  };
  const Known known[] = {
      {tks_message_type_hello_ack, &Dialogue::onHelloAck},
      {tks_message_type_launch_meeting_ack, &Dialogue::onLaunchAck},
      {tks_message_type_disconnect_ack, &Dialogue::onDisconnectAck},
      {tks_message_type_update_done, &Dialogue::onUpdateDone},
      {tks_message_type_error, &Dialogue::onError},
  };
  const std::string type = message.messageType.value_or("(null)");
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle message of type: %@", ReceivedText(type));
  for (const Known& one : known) {
    if (one.type == type) return (this->*one.on)(message);
  }
}

void Dialogue::onHelloAck(const TKSMessage&) {
  const StepWatch step(*this);
  limits_.answered(AnswerLimits::Request::hello);
  handler_.helloErrorBlock = nullptr;
  greetingsRepeated = 0;
  const TKSFinishBlock finish = take(handler_.helloFinishBlock);
  notifyStatus(TKSI_APP_STATUS_CONNECTED);
  if (!step.isCleanedUp()) callHost("helloFinishBlock", finish);
}

void Dialogue::onLaunchAck(const TKSMessage&) {
  const StepWatch step(*this);
  limits_.answered(AnswerLimits::Request::launch);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start launch meeting done. Ready to disconnect.");
  callHost("launchFinishBlock", take(handler_.launchFinishBlock));
  // A host that stops or launches again from its callback has done the next step itself.
  if (step.isCleanedUp() || step.hasNewRequest()) return;
  sendDisconnect(nullptr, take(handler_.launchErrorBlock));
  TKSILog::logWithLevel(TKSILogLevelInfo,
                        "Blocks 'launchFinishBlock' & 'launchErrorBlock' cleaned. Track things by disconnect blocks.");
}

void Dialogue::onDisconnectAck(const TKSMessage&) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On disconnect_ack message. Close message host.");
  leave();
}

void Dialogue::endInGoodOrder() {
  const StepWatch step(*this);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle disconnect_ack message.");
  stopMessageHost();
  handler_.disconnectErrorBlock = nullptr;
  TKSILog::logWithLevel(TKSILogLevelInfo, "'disconnectErrorBlock' cleaned, when disconnect_ack");
  const TKSFinishBlock finish = take(handler_.disconnectFinishBlock);
  // Cleared before the host is called: what the host installs is for its next conversation.
  handler_.queryStatusBlock = nullptr;
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (!step.isCleanedUp()) callHost("disconnectFinishBlock", finish);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start disconnected.");
}

void Dialogue::onUpdateDone(const TKSMessage&) {
  limits_.answered(AnswerLimits::Request::launch);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start self update done. Ready to disconnect.");
  sendDisconnect([this] { updateDone(); }, nullptr);
}

void Dialogue::updateDone() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Call update done block.");
  if (!handler_.TKSUpdateDoneBlock) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "No TKS self update done callback block!");
    return;
  }
  callHost("TKSUpdateDoneBlock", take(handler_.TKSUpdateDoneBlock));
}

/// The callbacks of a disconnect that is under way stay as they are.
void Dialogue::onError(const TKSMessage& message) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On error message. About to disconnect.");
  send(tks_message_type_disconnect);
  const TKSValue& body = message.message;
  if (body.isDictionary()) {
    handleLaunchError(body.dictionary());
  } else {
    handleErrorText(body.description());
  }
}

}  // namespace tks::messaging
