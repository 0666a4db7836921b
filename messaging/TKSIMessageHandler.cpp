#include <tksinterface/TKSIMessageHandler.h>

#include <utility>

#include <tksinterface/TKSConstants.h>

#include "messaging/Dialogue.h"

// What the conversation is to those who use it; its steps stand in Dialogue.

namespace tks::messaging {

/// The dialogue of a handler: a step that classes derived from the handler take part in begins with them.
class Dialogue::OfHandler final : public Dialogue {
 public:
  explicit OfHandler(TKSIMessageHandler& handler) : Dialogue(handler), handler_(handler) {}

 protected:
  bool send(std::string_view type) override { return handler_.sendCommonMessageOfType(type); }
  void leave() override { handler_.handleDisconnectAckMessage(); }
  void refuse(const TKSError& error) override { handler_.handleRefusedRequest(error); }

 private:
  TKSIMessageHandler& handler_;
};

}  // namespace tks::messaging

using tks::messaging::Dialogue;

TKSIMessageHandler::TKSIMessageHandler()
    : messageHost(std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface)),
      dialogue_(std::make_unique<Dialogue::OfHandler>(*this)) {}

TKSIMessageHandler::~TKSIMessageHandler() { dialogue_->close(); }

void TKSIMessageHandler::startMessageHost() { dialogue_->startMessageHost(); }

void TKSIMessageHandler::stopMessageHost() { dialogue_->stopMessageHost(); }

void TKSIMessageHandler::setIPCFileFolderPath(std::string_view folderPath) {
  messageHost->setIPCFileFolderPath(folderPath);
}

bool TKSIMessageHandler::sendCommonMessageOfType(std::string_view type) { return dialogue_->sendCommonMessage(type); }

void TKSIMessageHandler::sendHelloMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  dialogue_->sendHello(std::move(finishBlock), std::move(errorBlock));
}

void TKSIMessageHandler::sendDisconnectMessage(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  dialogue_->sendDisconnect(std::move(finishBlock), std::move(errorBlock));
}

void TKSIMessageHandler::sendLaunchMessage(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock,
                                           TKSFinishBlock updateDoneBlock) {
  dialogue_->sendLaunch(param, std::move(finishBlock), std::move(errorBlock), std::move(updateDoneBlock));
}

void TKSIMessageHandler::handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) {
  dialogue_->onMessage(message);
}

void TKSIMessageHandler::handleMessageHostFatalError(const std::string& description) {
  dialogue_->handleFatalError(description);
}

void TKSIMessageHandler::handleError(const TKSError& error) { dialogue_->handleError(error); }

void TKSIMessageHandler::handleErrorString(const std::string& text) { dialogue_->handleErrorText(text); }

void TKSIMessageHandler::handleLaunchErrorMessageInfo(const TKSDictionary& info) { dialogue_->handleLaunchError(info); }

void TKSIMessageHandler::handleDisconnectAckMessage() { dialogue_->endInGoodOrder(); }

void TKSIMessageHandler::cleanupFinishBlocksAfterError() { dialogue_->dropFinishBlocks(); }

void TKSIMessageHandler::cleanupStatusBlocks() { dialogue_->dropStatusBlocks(); }

void TKSIMessageHandler::cleanupConnectStatus4FileIPC() { dialogue_->cleanUpFileChannel(); }

void TKSIMessageHandler::handleRefusedRequest(const TKSError& error) { dialogue_->endRefused(error); }
