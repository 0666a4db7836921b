#include <tksinterface/TKSIMessageHandler.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/IntegerValue.h"
#include "messaging/FatalErrors.h"
#include "messaging/HostAccess.h"
#include "platform/platform.h"

using tks::callHost;
using tks::formatted;
using tks::masked;
using tks::take;
using tks::messaging::HostAccess;

namespace {

constexpr std::uint64_t kMostGreetingsAgain = 6;
constexpr std::chrono::milliseconds kGreetingDelay{100};

/// Greetings repeated since the last answer, by all handlers of the process: a new conversation does not reset it.
std::atomic<std::uint64_t> helloRetryCount = 0;

/// The address of the site that a launch concerns, when the parameters name one.
std::optional<std::string> domainOf(const TKSValue& param) {
  const TKSValue& siteDomain = param[tks_param_key_gpcsitedomain];
  const TKSValue& source = siteDomain.isNothing() ? param[tks_param_key_gpcurlroot] : siteDomain;
  if (!source.isText()) return std::nullopt;
  const std::optional<TKSURL> url = TKSURL::URLWithString(source.text());
  return url ? std::optional(url->absoluteString()) : std::nullopt;
}

/// What the launcher's codes tell a host that need not know the launcher.
TKSErrorReason reasonOfLaunchersCode(std::int32_t code) {
  struct KnownCode {
    std::string_view code;
    TKSErrorReason reason;
  };
  const KnownCode known[] = {
      {tks_message_error_code_download_cancelled, TKSErrorReason::cancelled},
      {tks_message_error_code_download_failed, TKSErrorReason::networkFailed},
      {tks_message_error_code_another_meeting_in_process, TKSErrorReason::busy},
      {tks_message_error_code_launch_meeting_timeout, TKSErrorReason::notAnswered},
  };
  for (const KnownCode& one : known) {
    if (tks::integerValue(one.code) == code) return one.reason;
  }
  return TKSErrorReason::refusedByLauncher;
}

/// Who is told of an error, in this order.
struct Listeners {
  TKSErrorBlock hello;
  TKSErrorBlock launch;
  TKSErrorBlock disconnect;
};

/// Puts a callback back, unless another one has taken its place.
template <class Callback>
void putBack(Callback& slot, Callback callback) {
  if (!slot) slot = std::move(callback);
}

/// A message whose body is the name of its type.
TKSMessage commonMessage(std::string_view type) {
  TKSMessage message;
  message.messageType = type;
  message.message = type;
  return message;
}

}  // namespace

struct TKSIMessageHandler::Progress {
  /// Requests made, hello, launch and disconnect, and openings of the message host.
  std::uint64_t requests = 0;
  /// Conversations ended at once, with all their callbacks dropped.
  std::uint64_t cleanups = 0;
  bool isOver = false;
  /// Why the request that was sent last can never reach the launcher.
  std::optional<TKSError> refusal;
};

/// A step of the conversation that calls the host: tells what has happened since it began.
class TKSIMessageHandler::Step {
 public:
  explicit Step(const TKSIMessageHandler& handler) : progress_(handler.progress_), before_(*handler.progress_) {}
  /// The handler is gone: nothing of it may be touched any more.
  bool handlerIsGone() const { return progress_->isOver; }
  /// A callback has itself gone on with the conversation.
  bool hasNewRequest() const { return progress_->requests != before_.requests; }
  /// The callbacks of the conversation were dropped; none may be called any more.
  bool isCleanedUp() const { return handlerIsGone() || progress_->cleanups != before_.cleanups; }
  /// Tells each of them the same error, for as long as the conversation is not cleaned up.
  void tell(const Listeners& listeners, const TKSError& error) const {
    const TKSError reported = error;  // NOLINT(performance-unnecessary-copy-initialization): callbacks may end it
    if (listeners.hello) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Hello error callback block");
      callHost("helloErrorBlock", listeners.hello, reported);
    }
    if (listeners.launch && !isCleanedUp()) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Launch error callback block");
      callHost("launchErrorBlock", listeners.launch, reported);
    }
    if (listeners.disconnect && !isCleanedUp()) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Disconnect error callback block");
      callHost("disconnectErrorBlock", listeners.disconnect, reported);
    }
  }

 private:
  const std::shared_ptr<const Progress> progress_;
  const Progress before_;
};

TKSIMessageHandler::TKSIMessageHandler()
    : messageHost(std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface)),
      progress_(std::make_shared<Progress>()) {}

TKSIMessageHandler::~TKSIMessageHandler() {
  progress_->isOver = true;
  if (messageHost) stopMessageHost();
}

void TKSIMessageHandler::startMessageHost() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "-[TKSIMessageHandler startMessageHost]");
  if (messageHost->isOpened) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host has been started, and don't need start again.");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host not started yet, start host.");
  ++progress_->requests;
  messageHost->openWithMessengeHandler(this);
}

void TKSIMessageHandler::stopMessageHost() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "-[TKSIMessageHandler stopMessageHost]");
  if (!messageHost->isOpened) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Message Host running, stop it.");
  messageHost->close();
}

void TKSIMessageHandler::setIPCFileFolderPath(std::string_view folderPath) {
  messageHost->setIPCFileFolderPath(folderPath);
}

// Requests.

bool TKSIMessageHandler::sendCommonMessageOfType(std::string_view type) {
  if (type != tks_message_type_hello && type != tks_message_type_disconnect) {
    TKSILog::logWithLevel(TKSILogLevelError, "Not able to handle message type: %@", type);
    return false;
  }
  const std::shared_ptr<Progress> progress = progress_;
  progress->refusal = HostAccess::handOver(*messageHost, commonMessage(type));
  return true;
}

void TKSIMessageHandler::sendHelloMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  ++progress_->requests;
  startMessageHost();
  const Step step(*this);
  helloFinishBlock = std::move(finishBlock);
  helloErrorBlock = std::move(errorBlock);
  sendCommonMessageOfType(tks_message_type_hello);
  endIfRefused(step);
}

void TKSIMessageHandler::sendDisconnectMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  ++progress_->requests;
  disconnectFinishBlock = std::move(finishBlock);
  disconnectErrorBlock = std::move(errorBlock);
  const Step step(*this);
  const bool isOpened = messageHost->isOpened;
  sendCommonMessageOfType(tks_message_type_disconnect);
  if (isOpened) endIfRefused(step);
}

void TKSIMessageHandler::sendLaunchMessage(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock,
                                           TKSFinishBlock updateDoneBlock) {
  ++progress_->requests;
  const Step step(*this);
  if (!param.isDictionary()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Launch param nil!");
    callHost("errorBlock", errorBlock, tks::interfaceError(TKSErrorReason::invalidArgument, "Launch param nil!"));
    // The request goes on without parameters, unless the host has turned to another one.
    if (step.handlerIsGone() || step.hasNewRequest()) return;
  }
  launchFinishBlock = std::move(finishBlock);
  launchErrorBlock = std::move(errorBlock);
  TKSUpdateDoneBlock = std::move(updateDoneBlock);

  TKSMessage message;
  message.messageType = tks_message_type_launch_meeting;
  message.domain = domainOf(param);
  message.message = param;
  notifyStatus(TKSI_APP_STATUS_LAUNCHING);
  if (step.handlerIsGone()) return;
  std::optional<TKSError> refusal = HostAccess::handOver(*messageHost, message);
  if (!refusal || step.handlerIsGone()) return;
  // The launcher is not left waiting for the job.
  if (messageHost->isOpened) sendCommonMessageOfType(tks_message_type_disconnect);
  if (step.handlerIsGone()) return;
  progress_->refusal = std::move(refusal);
  endIfRefused(step);
}

/// Ends a step that sent a request: one that can never reach the launcher will not be answered.
void TKSIMessageHandler::endIfRefused(const Step& step) {
  if (step.handlerIsGone()) return;
  const std::optional<TKSError> refusal = std::exchange(progress_->refusal, std::nullopt);
  if (!refusal || step.hasNewRequest()) return;
  const std::string text = formatted("Send message failed: %@", refusal->localizedDescription);
  handleRefusedRequest(tks::interfaceError(tks::reasonOf(*refusal, TKSErrorReason::channelFailed), text));
}

void TKSIMessageHandler::handleRefusedRequest(const TKSError& error) {
  const Step step(*this);
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  stopMessageHost();
  handleError(error);
}

// Answers.

void TKSIMessageHandler::handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) {
  const std::string type = message.messageType.value_or("(null)");
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle message of type: %@", type);
  // clang-format off
  if (type == tks_message_type_hello_ack) return onHelloAck();
  if (type == tks_message_type_launch_meeting_ack) return onLaunchAck();
  if (type == tks_message_type_disconnect_ack) return onDisconnectAck();
  if (type == tks_message_type_update_done) return onUpdateDone();
  if (type == tks_message_type_error) return onError(message.message);
  // clang-format on
}

void TKSIMessageHandler::onHelloAck() {
  const Step step(*this);
  helloErrorBlock = nullptr;
  helloRetryCount = 0;
  const TKSFinishBlock finish = take(helloFinishBlock);
  notifyStatus(TKSI_APP_STATUS_CONNECTED);
  if (!step.isCleanedUp()) callHost("helloFinishBlock", finish);
}

void TKSIMessageHandler::onLaunchAck() {
  const Step step(*this);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start launch meeting done. Ready to disconnect.");
  callHost("launchFinishBlock", take(launchFinishBlock));
  // A host that stops or launches again from its callback has done the next step itself.
  if (step.isCleanedUp() || step.hasNewRequest()) return;
  sendDisconnectMessage(nullptr, take(launchErrorBlock));
  TKSILog::logWithLevel(TKSILogLevelInfo,
                        "Blocks 'launchFinishBlock' & 'launchErrorBlock' cleaned. Track things by disconnect blocks.");
}

void TKSIMessageHandler::onDisconnectAck() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On disconnect_ack message. Close message host.");
  handleDisconnectAckMessage();
}

void TKSIMessageHandler::handleDisconnectAckMessage() {
  const Step step(*this);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle disconnect_ack message.");
  stopMessageHost();
  disconnectErrorBlock = nullptr;
  TKSILog::logWithLevel(TKSILogLevelInfo, "'disconnectErrorBlock' cleaned, when disconnect_ack");
  const TKSFinishBlock finish = take(disconnectFinishBlock);
  // Cleared before the host is called: what the host installs is for its next conversation.
  queryStatusBlock = nullptr;
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (!step.isCleanedUp()) callHost("disconnectFinishBlock", finish);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start disconnected.");
}

void TKSIMessageHandler::onUpdateDone() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Tarvo Kovra Start self update done. Ready to disconnect.");
  sendDisconnectMessage([this] { updateDone(); }, nullptr);
}

void TKSIMessageHandler::updateDone() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Call update done block.");
  if (!TKSUpdateDoneBlock) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "No TKS self update done callback block!");
    return;
  }
  callHost("TKSUpdateDoneBlock", take(TKSUpdateDoneBlock));
}

/// The callbacks of a disconnect that is under way stay as they are.
void TKSIMessageHandler::onError(const TKSValue& body) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On error message. About to disconnect.");
  sendCommonMessageOfType(tks_message_type_disconnect);
  if (body.isDictionary()) {
    handleLaunchErrorMessageInfo(body.dictionary());
  } else {
    handleErrorString(body.description());
  }
}

// Errors.

void TKSIMessageHandler::handleErrorString(const std::string& text) {
  handleError(tks::interfaceError(TKSErrorReason::refusedByLauncher, text));
}

void TKSIMessageHandler::handleError(const TKSError& error) {
  cleanupFinishBlocksAfterError();
  // All are taken before the first is called: what it installs is not for this error.
  const Listeners listeners = {take(helloErrorBlock), take(launchErrorBlock), take(disconnectErrorBlock)};
  Step(*this).tell(listeners, error);
}

void TKSIMessageHandler::handleLaunchErrorMessageInfo(const TKSDictionary& info) {
  cleanupFinishBlocksAfterError();
  const TKSValue shown = info;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle launch error message info: %@", masked(shown));
  if (!launchErrorBlock) return;
  const TKSValue* const code = info.find(tks_message_key_error_code);
  const TKSValue* const text = info.find(tks_message_key_error_message);
  const std::int32_t number =
      code != nullptr ? tks::integerValue(*code) : tks::integerValue(tks_message_error_code_launch_meeting_failed);
  const TKSError error = tks::makeError(reasonOfLaunchersCode(number), TKSITKSDomain, number,
                                        text != nullptr ? text->description() : "Unknown error");
  callHost("launchErrorBlock", take(launchErrorBlock), error);
}

void TKSIMessageHandler::handleMessageHostFatalError(const std::string& description) {
  TKSILog::logWithLevel(TKSILogLevelError, "Handle message host fatal error: %@", masked(description));
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the callbacks may end what it refers to
  const std::string reported = description;
  if (!queryStatusBlock) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "No query status block.");
    return giveUp(reported);
  }
  const Step step(*this);
  const TKSIAppStatus status = queryStatus();
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS connect status: %d", status);
  if (step.handlerIsGone()) return;
  if (status != TKSI_APP_STATUS_UNCONNECTED) {
    // Names the constant, not the status: kept.
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "TKS app status not TKSI_APP_STATUS_UNCONNECTED: %d, no need to retry connect.",
                          TKSI_APP_STATUS_UNCONNECTED);
    return giveUp(reported);
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Got message host fatal error when TKS not even connected.");
  if (!greetAgain()) giveUp(reported);
}

/// False when the launcher was greeted often enough.
bool TKSIMessageHandler::greetAgain() {
  if (helloRetryCount >= kMostGreetingsAgain) {
    TKSILog::logWithLevel(TKSILogLevelError, "Already retried too many times to connect TKS message host.");
    return false;
  }
  const std::uint64_t count = ++helloRetryCount;
  tks::platform::clock().sleep(kGreetingDelay);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Retry connect for %lu time(s) after %lu milliseconds.", count,
                        kGreetingDelay.count());
  sendCommonMessageOfType(tks_message_type_hello);
  return true;
}

/// Without somebody to tell the status to, the host stays open and nobody is told.
void TKSIMessageHandler::giveUp(const std::string& description) {
  if (!notifyStatusBlock) return;
  const Step step(*this);
  // Out of their places while the host is called, so that they and what it installs are told apart.
  Listeners listeners = {take(helloErrorBlock), take(launchErrorBlock), take(disconnectErrorBlock)};
  TKSFinishBlock helloFinish = take(helloFinishBlock);
  TKSFinishBlock launchFinish = take(launchFinishBlock);
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  if (step.hasNewRequest()) {
    // The next conversation has begun: its channel and callbacks are not those that failed.
    if (!step.isCleanedUp())
      step.tell(listeners, tks::interfaceError(tks::messaging::reasonOfFatalError(description), description));
    return;
  }
  if (!step.isCleanedUp()) {
    putBack(helloErrorBlock, std::move(listeners.hello));
    putBack(launchErrorBlock, std::move(listeners.launch));
    putBack(disconnectErrorBlock, std::move(listeners.disconnect));
    putBack(helloFinishBlock, std::move(helloFinish));
    putBack(launchFinishBlock, std::move(launchFinish));
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host on fatal error.");
  stopMessageHost();
  handleError(tks::interfaceError(tks::messaging::reasonOfFatalError(description), description));
}

// Clean-ups.

void TKSIMessageHandler::cleanupFinishBlocksAfterError() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up finish blocks after error.");
  if (helloFinishBlock) {
    helloFinishBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up helloFinishBlock after error");
  }
  if (launchFinishBlock) {
    launchFinishBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up launchFinishBlock after error");
  }
}

void TKSIMessageHandler::cleanupStatusBlocks() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up status blocks.");
  if (notifyStatusBlock) {
    notifyStatusBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up notifyStatusBlock.");
  }
  if (queryStatusBlock) {
    queryStatusBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up queryStatusBlock");
  }
}

void TKSIMessageHandler::cleanupConnectStatus4FileIPC() {
  ++progress_->cleanups;
  const Step step(*this);
  helloFinishBlock = nullptr;
  helloErrorBlock = nullptr;
  helloRetryCount = 0;
  launchFinishBlock = nullptr;
  launchErrorBlock = nullptr;
  TKSUpdateDoneBlock = nullptr;
  disconnectFinishBlock = nullptr;
  disconnectErrorBlock = nullptr;
  stopMessageHost();
  // Taken before the host is called: what it installs is for its next conversation.
  const TKSNotifyStatusBlock notify = take(notifyStatusBlock);
  const bool queried = static_cast<bool>(std::exchange(queryStatusBlock, nullptr));
  callHost("notifyStatusBlock", notify, TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up status blocks.");
  if (notify) TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up notifyStatusBlock.");
  if (queried) TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up queryStatusBlock");
}

// The status callbacks stay installed; copies are called, so that a callback may replace or destroy what it stands in.

void TKSIMessageHandler::notifyStatus(TKSIAppStatus status) {
  const TKSNotifyStatusBlock notify = notifyStatusBlock;
  callHost("notifyStatusBlock", notify, status);
}

/// A callback that throws has not said that anything is connected.
TKSIAppStatus TKSIMessageHandler::queryStatus() {
  const TKSQueryStatusBlock query = queryStatusBlock;
  TKSIAppStatus status = TKSI_APP_STATUS_UNCONNECTED;
  const std::function<void()> ask = [&] { status = query(); };
  callHost("queryStatusBlock", ask);
  return status;
}
