#include <functional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "messaging/Frame.h"
#include "messaging/FrameReader.h"
#include "messaging/MessageText.h"
#include "messaging/Transport.h"
#include "platform/platform.h"

// Receiving.

namespace tks::messaging {
namespace {

std::string_view asText(const TKSData& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

}  // namespace

void Transport::onMessage(std::string_view piece) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On message.");
  if (!host_.isOpened) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Message host not opened.");
    return;
  }
  if (host_.ipcByFile && piece.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "messageData is nil or empty and ipc by File, ignore this message!");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "messageDataSize: %lu", piece.size());
  const PiecePlan plan = planOf(host_.pendingDataSize, piece, largestMessage());
  if (plan.action == PiecePlan::Action::refuse) return handleFatalError(plan.problem);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Valid message data size, get on processing.");

  const Epoch::Moment here = conversation_.now();
  const std::string_view inPlace = plan.action == PiecePlan::Action::begin ? begin(plan) : resume(plan);
  if (here.isOver()) return;
  if (host_.receivedData.size() > largestMessage()) {
    handleFatalError(formatted("Received total message data (%lu) exceed max size: %u.", host_.receivedData.size(),
                               largestMessage()));
    if (here.isOver()) return;
  }
  if (host_.pendingDataSize > 0) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "No complete message, wait for next message portion.");
    return;
  }
  deliver(inPlace);
}

std::string_view Transport::resume(const PiecePlan& plan) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Pending data expected, don't get size from header 4 bytes.");
  const std::string_view inPlace = append(plan);
  host_.pendingDataSize = plan.missing;
  TKSILog::logWithLevel(TKSILogLevelInfo, "sizeOfSize: %u", kHeaderBytes);
  TKSILog::logWithLevel(TKSILogLevelInfo, "pendingDataSize: %u", host_.pendingDataSize);
  return inPlace;
}

std::string_view Transport::begin(const PiecePlan& plan) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "No pending data, get size from header 4 bytes.");
  TKSILog::logWithLevel(TKSILogLevelInfo, "sizeOfSize: %u", kHeaderBytes);
  TKSILog::logWithLevel(TKSILogLevelInfo, "tellingSize: %u", plan.announced);
  if (plan.problem.empty()) {
    host_.pendingDataSize = plan.missing;
  } else {
    const Epoch::Moment here = conversation_.now();
    handleFatalError(plan.problem);
    if (here.isOver()) return {};
  }
  if (plan.hasSurplus) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Dirty data inside message data, 'tellingSize + sizeOfSize < messageDataSize', only read "
                          "telling size of data. Get on processing.");
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "actualDataSize: %u", plan.taken.size());
  TKSILog::logWithLevel(TKSILogLevelInfo, "pendingDataSize: %u", host_.pendingDataSize);
  return append(plan);
}

/// Adds what a piece brings to what was received. A large message that came in one piece is returned instead: it is
/// read where it stands.
std::string_view Transport::append(const PiecePlan& plan) {
  TKSData& received = host_.receivedData;
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size old: %u", received.size());
  const bool staysInPlace = plan.missing == 0 && received.empty() && plan.taken.size() > PieceCutter::kMostInPieces;
  if (!staysInPlace) {
    const auto* const first =
        reinterpret_cast<const TKSData::value_type*>(plan.taken.data());  // so that it is one copy
    received.insert(received.end(), first, first + plan.taken.size());
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size new: %u",
                        staysInPlace ? plan.taken.size() : received.size());
  return staysInPlace ? plan.taken : std::string_view();
}

/// Parses a message and hands it to the delegate: the one that stands in place, or what was received.
void Transport::deliver(std::string_view inPlace) {
  // Take the buffer first; return its capacity after use.
  TKSData data = std::exchange(host_.receivedData, {});
  if (!isFromPeer()) return handleFatalError("Message file is not open in the launcher that was started.");
  const std::string_view bytes = inPlace.empty() ? asText(data) : inPlace;
  const ReceivedText text(bytes);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Receive message string: %@", text);

  tellObserver(TKSConversationEvent::Kind::received, bytes);
  largeFrames_.note(bytes.size());
  TKSMessage message;
  TKSError error;
  const bool parsed = message.parseJSONString(bytes, &error);
  std::string failure;
  if (!parsed) {
    failure = formatted("Error when parse JSON in [TKSMessagHost onMessage]. Message str: %@, error: %@",
                        text.inErrors(), error);
  }
  data.clear();
  if (host_.receivedData.empty()) host_.receivedData = std::move(data);

  if (!parsed) return handleFatalError(failure);
  if (message.messageType == tks_message_type_disconnect_ack) saidFarewell_ = true;
  if (message.messageType == tks_message_type_hello_ack) dropFileNames();
  TKSMessageHandlerDelegate* const delegate = host_.messageHandler;
  if (delegate == nullptr) return;
  const std::function<void()> hand = [delegate, &message] { delegate->handleMessage(message, delegate); };
  callHost("handleMessage:from:", hand);
}

void Transport::handleFatalError(const std::string& description) {
  TKSILog::logWithLevel(TKSILogLevelError, "Handle fatal error: %@", masked(description));
  tellObserver(TKSConversationEvent::Kind::fatalError, description);
  TKSMessageHandlerDelegate* const delegate = host_.messageHandler;
  if (delegate == nullptr) return;
  const std::function<void()> report = [delegate, &description] { delegate->handleMessageHostFatalError(description); };
  callHost("handleMessageHostFatalError:", report);
}

void Transport::onSlowFrame(std::chrono::milliseconds limit) {
  handleFatalError(formatted("Message not whole within %lu ms.", limit.count()));
}

/// Whoever else has the file open is not asked for: everything that runs as this user could have.
bool Transport::isFromPeer() {
  if (!host_.ipcByFile || !peer_.isExpected || peer_.isProven || !options().checkFilePeer) return true;
  if (peer_.process > 0 && input_ && input_->channel()) {
    peer_.isProven = platform::childProcesses().hasOpenForWriting(peer_.process, *input_->channel());
  }
  return peer_.isProven;
}

/// A broken pipe looks like its end to the conversation, which is told again and again. A file has no end, so that its
/// failure is told as it is, once for each opening; after a farewell its removal is the end of the conversation.
void Transport::onBrokenInput(const TKSError& error) {
  const std::string reason = error.description();
  if (host_.ipcByFile) {
    input_->stop();
    if (!saidFarewell_) handleFatalError(formatted("Read message failed: %@", reason));
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelError, "Read message failed: %@", masked(reason));
  onMessage({});
}

}  // namespace tks::messaging
