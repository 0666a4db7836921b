// A launcher: the other end of the conversation, on the launcher's side of the library.
//
// A host starts it with "-Communicate Pipe", and it talks over its standard input and output; or with "-Communicate
// File -TempIPCFilePath FOLDER", and it talks over two files in that folder. TKSMessageHost reads these arguments
// itself. Standard output may be the channel, so that everything for people goes to standard error.
//
// An update that it fetched earlier lies beside its bundle as "Tarvo Kovra Start VERSION.zip". When it is asked to
// launch a meeting it installs that first and tells the host, which waits for it to quit and starts the new launcher.

#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "application.h"

namespace {

namespace fs = std::filesystem;

void say(const std::string& text) { std::cerr << "Tarvo Kovra Start: " << text << std::endl; }

/// A newer launcher that waits beside this one's bundle.
class Update {
 public:
  static std::optional<Update> beside(const fs::path& bundle) {
    const std::string begin = bundle.stem().string() + " ";
    for (const fs::directory_entry& entry : fs::directory_iterator(bundle.parent_path())) {
      const std::string name = entry.path().stem().string();
      if (entry.path().extension() == ".zip" && name.starts_with(begin)) {
        return Update(bundle, entry.path(), name.substr(begin.size()));
      }
    }
    return std::nullopt;
  }

  const std::string& version() const { return version_; }

  /// Puts the new launcher in this one's place when it is what it claims to be. Used up in any case.
  bool install() const {
    const fs::path folder = bundle_.parent_path() / ".update";
    const fs::path fresh = folder / bundle_.filename();
    fs::remove_all(folder);
    fs::create_directory(folder);
    fs::permissions(folder, fs::perms::owner_all);
    TKSUtilBase::unzip(archive_.string(), folder.string());
    TKSError error;
    const bool safe = TKSUtilBase::isSafeToInstall(fresh.string(), version_, &error);
    if (safe) {
      fs::rename(bundle_, folder / "old");
      fs::rename(fresh, bundle_);
    } else {
      say("the update is refused: " + error.localizedDescription);
    }
    fs::remove_all(folder);
    fs::remove(archive_);
    return safe;
  }

 private:
  Update(fs::path bundle, fs::path archive, std::string version)
      : bundle_(std::move(bundle)), archive_(std::move(archive)), version_(std::move(version)) {}

  fs::path bundle_;
  fs::path archive_;
  std::string version_;
};

/// The answers that need nothing but their name.
TKSMessage acknowledgement(std::string_view type) {
  TKSMessage message;
  message.messageType = std::string(type);
  message.message = type;
  return message;
}

class Launcher : public TKSMessageHandlerDelegate {
 public:
  Launcher(TKSMessageHost& channel, fs::path bundle)
      : channel_(channel),
        bundle_(std::move(bundle)),
        version_(TKSUtilBase::getBundleVersion(bundle_.string()).text()) {}

  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override {
    if (message.messageType == tks_message_type_hello)
      channel_.sendMessage(acknowledgement(tks_message_type_hello_ack));
    if (message.messageType == tks_message_type_launch_meeting) launchMeeting(message);
    if (message.messageType == tks_message_type_disconnect) {
      channel_.sendMessage(acknowledgement(tks_message_type_disconnect_ack));
      stopApplication();
    }
  }

  // The channel is broken. Most often that is the end of the host.
  void handleMessageHostFatalError(const std::string& description) override {
    say(description);
    exitCode_ = EXIT_FAILURE;
    stopApplication();
  }

  // A launcher whose host said goodbye has succeeded.
  int exitCode() const { return exitCode_; }

 private:
  void launchMeeting(const TKSMessage& message) {
    if (const std::optional<Update> update = Update::beside(bundle_)) {
      say("version " + version_ + " updates itself to " + update->version());
      if (update->install()) return channel_.sendMessage(acknowledgement(tks_message_type_update_done));
    }
    // A launcher would join the meeting now. The body holds the host's parameters, its keys in lower case.
    const TKSValue shown = message.message;
    say("version " + version_ + " joins " + message.domain.value_or("no site") + " with " +
        TKSILog::removeSensitiveInformation(shown));
    TKSDictionary parameters = message.message.dictionary();
    channel_.sendMessage(TKSMessage::generateLaunchAckMessage(&parameters));
  }

  TKSMessageHost& channel_;
  fs::path bundle_;
  std::string version_;
  std::atomic<int> exitCode_ = EXIT_SUCCESS;
};

/// Files have no end that would show when the host is gone.
void quitWithTheHost(Launcher& launcher) {
  std::thread([&launcher, host = ::getppid()] {
    while (::getppid() == host) std::this_thread::sleep_for(std::chrono::milliseconds(200));
    launcher.handleMessageHostFatalError("the host is gone");
  }).detach();
}

}  // namespace

int main(int, char** arguments) {
  TKSMessageHost& channel = TKSMessageHost::sharedMessengeHost();
  // X.app/Contents/MacOS/X
  const fs::path bundle = fs::absolute(arguments[0]).parent_path().parent_path().parent_path();
  Launcher launcher(channel, bundle);
  if (channel.ipcByFile) quitWithTheHost(launcher);
  channel.openWithMessengeHandler(&launcher);
  runApplication();
  channel.close();
  // The watching thread may still be asleep.
  std::_Exit(launcher.exitCode());
}
