#include <chrono>
#include <string_view>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSLaunchVocabulary.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Errors.h"
#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/BrokenLauncher.h"
#include "install/LauncherIdentity.h"
#include "install/PlaceLock.h"
#include "interface/Facade.h"
#include "interface/LaunchExecutable.h"
#include "interface/SilentLaunchers.h"
#include "messaging/TalksOverFiles.h"
#include "messaging/Transport.h"
#include "platform/platform.h"

// Starting the launcher and greeting it.

namespace tks::interface {

namespace {

/// What the launcher wrote before it ended is read first.
constexpr std::chrono::milliseconds kTimeForLastWords{250};
/// How long the main thread waits for another host to finish replacing the launcher, before it looks at what is there.
constexpr std::chrono::seconds kPatienceWithInstallations{2};

constexpr Stages kGreeting = {Stage::greeting, Stage::crossing};

std::string option(std::string_view name) { return formatted("-%@", name); }

void removeIfBroken(const std::string& path) {
  install::Patience patience(kPatienceWithInstallations);
  TKSError error;
  const auto placeLock = install::lockPlace(path, patience, &error);
  // What another host is replacing is that host's to look at.
  if (!placeLock && error.reason == TKSErrorReason::busy) return;
  if (!TKSUtilBase::isBrokenApp(path) || !install::mayBeCleanedUp(path)) return;
  if (install::keepOrPutBack(path)) return;
  TKSILog::logWithLevel(TKSILogLevelError, "App broken, about to clean up the broken tks app.");
  TKSUtilBase::cleanUpFolderPath(path, true);
}

}  // namespace

void Facade::start(TKSFinishBlock finish, TKSErrorBlock error) {
  beginStart();
  if (isGone()) return;
  const std::int32_t found = status();
  switch (found) {
    case TKSI_APP_STATUS_UNCONNECTED: {
      const Session::Number launcher = session_.nameLauncher();
      session_.add(Stage::starting, {{"finishBlock", std::move(finish)}, std::move(error)});
      launchAndConnect(launcher);
      break;
    }
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(
          TKSILogLevelWarning,
          "TKS app status: CONNECTED. Already started. Send hello message to test and get on processing.");
      session_.add(session_.greetingStage(), {{"finishBlock", std::move(finish)}, std::move(error)});
      greet();
      break;
    default: {
      const std::string message = formatted("Unexpected app status: %i", found);
      TKSILog::logWithLevel(TKSILogLevelWarning, "Start failed: %@", message);
      refuse(error, defaultError(TKSErrorReason::busy, message));
      break;
    }
  }
}

/// A greeting that crossed our goodbye is made again. Whoever was told of the goodbye before may have begun by himself:
/// then it goes with that start.
void Facade::startAgain() {
  if (session_.isStarting()) return session_.joinLauncher();
  const std::int32_t found = status();
  if (found == TKSI_APP_STATUS_CONNECTED) {
    session_.greetAgain();
    return greet();
  }
  const Session::Number launcher = session_.nameLauncher();
  if (found != TKSI_APP_STATUS_UNCONNECTED) {
    const std::string message = formatted("Unexpected app status: %i", found);
    return settle(Event::launcherFailed, {.launcher = launcher}, defaultError(TKSErrorReason::busy, message));
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "TKS disconnected before it answered hello. Start again.");
  beginStart();
  launchAndConnect(launcher);
}

/// What every start does before it looks at the status.
void Facade::beginStart() {
  settleOptions();
  TKSILog::logWithLevel(TKSILogLevelInfo, "%s,  connected pid: %i", "-[TKSInterface start:errorBlock:]",
                        manager().connectedTKSPid.load());
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKSInterface SDK version: %@", platform::bundles().libraryVersion());
  handler().notifyStatusBlock = later([](Facade& self, TKSIAppStatus status) { self.setStatus(status); });
  handler().queryStatusBlock = [weak = weak_from_this()] {
    const std::shared_ptr<Facade> self = weak.lock();
    return self && !self->isGone() ? static_cast<TKSIAppStatus>(self->status()) : TKSI_APP_STATUS_UNCONNECTED;
  };
}

void Facade::launchAndConnect(Session::Number launcher) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app status: UNCONNECTED. Try to launch and connect TKS.");
  setStatus(TKSI_APP_STATUS_STARTING);
  if (!manager().updateDefaultTKS()) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Check default TKS version failed. Get on to process with default version.");
  }
  if (isGone()) return;
  TKSError error;
  const std::optional<std::vector<std::string>> arguments = prepareChannel(error);
  if (!arguments) {
    setStatus(TKSI_APP_STATUS_UNCONNECTED);
    TKSILog::logWithLevel(TKSILogLevelError, "Start failed: %@", masked(error.localizedDescription));
    return settle(Event::launcherFailed, {.launcher = launcher}, error);
  }
  if (isGone()) return;
  launcher_.end();
  const std::string exePath = manager().TKSExePath;
  const auto launched = [weak = weak_from_this(), launcher, exePath](
                            const std::optional<TKSRunningApplication>& application,
                            const std::optional<TKSError>& reason) {
    const std::shared_ptr<Facade> self = weak.lock();
    if (self && !self->isGone()) return self->onLaunchResult(launcher, exePath, application, reason);
    if (application) SilentLaunchers::shared().giveUp(application->processIdentifier);
  };
  launchExecutable(exePath, *arguments, launched, later([mine = launcher_.now()](Facade& self, platform::ChildEnd end) {
                     self.onLauncherEnd(mine, described(end));
                   }));
}

void Facade::onLaunchResult(Session::Number launcher, const std::string& exePath,
                            const std::optional<TKSRunningApplication>& application,
                            const std::optional<TKSError>& reason) {
  if (application) return connect(launcher, *application);
  reportFailedLaunch(launcher, exePath, reason.value_or(TKSError{{}, 0, "(null)"}));
}

/// Chooses the channel by the host's identifier and gets it ready: the launcher's arguments. Nothing when a host that
/// talks over files has no place for them.
std::optional<std::vector<std::string>> Facade::prepareChannel(TKSError& error) {
  const std::string identifier = platform::bundles().mainBundleIdentifier().value_or("");
  if (!isGone()) owner_->bundleID = identifier;
  std::vector<std::string> arguments = {option(TKSLaunchArgNameLaunchMethod),
                                        std::string(TKSLaunchArgValueLaunchMethodTKSInterface),
                                        option(TKSLaunchArgNameCommunicate)};
  if (!messaging::talksOverFiles(identifier)) {
    arguments.emplace_back(TKSLaunchArgValueCommunicatePipe);
    return arguments;
  }
  const std::string temporary = platform::knownFolders().temporary();
  if (temporary.empty()) {
    error = defaultError(TKSErrorReason::noSafeFolder,
                         "No temporary folder that can be trusted, can not communicate by file.");
    return std::nullopt;
  }
  const std::string stamped =
      joinedPath(joinedPath(temporary, identifier), formatted("ipcFile_%@", platform::clock().localTimestamp()));
  // Left open by a launch that failed: with it open, the new folder would never be made and the old one never removed.
  if (handler().messageHost->isOpened) handler().stopMessageHost();
  const std::string folder = messaging::Transport::of(*handler().messageHost).useNewFolder(stamped);
  handler().startMessageHost();
  if (const std::optional<TKSError> failure = messaging::Transport::of(*handler().messageHost).openingFailure()) {
    handler().stopMessageHost();
    error = defaultError(reasonOf(*failure, TKSErrorReason::noPermission),
                         formatted("No folder for the message files, can not communicate by file. Path: %@", folder));
    return std::nullopt;
  }
  messaging::Transport::of(*handler().messageHost).expectPeer(0);  // nobody, before it is started
  arguments.emplace_back(TKSLaunchArgValueCommunicateFile);
  arguments.push_back(option(TKSLaunchArgNameTempIPCFilePath));
  arguments.push_back(folder);
  return arguments;
}

void Facade::connect(Session::Number launcher, const TKSRunningApplication& application) {
  const std::int32_t pid = application.processIdentifier;
  manager().launchedTKSPid = pid;
  messaging::Transport::of(*handler().messageHost).expectPeer(pid);
  // The callback may set another one.
  if (const TKSPidBlock block = owner_->pidBlock) tell({{"launchedTKSPidBlock", [block, pid] { block(pid); }}});
  if (isGone()) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS launched, pid: %i. Start message host, and send hello message to test",
                        pid);
  session_.launcherRuns(launcher);
  greet();
}

/// Most often the conversation has noticed by itself. It cannot when the channel is a pair of files, or when a child of
/// the launcher keeps the pipe open.
void Facade::onLauncherEnd(const Epoch::Moment& launcher, const std::string& end) {
  if (launcher.isOver()) return;
  endTimer_ = platform::mainLoop().after(
      kTimeForLastWords, later([launcher, end](Facade& self) {
        if (launcher.isOver()) return;
        TKSMessageHost& host = *self.handler().messageHost;
        if (host.isOpened) {
          return host.handleFatalError(formatted("Launcher process ended while message host is still open. (%@)", end));
        }
        // A greeting that was refused and stopped has left a status that no launcher will ever change.
        if (self.status() == TKSI_APP_STATUS_STARTING && !self.session_.isStarting()) {
          self.setStatus(TKSI_APP_STATUS_UNCONNECTED);
        }
      }));
}

/// The check for a broken launcher, and its removal, are made for hosts that listen to errors only. Required behaviour:
/// do not fix.
void Facade::reportFailedLaunch(Session::Number launcher, const std::string& exePath, const TKSError& reason) {
  setStatus(TKSI_APP_STATUS_UNCONNECTED);
  const Session::Scope waiting{.launcher = launcher};
  if (!session_.listensForErrors(waiting)) return settle(Event::launcherFailed, waiting, {});
  const std::string message = formatted("Launch app failed. Path: %@. Error: %@", exePath, reason.localizedDescription);
  TKSILog::logWithLevel(TKSILogLevelError, "%@", masked(message));
  removeIfBroken(manager().TKSAppPath);
  settle(Event::launcherFailed, waiting, defaultError(reasonOf(reason, TKSErrorReason::unspecified), message));
}

void Facade::greet() {
  if (isGone()) return;
  request_.end();
  handler().sendHelloMessage(finishOf(kGreeting), errorOf(kGreeting));
}

}  // namespace tks::interface
