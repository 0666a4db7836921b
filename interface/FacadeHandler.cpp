#include "interface/FacadeHandler.h"

#include <optional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/Errors.h"
#include "interface/Facade.h"
#include "messaging/MessageText.h"

namespace tks::interface {
namespace {

/// What a message means to those who wait. The answer to a goodbye is told by its own operation, and an update of the
/// launcher is followed by one.
std::optional<Event> eventOf(const TKSMessage& message) {
  if (message.messageType == tks_message_type_hello_ack) return Event::helloAnswered;
  if (message.messageType == tks_message_type_launch_meeting_ack) return Event::launchAnswered;
  if (message.messageType != tks_message_type_error) return std::nullopt;
  return message.message.isDictionary() ? Event::jobRefused : Event::launcherRefused;
}

}  // namespace

void FacadeHandler::handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) {
  const std::shared_ptr<Facade> facade = facade_.lock();
  const std::optional<Event> event = eventOf(message);
  if (!facade || !event) return TKSIMessageHandler::handleMessage(message, sender);
  // The other events of messages fail nobody.
  const TKSError error =
      *event == Event::launcherRefused
          ? defaultError(TKSErrorReason::refusedByLauncher, messaging::asReported(message.message.description()))
          : TKSError();
  facade->step(*event, error, [&] { TKSIMessageHandler::handleMessage(message, sender); });
}

void FacadeHandler::handleMessageHostFatalError(const std::string& description) {
  const auto fail = [&] { TKSIMessageHandler::handleMessageHostFatalError(description); };
  if (const std::shared_ptr<Facade> facade = facade_.lock()) return facade->channelFailed(description, fail);
  fail();
}

void FacadeHandler::handleDisconnectAckMessage() {
  const auto leave = [&] { TKSIMessageHandler::handleDisconnectAckMessage(); };
  if (const std::shared_ptr<Facade> facade = facade_.lock()) return facade->goodbyeAnswered(leave);
  leave();
}

void FacadeHandler::cleanupConnectStatus4FileIPC() {
  if (const std::shared_ptr<Facade> facade = facade_.lock()) facade->drop();
  TKSIMessageHandler::cleanupConnectStatus4FileIPC();
}

void FacadeHandler::handleRefusedRequest(const TKSError& error) {
  const auto fail = [&] { TKSIMessageHandler::handleRefusedRequest(error); };
  if (const std::shared_ptr<Facade> facade = facade_.lock()) {
    return facade->channelFailed(error.localizedDescription, fail);
  }
  fail();
}

bool FacadeHandler::sendCommonMessageOfType(std::string_view type) {
  const std::shared_ptr<Facade> facade = facade_.lock();
  if (facade && type == tks_message_type_disconnect) facade->goodbyeSent();
  return TKSIMessageHandler::sendCommonMessageOfType(type);
}

}  // namespace tks::interface
