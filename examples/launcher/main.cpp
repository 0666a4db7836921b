// A launcher: the other end of the conversation, on the launcher's side of the library.
//
// A host starts it with "-Communicate Pipe", and it talks over its standard input and output; or with "-Communicate
// File -TempIPCFilePath FOLDER", and it talks over two files in that folder. TKSMessageHost reads these arguments
// itself. Standard output may be the channel, so that everything for people goes to standard error.

#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>
#include <thread>

namespace {

void say(const std::string& text) { std::cerr << "Tarvo Kovra Start: " << text << std::endl; }

/// The answers that need nothing but their name.
TKSMessage acknowledgement(std::string_view type) {
  TKSMessage message;
  message.messageType = std::string(type);
  message.message = type;
  return message;
}

class Launcher : public TKSMessageHandlerDelegate {
 public:
  explicit Launcher(TKSMessageHost& channel) : channel_(channel) {}

  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override {
    if (message.messageType == tks_message_type_hello)
      channel_.sendMessage(acknowledgement(tks_message_type_hello_ack));
    if (message.messageType == tks_message_type_launch_meeting) launchMeeting(message);
    if (message.messageType == tks_message_type_disconnect) {
      channel_.sendMessage(acknowledgement(tks_message_type_disconnect_ack));
      TKSMainLoop::stop();
    }
  }

  // The channel is broken. Most often that is the end of the host.
  void handleMessageHostFatalError(const std::string& description) override {
    say(description);
    TKSMainLoop::stop();
  }

 private:
  void launchMeeting(const TKSMessage& message) {
    // A launcher would join the meeting now. The body holds the host's parameters, its keys in lower case.
    const TKSValue shown = message.message;
    say("joining " + message.domain.value_or("no site") + " with " + TKSILog::removeSensitiveInformation(shown));
    TKSDictionary parameters = message.message.dictionary();
    channel_.sendMessage(TKSMessage::generateLaunchAckMessage(&parameters));
  }

  TKSMessageHost& channel_;
};

/// Files have no end that would show when the host is gone.
void quitWithTheHost() {
  std::thread([host = ::getppid()] {
    while (::getppid() == host) std::this_thread::sleep_for(std::chrono::milliseconds(200));
    TKSMainLoop::stop();
  }).detach();
}

}  // namespace

int main() {
  TKSMessageHost& channel = TKSMessageHost::sharedMessengeHost();
  Launcher launcher(channel);
  if (channel.ipcByFile) quitWithTheHost();
  channel.openWithMessengeHandler(&launcher);
  TKSMainLoop::run();
  channel.close();
  // The watching thread may still be asleep.
  std::quick_exit(0);
}
