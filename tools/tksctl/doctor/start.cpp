#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSLaunchVocabulary.h>

#include <chrono>
#include <memory>
#include <optional>

#include "interface/LaunchExecutable.h"
#include "messaging/Transport.h"
#include "platform/platform.h"
#include "tools/tksctl/doctor/report.h"
#include "tools/tksctl/parts/file_host.h"

// The start is made of the library's own steps, without the facade: that would remove a launcher which it finds broken,
// and who looks for a fault wants to see it.

namespace tks::ctl::doctor {
namespace {

using Clock = std::chrono::steady_clock;
using End = Interrupts::End;

std::string milliseconds(Clock::time_point since) {
  return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count()) + " ms";
}

/// One start, with what its steps have told so far. Shared by callbacks that may come late.
struct Attempt {
  bool isAnswered = false;
  TKSIAppStatus status = TKSI_APP_STATUS_STARTING;
  std::optional<TKSError> error;
  std::optional<TKSRunningApplication> application;
  std::optional<platform::ChildEnd> end;

  TKSFinishBlock finish() {
    return [this] { isAnswered = true; };
  }
  TKSErrorBlock fail() {
    return [this](const TKSError& reason) {
      error = reason;
      isAnswered = true;
    };
  }
};

class Start {
 public:
  Start(Report& report, const Wishes& wishes)
      : report_(report), patience_(std::chrono::seconds(wishes.patience)), program_(programOf(launcherPath(wishes))) {
    if (wishes.files) fileHost_.emplace();
    handler_ = std::make_unique<TKSIMessageHandler>();
    // As in a host: by its status the handler decides what a broken channel means.
    handler_->notifyStatusBlock = [attempt = attempt_](TKSIAppStatus status) { attempt->status = status; };
    handler_->queryStatusBlock = [attempt = attempt_] { return attempt->status; };
  }

  ~Start() {
    handler_->stopMessageHost();
    if (attempt_->application && !attempt_->end) platform::runningApplications().forceTerminate(*attempt_->application);
  }

  bool launch() {
    const auto began = Clock::now();
    const auto attempt = attempt_;
    const std::vector<std::string> arguments = channelArguments();
    if (arguments.empty()) return false;
    launchExecutable(
        program_, arguments,
        [attempt](const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& error) {
          attempt->application = application;
          attempt->error = error;
          attempt->isAnswered = true;
        },
        [attempt](platform::ChildEnd end) { attempt->end = end; });
    // The library itself gives up after about thirty seconds.
    constexpr std::chrono::seconds kLibrarysPatience{45};
    const bool isDone = wait("start.launch", "start", kLibrarysPatience);
    if (!isDone) return false;
    if (!attempt_->application) return refuse("start.launch", "start");
    report_.pass("start.launch", "start",
                 "running after " + milliseconds(began) + ", process " +
                     std::to_string(attempt_->application->processIdentifier));
    return true;
  }

  bool greet() {
    return ask("start.hello", "greeting", "answered after ",
               [this] { handler_->sendHelloMessage(attempt_->finish(), attempt_->fail()); });
  }

  bool sayGoodbye() {
    return ask("start.goodbye", "goodbye", "answered after ",
               [this] { handler_->sendDisconnectMessage(attempt_->finish(), attempt_->fail()); });
  }

  void awaitEnd() {
    const auto began = Clock::now();
    const auto ended = report_.context().interrupts.runUntil([this] { return attempt_->end.has_value(); }, patience_);
    if (ended == End::done)
      return report_.pass("start.end", "end of the launcher",
                          described(*attempt_->end) + " after " + milliseconds(began));
    report_.warn("start.end", "end of the launcher", "it is still running after its goodbye; it is ended now",
                 "Look at what the launcher waits for.");
  }

 private:
  static std::string programOf(const std::string& path) {
    const auto bundle = platform::bundles().open(path);
    return bundle ? bundle->executablePath : std::string();
  }

  /// The words that tell the launcher its channel; none when there is no place for the files of one.
  std::vector<std::string> channelArguments() {
    const auto option = [](std::string_view name) { return "-" + std::string(name); };
    std::vector<std::string> arguments = {option(TKSLaunchArgNameLaunchMethod),
                                          std::string(TKSLaunchArgValueLaunchMethodTKSInterface),
                                          option(TKSLaunchArgNameCommunicate)};
    if (!fileHost_) {
      arguments.emplace_back(TKSLaunchArgValueCommunicatePipe);
      return arguments;
    }
    messaging::Transport& transport = messaging::Transport::of(*handler_->messageHost);
    const std::string folder = transport.useNewFolder(platform::knownFolders().temporary() + "/ipcFile_doctor_0");
    handler_->startMessageHost();
    if (const std::optional<TKSError> failure = transport.openingFailure()) {
      report_.fail("start.launch", "start", "no folder for the message files: " + failure->localizedDescription,
                   failure->recoverySuggestion, exitFor(*failure));
      return {};
    }
    arguments.emplace_back(TKSLaunchArgValueCommunicateFile);
    arguments.insert(arguments.end(), {option(TKSLaunchArgNameTempIPCFilePath), folder});
    return arguments;
  }

  bool ask(const std::string& id, const std::string& title, const std::string& done,
           const std::function<void()>& send) {
    attempt_->isAnswered = false;
    attempt_->error.reset();
    const auto began = Clock::now();
    send();
    if (!wait(id, title, patience_)) return false;
    if (attempt_->error) return refuse(id, title);
    report_.pass(id, title, done + milliseconds(began));
    return true;
  }

  bool wait(const std::string& id, const std::string& title, std::chrono::seconds limit) {
    const auto isOver = [this] { return attempt_->isAnswered || (attempt_->application && attempt_->end); };
    const End end = report_.context().interrupts.runUntil(isOver, limit);
    if (end == End::done && (attempt_->isAnswered || !attempt_->end)) return true;
    if (end == End::done) {
      // The channel's last words may still come.
      report_.context().interrupts.runUntil([this] { return attempt_->isAnswered; }, std::chrono::milliseconds(300));
      if (attempt_->isAnswered && !attempt_->error) return true;
      report_.fail(id, title, "the launcher ended meanwhile: " + described(*attempt_->end),
                   "Start its program by hand and see what it says; install the launcher again.", Exit::brokenLauncher);
      return false;
    }
    const bool isInterrupted = end == End::interrupted;
    const std::string seen = isInterrupted ? "interrupted" : "no answer within " + std::to_string(limit.count()) + " s";
    report_.fail(id, title, seen,
                 isInterrupted ? "" : "Look whether the launcher hangs; end its process, then install it again.",
                 isInterrupted ? Exit::interrupted : Exit::timedOut);
    return false;
  }

  bool refuse(const std::string& id, const std::string& title) {
    const TKSError error = attempt_->error.value_or(TKSError());
    report_.fail(id, title, error.localizedDescription, error.recoverySuggestion, exitFor(error));
    return false;
  }

  Report& report_;
  std::chrono::seconds patience_;
  std::string program_;
  std::optional<ActsAsFileHost> fileHost_;
  std::unique_ptr<TKSIMessageHandler> handler_;
  const std::shared_ptr<Attempt> attempt_ = std::make_shared<Attempt>();
};

}  // namespace

void checkStart(Report& report, const Wishes& wishes) {
  const std::string id = "start.launch";
  if (wishes.withoutStart) return report.skip(id, "start", "left out (--no-start)");
  if (report.failed("launcher.") || !platform::files().exists(launcherPath(wishes))) {
    return report.skip(id, "start", "the launcher is not started as it is");
  }
  Start start(report, wishes);
  if (start.launch() && start.greet() && start.sayGoodbye()) start.awaitEnd();
}

}  // namespace tks::ctl::doctor
