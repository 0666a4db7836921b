#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/IntegerValue.h"
#include "messaging/Dialogue.h"
#include "messaging/FatalErrors.h"
#include "messaging/MessageText.h"
#include "platform/platform.h"

// Errors, failures of the transport, and clean-ups.

namespace tks::messaging {
namespace {

constexpr std::uint64_t kMostGreetingsAgain = 6;
constexpr std::chrono::milliseconds kGreetingDelay{100};

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
    if (integerValue(one.code) == code) return one.reason;
  }
  return TKSErrorReason::refusedByLauncher;
}

/// Puts a callback back, unless another one has taken its place.
template <class Callback>
void putBack(Callback& slot, Callback callback) {
  if (!slot) slot = std::move(callback);
}

}  // namespace

std::atomic<std::uint64_t> Dialogue::greetingsRepeated = 0;

/// Who is told of an error, in this order.
struct Dialogue::Listeners {
  TKSErrorBlock hello;
  TKSErrorBlock launch;
  TKSErrorBlock disconnect;

  /// Out of their places, so that what the first installs is not for this error.
  static Listeners taken(TKSIMessageHandler& handler) {
    return {take(handler.helloErrorBlock), take(handler.launchErrorBlock), take(handler.disconnectErrorBlock)};
  }
};

/// A line may end it as well as a callback.
void Dialogue::StepWatch::tell(const Listeners& listeners, const TKSError& error) const {
  const TKSError reported = error;  // NOLINT(performance-unnecessary-copy-initialization): callbacks may end it
  if (listeners.hello && !isCleanedUp()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Hello error callback block");
    if (!isCleanedUp()) callHost("helloErrorBlock", listeners.hello, reported);
  }
  if (listeners.launch && !isCleanedUp()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Launch error callback block");
    if (!isCleanedUp()) callHost("launchErrorBlock", listeners.launch, reported);
  }
  if (listeners.disconnect && !isCleanedUp()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Disconnect error callback block");
    if (!isCleanedUp()) callHost("disconnectErrorBlock", listeners.disconnect, reported);
  }
}

// Errors.

void Dialogue::endRefused(const TKSError& error) {
  const StepWatch step(*this);
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  stopMessageHost();
  handleError(error);
}

void Dialogue::handleError(const TKSError& error) {
  limits_.answered(AnswerLimits::Request::hello);
  limits_.answered(AnswerLimits::Request::launch);
  dropFinishBlocks();
  const Listeners listeners = Listeners::taken(handler_);
  StepWatch(*this).tell(listeners, error);
}

void Dialogue::handleErrorText(const std::string& text) {
  handleError(defaultErrorWithLine(TKSErrorReason::refusedByLauncher, asReported(text)));
}

void Dialogue::handleLaunchError(const TKSDictionary& info) {
  limits_.answered(AnswerLimits::Request::launch);
  dropFinishBlocks();
  const TKSValue shown = info;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Handle launch error message info: %@", masked(shown));
  if (!handler_.launchErrorBlock) return;
  const TKSValue* const code = info.find(tks_message_key_error_code);
  const TKSValue* const text = info.find(tks_message_key_error_message);
  const std::int32_t number =
      code != nullptr ? integerValue(*code) : integerValue(tks_message_error_code_launch_meeting_failed);
  const TKSError error = makeError(reasonOfLaunchersCode(number), TKSITKSDomain, number,
                                   text != nullptr ? asReported(text->description()) : "Unknown error");
  callHost("launchErrorBlock", take(handler_.launchErrorBlock), error);
}

// Failures of the transport.

void Dialogue::handleFatalError(const std::string& description) {
  TKSILog::logWithLevel(TKSILogLevelError, "Handle message host fatal error: %@", masked(description));
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the callbacks may end what it refers to
  const std::string reported = description;
  if (!handler_.queryStatusBlock) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "No query status block.");
    return giveUp(reported);
  }
  const StepWatch step(*this);
  const TKSIAppStatus status = queryStatus();
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS connect status: %d", status);
  if (step.handlerIsGone()) return;
  if (status != TKSI_APP_STATUS_UNCONNECTED) {
    // Names the constant, not the status. Required behaviour: do not fix.
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "TKS app status not TKSI_APP_STATUS_UNCONNECTED: %d, no need to retry connect.",
                          TKSI_APP_STATUS_UNCONNECTED);
    return giveUp(reported);
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Got message host fatal error when TKS not even connected.");
  if (!greetAgain()) giveUp(reported);
}

/// False when the launcher was greeted often enough.
bool Dialogue::greetAgain() {
  if (greetingsRepeated >= kMostGreetingsAgain) {
    TKSILog::logWithLevel(TKSILogLevelError, "Already retried too many times to connect TKS message host.");
    return false;
  }
  const std::uint64_t count = ++greetingsRepeated;
  platform::clock().sleep(kGreetingDelay);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Retry connect for %lu time(s) after %lu milliseconds.", count,
                        kGreetingDelay.count());
  send(tks_message_type_hello);
  return true;
}

/// Without somebody to tell the status to, the host stays open and nobody is told.
void Dialogue::giveUp(const std::string& description) {
  if (!handler_.notifyStatusBlock) return;
  const StepWatch step(*this);
  // Out of their places while the host is called, so that they and what it installs are told apart.
  Listeners listeners = Listeners::taken(handler_);
  TKSFinishBlock helloFinish = take(handler_.helloFinishBlock);
  TKSFinishBlock launchFinish = take(handler_.launchFinishBlock);
  notifyStatus(TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  if (step.hasNewRequest()) {
    // The next conversation has begun: its channel and callbacks are not those that failed.
    if (step.isCleanedUp()) return;
    return step.tell(listeners, defaultErrorWithLine(reasonOfFatalError(description), description));
  }
  if (!step.isCleanedUp()) {
    putBack(handler_.helloErrorBlock, std::move(listeners.hello));
    putBack(handler_.launchErrorBlock, std::move(listeners.launch));
    putBack(handler_.disconnectErrorBlock, std::move(listeners.disconnect));
    putBack(handler_.helloFinishBlock, std::move(helloFinish));
    putBack(handler_.launchFinishBlock, std::move(launchFinish));
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host on fatal error.");
  stopMessageHost();
  handleError(defaultErrorWithLine(reasonOfFatalError(description), description));
}

// Clean-ups.

void Dialogue::dropFinishBlocks() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up finish blocks after error.");
  if (handler_.helloFinishBlock) {
    handler_.helloFinishBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up helloFinishBlock after error");
  }
  if (handler_.launchFinishBlock) {
    handler_.launchFinishBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up launchFinishBlock after error");
  }
}

void Dialogue::dropStatusBlocks() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up status blocks.");
  if (handler_.notifyStatusBlock) {
    handler_.notifyStatusBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up notifyStatusBlock.");
  }
  if (handler_.queryStatusBlock) {
    handler_.queryStatusBlock = nullptr;
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up queryStatusBlock");
  }
}

void Dialogue::cleanUpFileChannel() {
  talk_.end();
  const StepWatch step(*this);
  handler_.helloFinishBlock = nullptr;
  handler_.helloErrorBlock = nullptr;
  greetingsRepeated = 0;
  handler_.launchFinishBlock = nullptr;
  handler_.launchErrorBlock = nullptr;
  handler_.TKSUpdateDoneBlock = nullptr;
  handler_.disconnectFinishBlock = nullptr;
  handler_.disconnectErrorBlock = nullptr;
  stopMessageHost();
  // Taken before the host is called: what it installs is for its next conversation.
  const TKSNotifyStatusBlock notify = take(handler_.notifyStatusBlock);
  const bool queried = static_cast<bool>(std::exchange(handler_.queryStatusBlock, nullptr));
  callHost("notifyStatusBlock", notify, TKSI_APP_STATUS_UNCONNECTED);
  if (step.handlerIsGone()) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Try clean up status blocks.");
  if (notify) TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up notifyStatusBlock.");
  if (queried) TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up queryStatusBlock");
}

// The status callbacks stay installed; copies are called, so that a callback may replace or destroy what it stands in.

void Dialogue::notifyStatus(TKSIAppStatus status) {
  const TKSNotifyStatusBlock notify = handler_.notifyStatusBlock;
  callHost("notifyStatusBlock", notify, status);
}

/// A callback that throws has not said that anything is connected.
TKSIAppStatus Dialogue::queryStatus() {
  const TKSQueryStatusBlock query = handler_.queryStatusBlock;
  TKSIAppStatus status = TKSI_APP_STATUS_UNCONNECTED;
  const std::function<void()> ask = [&] { status = query(); };
  callHost("queryStatusBlock", ask);
  return status;
}

}  // namespace tks::messaging
