#include <tksinterface/TKSMessageHost.h>

#include <tksinterface/TKSConstants.h>

#include "foundation/logging/HeldLines.h"
#include "messaging/Transport.h"

// What a host of messages is to those who use it; its steps stand in Transport.

using tks::messaging::Transport;

TKSMessageHost::TKSMessageHost(std::int32_t hostType)
    : type(static_cast<std::uint64_t>(hostType)), transport_(std::make_unique<Transport>(*this)) {
  transport_->chooseChannel();
}

TKSMessageHost::~TKSMessageHost() = default;

TKSMessageHost& TKSMessageHost::sharedMessengeHost() {
  const tks::HeldLines lines;
  static auto& host = *new TKSMessageHost(tksMessageHostTypeTKS);
  return host;
}

void TKSMessageHost::setIPCFileFolderPath(std::string_view folderPath) { transport_->setFolder(folderPath); }

void TKSMessageHost::openWithMessengeHandler(TKSMessageHandlerDelegate* handler) { transport_->open(handler); }

void TKSMessageHost::close() { transport_->close(); }

void TKSMessageHost::sendMessage(const TKSMessage& message) { transport_->handOver(message); }

void TKSMessageHost::handleFatalError(const std::string& description) { transport_->handleFatalError(description); }

void TKSMessageHost::onMessage(std::string_view piece) { transport_->onMessage(piece); }
