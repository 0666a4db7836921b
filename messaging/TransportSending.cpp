#include <exception>
#include <new>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/Trace.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/OutOfMemory.h"
#include "messaging/Frame.h"
#include "messaging/FrameReader.h"
#include "messaging/MessageText.h"
#include "messaging/SendingQueue.h"
#include "messaging/Transport.h"
#include "platform/platform.h"

// Sending.

namespace tks::messaging {
namespace {

TKSError failure(TKSErrorReason reason, std::string_view text) {
  return makeError(reason, TKSUtilErrorDomain, 0, std::string(text));
}

TKSError noFrame() {
  TKSILog::logWithLevel(TKSILogLevelError, "Transfer string to data blob failed.");
  try {
    return failure(TKSErrorReason::outOfResources, "Transfer string to data blob failed.");
  } catch (const std::bad_alloc&) {
    TKSError error;
    setOutOfMemory(&error);
    return error;
  }
}

}  // namespace

std::optional<TKSError> Transport::handOver(const TKSMessage& message) {
  if (platform::thisProcess().refusesAsForkedCopy("sendMessage:")) return std::nullopt;
  tks::trace("TKSMessageHost", "sendMessage:");
  try {
    std::string frame = output_->takeBuffer();
    TKSError error;
    beginFrame(frame);
    const bool hasText = appendText(message, frame, &error);
    const std::string_view text = hasText ? payloadOf(frame) : std::string_view("(null)");
    TKSILog::logWithLevel(TKSILogLevelInfo, "Send message string: %@", masked(text));
    if (!hasText) {
      const std::string reason = error.description();
      TKSILog::logWithLevel(TKSILogLevelError, "Parse TKSMessage to string failed: %@", masked(reason));
      return error;
    }
    if (!host_.isOpened) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "Message host already closed, abandon sending message.");
      return failure(TKSErrorReason::channelFailed, "The message host is closed.");
    }
    if (!finishFrame(frame)) return noFrame();
    tks::trace("TKSMessageHost", "sendMessage:");
    if (message.messageType == tks_message_type_disconnect_ack) saidFarewell_ = true;
    largeFrames_.note(frame.size());
    tellObserver(TKSConversationEvent::Kind::sent, text);
    std::optional<SendingQueue::Refusal> refusal = output_->send(std::move(frame));
    if (refusal) tellObserver(TKSConversationEvent::Kind::notSent, refusal->error.localizedDescription);
    if (!refusal || (refusal->channelFailed && !host_.ipcByFile)) return std::nullopt;
    return std::move(refusal->error);
  } catch (const std::exception&) {
    return noFrame();
  }
}

void Transport::giveMemoryBack() {
  if (host_.receivedData.empty()) TKSData().swap(host_.receivedData);
  if (input_) input_->giveMemoryBack();
  output_->dropSpareBuffer();
  platform::thisProcess().giveMemoryBack();
}

}  // namespace tks::messaging
