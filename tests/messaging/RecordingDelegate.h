#pragma once

#include <functional>
#include <string>
#include <vector>

#include <tksinterface/TKSMessageHost.h>

namespace tks::test {

/// A delegate that notes what it is told, and may do more.
class RecordingDelegate : public TKSMessageHandlerDelegate {
 public:
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override {
    senders.push_back(sender);
    messages.push_back(message);
    const std::function<void(const TKSMessage&)> more = onMessage;
    if (more) more(message);
  }
  void handleMessageHostFatalError(const std::string& description) override {
    failures.push_back(description);
    const std::function<void(const std::string&)> more = onFailure;
    if (more) more(description);
  }

  std::vector<std::string> types() const {
    std::vector<std::string> found;
    for (const TKSMessage& message : messages) found.push_back(message.messageType.value_or("(null)"));
    return found;
  }

  std::function<void(const TKSMessage&)> onMessage;
  std::function<void(const std::string&)> onFailure;
  std::vector<TKSMessage> messages;
  std::vector<TKSMessageHandlerDelegate*> senders;
  std::vector<std::string> failures;
};

}  // namespace tks::test
