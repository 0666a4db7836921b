#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"

namespace tks::test {

/// What a lone caller sees, step by step and line for line: the facade and its conversation over pipes as they are
/// described, one slot a callback, and nothing for callers that meet. It talks to nobody; what it would log, send and
/// call stands in `story`.
class DescribedFacade {
 public:
  using Finish = std::function<void()>;
  using Error = std::function<void(const std::string& text)>;

  /// `executable`: the launcher's; `isThere`: whether it is there to be started; `nextPid`: the next launcher's
  /// process.
  DescribedFacade(std::string executable, bool isThere, std::int32_t nextPid)
      : executable_(std::move(executable)), isThere_(isThere), nextPid_(nextPid) {}

  std::vector<std::string> story;
  std::int32_t status = TKSI_APP_STATUS_UNCONNECTED;
  std::int32_t connectedPid = 0;
  bool isOpen = false;

  void setUp() {
    line(2, "Got bundleIdentifier:(null)");
    line(2, "TKSInterface/Extension communicates with TKS by PIPE with standrad input and output.");
  }

  void destroy() { stopHost(); }

  // What the host asks for.

  void start(Finish finish, Error error) {
    line(2, "-[TKSInterface start:errorBlock:],  connected pid: " + std::to_string(connectedPid));
    line(2, "TKSInterface SDK version: 7.8.9");
    notifies_ = queries_ = true;
    if (status == TKSI_APP_STATUS_UNCONNECTED) return startLauncher(std::move(finish), std::move(error));
    if (status == TKSI_APP_STATUS_CONNECTED) {
      line(4, "TKS app status: CONNECTED. Already started. Send hello message to test and get on processing.");
      return sendHello(std::move(finish), std::move(error));
    }
    refuse("Start failed: ", "Unexpected app status: " + std::to_string(status), error);
  }

  void stop(Finish finish, Error error) {
    line(2, "-[TKSInterface stop:errorBlock:],  connected pid: " + std::to_string(connectedPid));
    switch (status) {
      case TKSI_APP_STATUS_LAUNCHING:
        line(4, "TKS app status: LAUNCHING. Abort processing job.");
        handleError("Previous launching job running, will stop it firstly.");
        break;
      case TKSI_APP_STATUS_CONNECTED:
        line(2, "TKS app status: CONNECTED. Stop directlly.");
        break;
      case TKSI_APP_STATUS_UNCONNECTED:
        line(4, "TKS app status: UNCONNECTED. No need to stop.");
        cleanUp();
        stopHost();
        return call(finish);
      default: {
        cleanUp();
        stopHost();
        return refuse("Stop failed: ", "Unexpected app status: " + std::to_string(status), error);
      }
    }
    sendDisconnect(std::move(finish), std::move(error));
    cleanUp();
  }

  void launch(const TKSValue& param, Finish finish, Error error) {
    line(2, "About to launch meetting.");
    if (status == TKSI_APP_STATUS_UNCONNECTED || status == TKSI_APP_STATUS_CONNECTED) {
      line(2, "TKS app in correct status. Get on to launch.");
      return launchInternally(param, std::move(finish), std::move(error));
    }
    if (status != TKSI_APP_STATUS_LAUNCHING) {
      return refuse("", "TKS app in unexpected status: " + std::to_string(status), error);
    }
    line(4, "TKS app already in launching status.");
    if (param["gpcdownloadonly"] == TKSValue("1")) {
      return refuse("", "New coming job is download only, ignore it.", error);
    }
    line(4, "Stop previous job firstly.");
    stop([=, this] { launchInternally(param, finish, error); }, error);
  }

  void relaunch(const TKSValue& param, const Finish& finish, const Error& error) {
    line(2, "-[TKSInterface relaunchTKSWhenUpdateDone:launchFinishBlock:launchErrorBlock:]");
    later_ = [=, this] {
      line(2, "Background check if TKS app quited (TKS pid: " + std::to_string(connectedPid) +
                  ") (thread id: " + platform::thisProcess().threadDescription() + ")");
      for (int looks = 0; connectedPid >= 1 && looks < 51; ++looks) {
        line(2, "Still running... check after 100ms");
      }
      line(2, "Checking done, back to main thread: " + platform::thisProcess().threadDescription());
      if (connectedPid == 0) {
        line(2, "Launch again.");
        return launch(param, finish, error);
      }
      refuse("", "TKS app failed to quit, checking timeout. Path: /Users/****/A.app", error);
    };
  }

  /// What was left for the background is done now.
  void doLater() {
    while (later_) std::exchange(later_, nullptr)();
  }

  // What the launcher does.

  void receive(const std::string& type, const std::string& body) {
    const std::string text = R"({"message_type":")" + type + R"(","message":)" + body + "}";
    const std::string size = std::to_string(text.size());
    line(2, "On message.");
    line(2, "messageDataSize: " + std::to_string(text.size() + 4));
    line(2, "Valid message data size, get on processing.");
    line(2, "No pending data, get size from header 4 bytes.");
    line(2, "sizeOfSize: 4");
    line(2, "tellingSize: " + size);
    line(2, "actualDataSize: " + size);
    line(2, "pendingDataSize: 0");
    line(2, "receivedData size old: 0");
    line(2, "receivedData size new: " + size);
    line(2, "Receive message string: " + text);
    line(2, "Handle message of type: " + type);
    if (type == "hello_ack") return onHelloAck();
    if (type == "launch_meeting_ack") return onLaunchAck();
    if (type == "disconnect_ack") return onDisconnectAck();
    if (type == "host_notify") return onUpdateDone();
    if (type == "error") return onError(platform::json().parse(text, nullptr)["message"]);
  }

  /// The pipe has ended.
  void end() {
    const std::string text =
        "Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means parent or "
        "child process already exited, while current message host is still open.)";
    line(2, "On message.");
    line(2, "messageDataSize: 0");
    line(8, "Handle fatal error: " + text);
    line(8, "Handle message host fatal error: " + text);
    if (queries_) {
      line(2, "TKS connect status: " + std::to_string(status));
      line(4, "TKS app status not TKSI_APP_STATUS_UNCONNECTED: 1, no need to retry connect.");
    } else {
      line(2, "No query status block.");
    }
    notify(TKSI_APP_STATUS_UNCONNECTED);
    line(2, "Close message host on fatal error.");
    stopHost();
    handleError(text);
  }

 private:
  void line(int level, const std::string& text) { story.push_back(std::to_string(level) + " " + text); }
  static void call(const Finish& finish) {
    if (finish) finish();
  }
  void refuse(const std::string& before, const std::string& text, const Error& error) {
    line(4, before + text);
    if (error) error(text);
  }
  void cleanUp() { line(2, "Ipc by pipe. Don't need cleanup connect status of interface."); }

  void setStatus(std::int32_t next) {
    static constexpr const char* kNames[] = {"", "UNCONNECTED", "STARTING", "CONNECTED", "LAUNCHING"};
    status = next;
    line(2, std::string("Switch TKS app status to: ") + kNames[next]);
    if (next == TKSI_APP_STATUS_UNCONNECTED) connectedPid = 0;
    if (next != TKSI_APP_STATUS_CONNECTED) return;
    connectedPid = std::exchange(launchedPid_, 0);
    line(2, "Connected to TKS with pid: " + std::to_string(connectedPid));
  }
  void notify(std::int32_t next) {
    if (notifies_) setStatus(next);
  }

  // Starting.

  void startLauncher(Finish finish, Error error) {
    line(2, "TKS app status: UNCONNECTED. Try to launch and connect TKS.");
    setStatus(TKSI_APP_STATUS_STARTING);
    line(2, "-[TKSIAppManager updateDefaultTKS:backupZipPath:]");
    line(8, "Param incorrect when check default TKS version: backupVersion: , zipPath: (null)");
    line(4, "Check default TKS version failed. Get on to process with default version.");
    later_ = [this, finish = std::move(finish), error = std::move(error)] {
      line(2, "Exe path: " + executable_);
      line(2, "Launch with args: (\n    \"-LaunchMethod\",\n    SDK,\n    \"-Communicate\",\n    Pipe\n)");
      isThere_ ? connect(finish, error) : failToLaunch(error);
    };
  }
  void connect(const Finish& finish, const Error& error) {
    const std::string bundle = executable_.substr(0, executable_.find("/Contents/"));
    const std::string pid = std::to_string(nextPid_);
    line(2, "Check app begin.");
    line(2, "Check app done, result: 1, path: " + bundle);
    line(2, "Want Pipe communicate: 1");
    line(2, "Want File communicate: 0");
    line(2, "PID launched: " + pid);
    line(2, "Launched app: pid: " + pid + ", path: /Users/****/A.app");
    line(2, "Launch exe result 1: [pid: " + pid + ", path: " + executable_ + ", retryCount: 1]");
    launchedPid_ = nextPid_++;
    story.push_back("pid: " + pid);
    line(2, "TKS launched, pid: " + pid + ". Start message host, and send hello message to test");
    sendHello(finish, error);
  }
  void failToLaunch(const Error& error) {
    line(2, "Launch exe result 0: [pid: 0, path: " + executable_ + ", retryCount: 0]");
    setStatus(TKSI_APP_STATUS_UNCONNECTED);
    if (!error) return;
    const std::string text =
        "Launch app failed. Path: " + executable_ + ". Error: Component binary file not exists: " + executable_;
    line(8, text);
    line(8, "App broken, about to clean up the broken tks app.");
    error(text);
  }

  // Launching.

  void launchInternally(const TKSValue& param, const Finish& finish, const Error& error) {
    line(2, "Internal launch meeting with param: " + param.description());
    start([=, this] { sendLaunch(param, finish, error); },
          [=, this](const std::string& text) {
            const auto tell = [error, text] {
              if (error) error(text);
            };
            stop(tell, error);
          });
  }

  // The conversation.

  void startHost() {
    line(2, "-[TKSIMessageHandler startMessageHost]");
    if (isOpen) return line(2, "Message Host has been started, and don't need start again.");
    line(2, "Message Host not started yet, start host.");
    line(2, "Open message host with handler.");
    isOpen = true;
    line(2, "Open message host with handler done.");
  }
  void stopHost() {
    line(2, "-[TKSIMessageHandler stopMessageHost]");
    if (std::exchange(isOpen, false)) sayClosed();
  }
  void sayClosed() {
    line(2, "Message Host running, stop it.");
    line(2, "Close message host.");
    line(2, "Close message host done.");
  }
  void send(const std::string& text) {
    line(2, "Send message string: " + text);
    if (!isOpen) line(4, "Message host already closed, abandon sending message.");
  }
  void sendCommon(const std::string& type) { send(R"({"message":")" + type + R"(","message_type":")" + type + "\"}"); }

  void sendHello(Finish finish, Error error) {
    startHost();
    helloFinish_ = std::move(finish);
    helloError_ = std::move(error);
    sendCommon("hello");
  }
  void sendDisconnect(Finish finish, Error error) {
    disconnectFinish_ = std::move(finish);
    disconnectError_ = std::move(error);
    sendCommon("disconnect");
  }
  void sendLaunch(const TKSValue& param, const Finish& finish, const Error& error) {
    launchFinish_ = finish;
    launchError_ = error;
    updateDone_ = [=, this] { relaunch(param, finish, error); };
    notify(TKSI_APP_STATUS_LAUNCHING);
    send(R"({"message":)" + TKSMessage::objectToJSONString(param).value_or("") +
         R"(,"message_type":"launch_meeting"})");
  }

  void onHelloAck() {
    helloError_ = nullptr;
    notify(TKSI_APP_STATUS_CONNECTED);
    call(std::exchange(helloFinish_, nullptr));
  }
  void onLaunchAck() {
    line(2, "Tarvo Kovra Start launch meeting done. Ready to disconnect.");
    call(std::exchange(launchFinish_, nullptr));
    sendDisconnect(nullptr, std::exchange(launchError_, nullptr));
    line(2, "Blocks 'launchFinishBlock' & 'launchErrorBlock' cleaned. Track things by disconnect blocks.");
  }
  void onDisconnectAck() {
    line(2, "On disconnect_ack message. Close message host.");
    line(2, "Handle disconnect_ack message.");
    stopHost();
    disconnectError_ = nullptr;
    line(2, "'disconnectErrorBlock' cleaned, when disconnect_ack");
    queries_ = false;  // what a callback installs is for the next conversation
    notify(TKSI_APP_STATUS_UNCONNECTED);
    call(std::exchange(disconnectFinish_, nullptr));
    line(2, "Tarvo Kovra Start disconnected.");
  }
  void onUpdateDone() {
    line(2, "Tarvo Kovra Start self update done. Ready to disconnect.");
    const auto done = [this] {
      line(2, "Call update done block.");
      if (!updateDone_) return line(4, "No TKS self update done callback block!");
      std::exchange(updateDone_, nullptr)();
    };
    sendDisconnect(done, nullptr);
  }
  void onError(const TKSValue& body) {
    line(2, "On error message. About to disconnect.");
    sendCommon("disconnect");
    if (!body.isDictionary()) return handleError(body.description());
    dropFinishes();
    line(2, "Handle launch error message info: " + body.description());
    if (launchError_) std::exchange(launchError_, nullptr)(body["error_message"].description());
  }

  void dropFinishes() {
    line(2, "Try clean up finish blocks after error.");
    if (std::exchange(helloFinish_, nullptr)) line(2, "Clean up helloFinishBlock after error");
    if (std::exchange(launchFinish_, nullptr)) line(2, "Clean up launchFinishBlock after error");
  }
  /// What a callback installs while it runs is for the next error.
  void handleError(const std::string& text) {
    dropFinishes();
    if (disconnectError_) disconnectFinish_ = nullptr;  // a stop that failed never finishes
    const Error hello = std::exchange(helloError_, nullptr);
    const Error launch = std::exchange(launchError_, nullptr);
    const Error disconnect = std::exchange(disconnectError_, nullptr);
    tell("Hello", hello, text);
    tell("Launch", launch, text);
    tell("Disconnect", disconnect, text);
  }
  void tell(const char* whose, const Error& error, const std::string& text) {
    if (!error) return;
    line(2, std::string(whose) + " error callback block");
    error(text);
  }

  const std::string executable_;
  const bool isThere_;
  std::int32_t nextPid_;
  std::int32_t launchedPid_ = 0;
  bool notifies_ = false;
  bool queries_ = false;
  Finish helloFinish_, launchFinish_, disconnectFinish_, updateDone_;
  Error helloError_, launchError_, disconnectError_;
  std::function<void()> later_;
};

}  // namespace tks::test
