#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIMessageHandler.h>

#include "platform/platform.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"

namespace tks::test {

/// A handler, the launcher that it talks to, and the host around it, in one process. What happens is noted in order:
///   sends TYPE            a message to the launcher
///   notifies N            the status callback
///   calls NAME            a finish callback
///   calls NAME DOMAIN CODE TEXT   an error callback
class Conversation {
 public:
  Conversation() {
    channels.output->onWrite = [this](std::string_view bytes) { heard(bytes); };
    handler->notifyStatusBlock = [this](TKSIAppStatus now) {
      status = now;
      note("notifies " + std::to_string(now));
      if (whenNotified) whenNotified(now);
    };
    handler->queryStatusBlock = [this] { return status; };
  }
  ~Conversation() {
    // The counter of repeated greetings belongs to the process.
    TKSIMessageHandler().cleanupConnectStatus4FileIPC();
  }

  // What the host does.

  void hello() { handler->sendHelloMessage(finish("hello"), error("hello")); }
  void launch(const TKSValue& param = TKSDictionary{{"gpcsitedomain", "https://a.example"}}) {
    handler->sendLaunchMessage(param, finish("launch"), error("launch"), finish("updateDone"));
  }
  void disconnect() { handler->sendDisconnectMessage(finish("disconnect"), error("disconnect")); }

  TKSFinishBlock finish(const std::string& name) {
    return [this, name] {
      note("calls " + name);
      const auto more = std::exchange(whenCalled[name], nullptr);
      if (more) more();
    };
  }
  TKSErrorBlock error(const std::string& name) {
    return [this, name](const TKSError& reported) {
      note("calls " + name + "Error " + reported.domain + " " + std::to_string(reported.code) + " " +
           reported.localizedDescription);
      const auto more = std::exchange(whenCalled[name + "Error"], nullptr);
      if (more) more();
    };
  }

  // What the launcher does.

  void says(std::string_view json) { channels.input->arrive(frame(json)); }
  void saysType(const std::string& type) { says("{\"message_type\":\"" + type + "\",\"message\":\"" + type + "\"}"); }
  void saysError(const std::string& body) { says("{\"message_type\":\"error\",\"message\":" + body + "}"); }

  /// All that was said has been read and dealt with. Ends and failures of a channel never are.
  bool settle() {
    return drainUntil([this] { return channels.input->unread() == 0; });
  }
  /// What has happened since the last call.
  std::vector<std::string> events() {
    settle();
    return std::exchange(events_, {});
  }
  /// A conversation up to the answer of the launcher to the greeting.
  void connect() {
    hello();
    saysType("hello_ack");
    events();
    log.clear();
  }

  void note(std::string event) { events_.push_back(std::move(event)); }

  FakeHostProcess process;
  MemoryChannels channels;
  FakeClock clock;
  LogRecorder log;
  TKSIAppStatus status = TKSI_APP_STATUS_UNCONNECTED;
  /// What the host does besides, when a callback is called: by "hello", "helloError" and so on. Once.
  std::map<std::string, std::function<void()>> whenCalled;
  std::function<void(TKSIAppStatus)> whenNotified;
  /// Texts of the messages that the launcher heard.
  std::vector<std::string> texts;
  std::unique_ptr<TKSIMessageHandler> handler = std::make_unique<TKSIMessageHandler>();

 private:
  void heard(std::string_view bytes) {
    for (const std::string& text : payloads(bytes)) {
      const TKSValue message = platform::json().parse(text, nullptr);
      note("sends " + message["message_type"].description());
      texts.push_back(text);
    }
  }

  std::vector<std::string> events_;
};

}  // namespace tks::test
