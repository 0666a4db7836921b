#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSIMessageHandler.h>

namespace tks::interface {

class Facade;

/// The handler of a facade: takes the same steps as every handler, and tells the facade of them, so that
/// callers without a callback in the conversation are settled too. Any step may destroy it.
class FacadeHandler final : public TKSIMessageHandler {
 public:
  explicit FacadeHandler(std::weak_ptr<Facade> facade) : facade_(std::move(facade)) {}

  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override;
  void handleMessageHostFatalError(const std::string& description) override;
  void handleDisconnectAckMessage() override;
  void cleanupConnectStatus4FileIPC() override;
  bool sendCommonMessageOfType(std::string_view type) override;
  void handleRefusedRequest(const TKSError& error) override;

 private:
  const std::weak_ptr<Facade> facade_;
};

}  // namespace tks::interface
