#include "messaging/HostAccess.h"

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
#include "messaging/MessageText.h"
#include "messaging/SendingQueue.h"
#include "platform/platform.h"

namespace tks::messaging {
namespace {

/// More hosts than that are not started within one millisecond.
constexpr int kMostFoldersTried = 1000;

TKSError failure(TKSErrorReason reason, std::string_view text) {
  return makeError(reason, TKSUtilErrorDomain, 0, std::string(text));
}

/// The number in decimal digits that a text ends with counts one more, with as many digits.
void countUp(std::string& text) {
  for (auto digit = text.rbegin(); digit != text.rend() && *digit >= '0' && *digit <= '9'; ++digit) {
    if (++*digit <= '9') return;
    *digit = '0';
  }
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

std::optional<TKSError> HostAccess::handOver(TKSMessageHost& host, const TKSMessage& message) {
  if (platform::thisProcess().refusesAsForkedCopy("sendMessage:")) return std::nullopt;
  tks::trace("TKSMessageHost", "sendMessage:");
  try {
    std::string frame = host.output_->takeBuffer();
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
    if (!host.isOpened) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "Message host already closed, abandon sending message.");
      return failure(TKSErrorReason::channelFailed, "The message host is closed.");
    }
    if (!finishFrame(frame)) return noFrame();
    tks::trace("TKSMessageHost", "sendMessage:");
    if (message.messageType == tks_message_type_disconnect_ack) host.opening_->saidFarewell = true;
    host.opening_->largeFrames.note(frame.size());
    std::optional<SendingQueue::Refusal> refusal = host.output_->send(std::move(frame));
    if (!refusal || (refusal->channelFailed && !host.ipcByFile)) return std::nullopt;
    return std::move(refusal->error);
  } catch (const std::exception&) {
    return noFrame();
  }
}

void HostAccess::giveMemoryBack(TKSMessageHost& host) {
  if (host.receivedData.empty()) TKSData().swap(host.receivedData);
  host.output_->dropSpareBuffer();
  platform::thisProcess().giveMemoryBack();
}

std::string HostAccess::useNewFolder(TKSMessageHost& host, std::string path) {
  std::shared_ptr<MessageFolderHold> hold;
  std::string tried = path;
  for (int i = 0; i < kMostFoldersTried; ++i, countUp(tried)) {
    hold.reset();  // first: two of them would wait for each other
    hold = std::make_shared<MessageFolderHold>(tried);
    if (hold->makeFolder(nullptr)) {
      path = std::move(tried);
      break;
    }
    if (!platform::files().exists(tried)) break;
  }
  host.opening_->hold = std::move(hold);
  host.setIPCFileFolderPath(path);
  return path;
}

}  // namespace tks::messaging
