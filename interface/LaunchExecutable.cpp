#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/Epoch.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/PlaceLock.h"
#include "install/Trust.h"
#include "interface/HostCalls.h"
#include "interface/LaunchArguments.h"
#include "interface/LaunchExecutable.h"
#include "interface/SilentLaunchers.h"
#include "messaging/Observation.h"
#include "platform/platform.h"

// Starting the launcher's executable as a child process of this one.

namespace {

constexpr std::chrono::milliseconds kPollInterval{100};
/// The counter starts at 0 and the polling stops once it has reached this: one more poll than the number says.
constexpr int kLastPoll = 300;
constexpr int kPollSeconds = 30;
/// How long a launch in the background waits for another host that is replacing the launcher.
constexpr std::chrono::seconds kPatienceWithInstallations{10};

constexpr std::string_view kNoThread = "No thread to launch the app on.";

using tks::masked;
using tks::platform::ChildEnd;

/// What the steps of a launch note for its last line.
struct Launch {
  std::string exePath;
  std::int32_t pid = 0;
  int polls = 0;
  bool succeeded = false;
  /// Why it failed.
  std::string message;
  TKSErrorReason reason = TKSErrorReason::systemFailed;
  std::optional<TKSRunningApplication> application;
};

std::string withTildeExpanded(std::string_view path) {
  if (path != "~" && !path.starts_with("~/")) return std::string(path);
  return TKSUtilBase::getRealHomeDirectory().append(path.substr(1));
}

/// Empty when the path has fewer components, or when one of them leads back up: what comes before it would not be the
/// folder that the path leads into.
std::string withoutLastComponents(std::string_view path, int count) {
  for (int i = 0; i < count; ++i) {
    if (path == "." || tks::lastPathComponent(path) == "..") return {};
    path = tks::folderOf(path);
  }
  return std::string(path == "." ? "" : path);
}

TKSArray arrayOf(const std::vector<std::string>& texts) {
  return TKSArray(std::vector<TKSValue>(texts.begin(), texts.end()));
}

/// The bundle of an executable at "Contents/MacOS/name" of it.
std::string bundleOf(std::string_view exePath) { return withoutLastComponents(exePath, 3); }

bool isTrusted(Launch& launch) {
  const std::string bundlePath = bundleOf(launch.exePath);
  TKSError error;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check app begin.");
  const bool trusted = tks::checkTrustForStart(bundlePath, &error);
  if (!trusted) {
    launch.message = tks::formatted("Security check failed: %@", error.localizedDescription);
    launch.reason = TKSErrorReason::notTrusted;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check app done, result: %i, path: %@", trusted, masked(bundlePath));
  return trusted;
}

bool mayBeLaunched(Launch& launch) {
  if (!tks::platform::files().exists(launch.exePath)) {
    launch.message = tks::formatted("Component binary file not exists: %@", launch.exePath);
    launch.reason = TKSErrorReason::notInstalled;
    return false;
  }
  if (!isTrusted(launch)) return false;
  if (!tks::platform::files().isExecutableFile(launch.exePath)) {
    launch.message = tks::formatted("Component binary file not executable: %@", masked(launch.exePath));
    launch.reason = TKSErrorReason::noPermission;
    return false;
  }
  return true;
}

/// How far the launch has come. The end of the child may be told at any time, and looks here.
struct ChildWatch {
  std::atomic<std::int32_t> pid = 0;
  std::atomic<bool> wasSeen = false;
  std::atomic<bool> earlyEndIsLogged = false;
  /// `end` is known, and changes no more.
  std::atomic<bool> hasEnded = false;
  /// Written on the main thread; others look at `hasEnded` first.
  std::optional<ChildEnd> end;
  /// Main thread only: who has not been told yet.
  std::function<void(ChildEnd)> ended;
  /// Somebody is going to talk to it, or to give it up.
  bool isForConversation = false;

  /// The end as far as it is known here and now. The main thread may be the one that waits for it, so that nobody
  /// tells.
  std::optional<ChildEnd> knownEnd() const { return hasEnded ? end : tks::platform::childProcesses().untoldEnd(pid); }
  /// Tells those who know the application by now.
  void tellEnd() {
    if (end && ended) std::exchange(ended, nullptr)(*end);
  }
};

void tellObserver(TKSConversationEvent::Kind kind, std::string_view text, std::int32_t pid) {
  tks::messaging::observe({.kind = kind, .side = tksMessageHostTypeInterface, .text = text, .processIdentifier = pid});
}

/// Names the reason when a launcher ends before it was seen running: without it the time-out alone would be left.
void logEarlyEnd(ChildWatch& watch, ChildEnd end) {
  if (watch.earlyEndIsLogged.exchange(true)) return;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Launched process ended early. PID: %d, %@", watch.pid.load(),
                        tks::described(end));
}

void onEnd(ChildWatch& watch, ChildEnd end) {
  watch.pid.wait(0);  // the end may overtake the answer of the start
  watch.end = end;
  tks::interface::SilentLaunchers::shared().forget(watch.pid);
  if (!watch.wasSeen) logEarlyEnd(watch, end);
  watch.hasEnded = true;
  tellObserver(TKSConversationEvent::Kind::ended, tks::described(end), watch.pid);
  watch.tellEnd();
}

void startProcess(Launch& launch, const std::vector<std::string>& args, const tks::LaunchArguments& scanned,
                  const std::shared_ptr<ChildWatch>& watch) {
  tks::platform::ChildRequest request;
  request.executable = launch.exePath;
  request.arguments = args;
  request.joinStandardHandles = scanned.joinsStandardHandles();
  request.keepPipesPrivate = tks::options().privatePipes;
  if (!tks::options().launcherEnvironment.empty()) request.environment = tks::options().launcherEnvironment;
  TKSError error;
  launch.pid = tks::platform::childProcesses().start(
      request, [watch](ChildEnd end) { onEnd(*watch, end); }, &error);
  if (launch.pid < 1) launch.reason = tks::reasonOf(error, TKSErrorReason::systemFailed);
  // Before anybody can be told of its end.
  if (launch.pid >= 1 && watch->isForConversation) tks::interface::SilentLaunchers::shared().add(launch.pid);
  if (launch.pid >= 1) tellObserver(TKSConversationEvent::Kind::started, launch.exePath, launch.pid);
  watch->pid = launch.pid;
  watch->pid.notify_all();
  TKSILog::logWithLevel(TKSILogLevelInfo, "PID launched: %d", launch.pid);
}

/// Polls until the system lists the process as a running application, or the process is known to have ended: returns
/// the end then.
std::optional<ChildEnd> waitForApplication(Launch& launch, const ChildWatch& watch) {
  std::optional<ChildEnd> end;
  for (int counter = 0; counter <= kLastPoll && !launch.application && !end; ++counter) {
    tks::platform::clock().sleep(kPollInterval);
    ++launch.polls;
    end = watch.knownEnd();
    launch.application = tks::platform::runningApplications().find(launch.pid);
    const std::string found = launch.application ? launch.application->description() : "(null)";
    TKSILog::logWithLevel(TKSILogLevelInfo, "Launched app: %@", masked(found));
  }
  return end;
}

/// A process that can never be looked up is not started: it would run on although its launch counts as failed.
bool canBeWaitedFor(Launch& launch) {
  TKSError error;
  if (tks::platform::runningApplications().canLookUp(&error)) return true;
  launch.message =
      tks::formatted("Running apps can not be looked up, app is not launched: %@", error.localizedDescription);
  launch.reason = tks::reasonOf(error, TKSErrorReason::systemFailed);
  return false;
}

/// Nobody will talk to a launcher that was joined to the standard handles and never seen: the handles from before come
/// back once it has ended.
void giveUpStandardHandles() {
  const auto source = tks::platform::channels().standardInput(nullptr);
  if (source) tks::platform::channels().endOfTalk(source->identity(), false);
}

/// Why the process was never listed.
void failToSee(Launch& launch, std::optional<ChildEnd> end) {
  launch.reason = end ? TKSErrorReason::endedEarly : TKSErrorReason::notAnswered;
  launch.message = end ? tks::formatted("Launched process ended before it was running (%@). Path: %@",
                                        tks::described(*end), masked(launch.exePath))
                       : tks::formatted("Getting running app process timeout (more than %i s). Path: %@", kPollSeconds,
                                        masked(launch.exePath));
}

void startAndWait(Launch& launch, const std::vector<std::string>& args, const std::shared_ptr<ChildWatch>& watch,
                  std::unique_ptr<tks::platform::FileLock> placeLock) {
  const tks::LaunchArguments scanned = tks::scanLaunchArguments(args);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Want Pipe communicate: %d", scanned.wantsPipe);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Want File communicate: %d", scanned.wantsFile);
  if (!scanned.warmUp && !canBeWaitedFor(launch)) return;
  startProcess(launch, args, scanned, watch);
  placeLock.reset();
  if (scanned.warmUp) {
    watch->wasSeen = true;  // nobody waits to see it
    launch.succeeded = true;
    return;
  }
  if (launch.pid < 1) {
    launch.message = "Getting pid failed, probably launch app by NSTask failed.";
    return;
  }
  const std::optional<ChildEnd> end = waitForApplication(launch, *watch);
  launch.succeeded = launch.application.has_value();
  watch->wasSeen = launch.succeeded;
  if (launch.succeeded) return;
  if (end) logEarlyEnd(*watch, *end);
  tks::interface::SilentLaunchers::shared().giveUp(launch.pid);
  if (scanned.joinsStandardHandles()) tks::platform::mainLoop().post(giveUpStandardHandles);
  failToSee(launch, end);
}

std::optional<TKSRunningApplication> launchAndWait(std::string_view exePath, const std::vector<std::string>& args,
                                                   const std::shared_ptr<ChildWatch>& watch, TKSError* error) {
  tks::settleOptions();
  Launch launch;
  launch.exePath = exePath;
  const std::string shownPath = withTildeExpanded(exePath);
  const TKSValue shownArguments = arrayOf(args);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Exe path: %@", masked(shownPath));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Launch with args: %@", masked(shownArguments));
  // Otherwise another host of the same user could replace the launcher between the check and the start.
  tks::install::Patience patience(kPatienceWithInstallations);
  auto placeLock = tks::install::lockPlace(bundleOf(exePath), patience, nullptr);
  if (mayBeLaunched(launch)) startAndWait(launch, args, watch, std::move(placeLock));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Launch exe result %i: [pid: %d, path: %@, retryCount: %d]", launch.succeeded,
                        launch.pid, masked(launch.exePath), launch.polls);
  if (!launch.succeeded && error != nullptr) {
    *error = tks::makeError(launch.reason, TKSUtilErrorDomain, 0, std::move(launch.message));
  }
  return launch.application;
}

/// Those who wait for a launch in the background.
struct Waiting {
  TKSLaunchResultBlock launchResult;
  std::function<void(ChildEnd)> ended;
  const std::shared_ptr<ChildWatch> watch = std::make_shared<ChildWatch>();
};

/// The callbacks of the host go to the main thread whole: not even their destructors run anywhere else.
void deliver(Waiting& waiting, std::optional<TKSRunningApplication> application, TKSError failure) {
  if (!waiting.launchResult) return;
  std::optional<TKSError> error;
  if (failure != TKSError()) error = std::move(failure);
  tks::platform::mainLoop().post([watch = waiting.watch, launchResult = std::move(waiting.launchResult),
                                  ended = std::move(waiting.ended), application = std::move(application),
                                  error = std::move(error)]() mutable {
    const tks::Epoch always;
    const std::function<void()> tell = [&] { tks::take(launchResult)(application, error); };
    tks::interface::makeCalls({{"launchResult", tell}}, always.now());
    if (!application) return;
    watch->ended = std::move(ended);
    watch->tellEnd();
  });
}

}  // namespace

std::string tks::described(platform::ChildEnd end) {
  using How = platform::ChildEnd::How;
  switch (end.how) {
    case How::exited:
      return formatted("exit code: %d", end.number);
    case How::killed:
      return formatted("signal: %d", end.number);
    case How::unknown:
      break;
  }
  return "status unknown";
}

void tks::launchExecutable(std::string_view exePath, const std::vector<std::string>& args,
                           TKSLaunchResultBlock launchResult, std::function<void(platform::ChildEnd)> ended) {
  const auto waiting = std::make_shared<Waiting>();
  waiting->launchResult = std::move(launchResult);
  waiting->watch->isForConversation = static_cast<bool>(ended);
  waiting->ended = std::move(ended);
  const bool accepted = platform::backgroundWork().submit([exePath = std::string(exePath), args, waiting] {
    TKSError failure;
    std::optional<TKSRunningApplication> application = launchAndWait(exePath, args, waiting->watch, &failure);
    deliver(*waiting, std::move(application), std::move(failure));
  });
  if (accepted) return;
  deliver(*waiting, std::nullopt,
          makeError(TKSErrorReason::outOfResources, TKSUtilErrorDomain, 0, std::string(kNoThread)));
}

void TKSUtilBase::launchAppWithExePath(std::string_view exePath, const std::vector<std::string>& args,
                                       TKSLaunchResultBlock launchResult) {
  tks::launchExecutable(exePath, args, std::move(launchResult), nullptr);
}

std::optional<TKSRunningApplication> TKSUtilBase::launchAppWithExePath(std::string_view exePath,
                                                                       const std::vector<std::string>& args,
                                                                       TKSError* error) {
  return launchAndWait(exePath, args, std::make_shared<ChildWatch>(), error);
}
