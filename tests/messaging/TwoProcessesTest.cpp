#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>
#include <tksinterface/TKSMessageVocabulary.h>
#include <tksinterface/TKSOptions.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

// Whole conversations between two processes with the library at both ends: over their real standard input and output,
// or over files that their real launch arguments name.

namespace {

using testing::HasSubstr;
using tks::test::Arguments;
using tks::test::ChildProcess;
using tks::test::ChildRole;

/// More than a pipe takes at once.
constexpr std::size_t kLargeBody = 100'000;

/// Puts inherited descriptors in the place of standard input and output. Reports go to standard error from then on.
void joinPipes(const Arguments& arguments) {
  if (arguments.at(0) != "pipes") return;
  ::dup2(STDOUT_FILENO, STDERR_FILENO);
  ::dup2(std::stoi(arguments.at(1)), STDIN_FILENO);
  ::dup2(std::stoi(arguments.at(2)), STDOUT_FILENO);
  for (int descriptor = 3; descriptor < 64; ++descriptor) ::close(descriptor);
}

void report(const Arguments& arguments, const std::string& line) {
  std::fprintf(arguments.at(0) == "pipes" ? stderr : stdout, "%s\n", line.c_str());
}

/// The launcher's end: acknowledges everything, until the farewell.
class Launcher : public TKSMessageHandlerDelegate {
 public:
  explicit Launcher(const Arguments& arguments) : arguments_(arguments) {}

  int run() {
    TKSMessageHost& host = TKSMessageHost::sharedMessengeHost();
    host.openWithMessengeHandler(this);
    TKSMainLoop::run();
    host.close();
    return result_;
  }

  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate*) override {
    const std::string type = message.messageType.value_or("");
    report(arguments_, "launcher heard " + type);
    if (type == tks_message_type_launch_meeting) {
      TKSDictionary parameters = message.message.dictionary();
      TKSMessageHost::sharedMessengeHost().sendMessage(TKSMessage::generateLaunchAckMessage(&parameters));
      return;
    }
    TKSMessage answer;
    answer.messageType = type + "_ack";
    answer.message = type + "_ack";
    TKSMessageHost::sharedMessengeHost().sendMessage(answer);
    if (type == tks_message_type_disconnect) end(0);
  }
  void handleMessageHostFatalError(const std::string& description) override {
    report(arguments_, "launcher failed " + description);
    end(2);
  }

 private:
  void end(int result) {
    result_ = result;
    TKSMainLoop::stop();
  }

  const Arguments& arguments_;
  int result_ = 1;
};

int playLauncher(const Arguments& arguments) {
  joinPipes(arguments);
  return Launcher(arguments).run();
}
const ChildRole launcherRole("talking-launcher", playLauncher);

/// Which names of the conversation's files are left.
void reportNames(const Arguments& arguments) {
  for (const char* name : {"", "/ipcFile_Interface2TKS", "/ipcFile_TKS2Interface"}) {
    if (std::filesystem::exists(arguments.at(4) + name)) report(arguments, "interface sees ipc" + std::string(name));
  }
}

/// The interface's end: greets, launches a meeting, and waits for the end of the conversation.
int playInterface(const Arguments& arguments) {
  joinPipes(arguments);
  TKSIMessageHandler handler;
  TKSIAppStatus status = TKSI_APP_STATUS_STARTING;
  const bool byFile = handler.messageHost->ipcByFile;
  if (arguments.at(0) == "nameless" && !TKSOptions::setOptions({.unlinkMessageFiles = true})) return 3;
  report(arguments, byFile ? "interface uses files" : "interface uses pipes");
  handler.notifyStatusBlock = [&](TKSIAppStatus now) {
    status = now;
    report(arguments, "interface status " + std::to_string(now));
    if (now == TKSI_APP_STATUS_UNCONNECTED) TKSMainLoop::stop();
  };
  handler.queryStatusBlock = [&] { return status; };
  const auto failed = [&](const TKSError& error) {
    report(arguments, "interface failed " + error.localizedDescription);
  };
  if (byFile) {
    // The launcher may start only once the files are there.
    handler.startMessageHost();
    report(arguments, "interface made the files");
    std::fflush(stdout);
  }
  handler.sendHelloMessage(
      [&] {
        report(arguments, "interface was greeted");
        if (byFile) reportNames(arguments);
        const TKSDictionary parameters{{"gpcsitedomain", "https://a.example"}, {"large", std::string(kLargeBody, 'x')}};
        handler.sendLaunchMessage(
            parameters, [&] { report(arguments, "interface launched"); }, failed, nullptr);
      },
      failed);
  TKSMainLoop::run();
  return 0;
}
const ChildRole interfaceRole("talking-interface", playInterface);

struct Ends {
  Ends() {
    if (::pipe(both.data()) != 0) throw std::runtime_error("no pipe");
  }
  ~Ends() { close(); }
  Ends(const Ends&) = delete;
  Ends& operator=(const Ends&) = delete;
  void close() {
    for (int& end : both) {
      if (end >= 0) ::close(end);
      end = -1;
    }
  }
  std::string reader() const { return std::to_string(both[0]); }
  std::string writer() const { return std::to_string(both[1]); }
  std::array<int, 2> both{-1, -1};
};

/// From the greeting to the end; `names` are the lines on the files that the interface sees then.
std::string whatTheInterfaceTells(const std::string& names = {}) {
  return "interface status 3\n"
         "interface was greeted\n" +
         names +
         "interface status 4\n"
         "interface launched\n"
         "interface status 1\n";
}
constexpr const char* kWhatTheLauncherTells =
    "launcher heard hello\n"
    "launcher heard launch_meeting\n"
    "launcher heard disconnect\n";

void talkOverPipes(const Arguments& environment) {
  Ends toLauncher;
  Ends toInterface;
  ChildProcess launcher =
      ChildProcess::inRole("talking-launcher", {"pipes", toLauncher.reader(), toInterface.writer()}, environment);
  ChildProcess interface =
      ChildProcess::inRole("talking-interface", {"pipes", toInterface.reader(), toLauncher.writer()}, environment);
  toLauncher.close();
  toInterface.close();
  EXPECT_EQ(interface.wait(), 0);
  EXPECT_EQ(launcher.wait(), 0);
  EXPECT_EQ(interface.output(), "interface uses pipes\n" + whatTheInterfaceTells());
  EXPECT_EQ(launcher.output(), kWhatTheLauncherTells);
}

TEST(TwoProcesses, HoldAConversationOverTheirStandardInputAndOutput) { talkOverPipes({}); }

#ifdef TKS_ONE_BYTE_SHIM
TEST(TwoProcesses, HoldItWhenNoReadAndNoWriteMovesMoreThanOneByte) { talkOverPipes({"LD_PRELOAD=" TKS_ONE_BYTE_SHIM}); }
#endif

TEST(TwoProcesses, InterfaceWithoutALauncherHearsOfItAndSurvives) {
  Ends toLauncher;
  Ends toInterface;
  ChildProcess interface =
      ChildProcess::inRole("talking-interface", {"pipes", toInterface.reader(), toLauncher.writer()});
  // The launcher's ends go with these: both directions are broken.
  toLauncher.close();
  toInterface.close();
  EXPECT_EQ(interface.wait(), 0) << "a missing reader ends nobody";
  EXPECT_THAT(interface.output(), HasSubstr("interface failed Message data size ( 0 ) less than 'sizeOfSize'"));
}

/// A conversation over files, which are gone at its end; `kind` says whether they keep their names until then.
void talkOverFiles(const std::string& kind, const std::string& names) {
  const tks::test::TemporaryFolder folder;
  const std::string ipc = folder / "ipc";
  const Arguments arguments = {kind, "-Communicate", "File", "-TempIPCFilePath", ipc};
  ChildProcess interface = ChildProcess::inRole("talking-interface", arguments);
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!std::filesystem::exists(ipc + "/ipcFile_Interface2TKS") && std::chrono::steady_clock::now() < limit) {
    ::usleep(1000);
  }
  ChildProcess launcher = ChildProcess::inRole("talking-launcher", arguments);
  EXPECT_EQ(interface.wait(), 0);
  EXPECT_EQ(interface.output(), "interface uses files\ninterface made the files\n" + whatTheInterfaceTells(names));
  EXPECT_EQ(launcher.wait(), 0);
  EXPECT_EQ(launcher.output(), kWhatTheLauncherTells);
  EXPECT_FALSE(std::filesystem::exists(ipc));
}

TEST(TwoProcesses, HoldAConversationOverTheFilesThatTheirArgumentsName) {
  talkOverFiles("files",
                "interface sees ipc\n"
                "interface sees ipc/ipcFile_Interface2TKS\n"
                "interface sees ipc/ipcFile_TKS2Interface\n");
}

TEST(TwoProcesses, GoOnOverFilesThatLoseTheirNames) { talkOverFiles("nameless", ""); }

}  // namespace
