#include <chrono>
#include <string_view>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSLaunchVocabulary.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/FilePaths.h"
#include "foundation/Logging.h"
#include "install/LauncherIdentity.h"
#include "install/PlaceLock.h"
#include "interface/LaunchExecutable.h"
#include "interface/TKSInterfaceState.h"
#include "messaging/FileHosts.h"
#include "platform/platform.h"

// Starting the launcher and greeting it.

using tks::formatted;
using tks::masked;

namespace {

/// What the launcher wrote before it ended is read first.
constexpr std::chrono::milliseconds kTimeForLastWords{250};
/// How long the main thread waits for another host to finish replacing the launcher, before it looks at what is there.
constexpr std::chrono::seconds kPatienceWithInstallations{2};

std::string option(std::string_view name) { return formatted("-%@", name); }

}  // namespace

void TKSInterface::start(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  if (isElsewhere()) return doOnMainThread([=, this] { start(finishBlock, errorBlock); });

  TKSILog::logWithLevel(TKSILogLevelInfo, "%s,  connected pid: %i", "-[TKSInterface start:errorBlock:]",
                        connectedTKSAppPid());
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKSInterface SDK version: %@", tks::platform::bundles().libraryVersion());
  installStatusBlocks();

  const std::int32_t status = appManager->TKSAppStatus;
  switch (status) {
    case TKSI_APP_STATUS_UNCONNECTED:
      launchAndConnect(std::move(finishBlock), std::move(errorBlock));
      break;
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(
          TKSILogLevelWarning,
          "TKS app status: CONNECTED. Already started. Send hello message to test and get on processing.");
      state_->greetAgain = state_->disconnects.isWaiting();
      greet(std::move(finishBlock), std::move(errorBlock));
      break;
    default: {
      const std::string message = formatted("Unexpected app status: %i", status);
      TKSILog::logWithLevel(TKSILogLevelWarning, "Start failed: %@", message);
      tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
      break;
    }
  }
}

void TKSInterface::installStatusBlocks() {
  messageHandler->notifyStatusBlock = [this](TKSIAppStatus status) {
    appManager->handleStatusChange(status);
    // Looked at once the conversation is done with this step.
    if (status == TKSI_APP_STATUS_UNCONNECTED) doOnMainThread([this] { endUnansweredCalls(); });
  };
  messageHandler->queryStatusBlock = [this] { return static_cast<TKSIAppStatus>(appManager->TKSAppStatus.load()); };
}

void TKSInterface::launchAndConnect(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app status: UNCONNECTED. Try to launch and connect TKS.");
  appManager->handleStatusChange(TKSI_APP_STATUS_STARTING);
  if (!appManager->updateDefaultTKS()) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Check default TKS version failed. Get on to process with default version.");
  }
  const std::optional<std::vector<std::string>> arguments = prepareChannel();
  if (!arguments) {
    appManager->handleStatusChange(TKSI_APP_STATUS_UNCONNECTED);
    const std::string message = "No temporary folder that can be trusted, can not communicate by file.";
    TKSILog::logWithLevel(TKSILogLevelError, "Start failed: %@", message);
    tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
    return;
  }
  const std::string exePath = appManager->TKSExePath;
  const std::uint64_t launch = ++state_->launches;
  state_->launcherIsStarting = true;
  tks::launchExecutable(
      exePath, *arguments,
      [state = state_, exePath, finish = std::move(finishBlock), error = std::move(errorBlock)](
          const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& reason) {
        if (state->facade == nullptr) return;
        state->launcherIsStarting = false;
        if (application) {
          state->facade->connect(*application, finish, error);
        } else {
          state->facade->reportFailedLaunch(exePath, reason ? reason->localizedDescription : "(null)", error);
        }
      },
      [state = state_, launch](tks::platform::ChildEnd end) { state->onLauncherEnd(launch, tks::described(end)); });
}

/// Chooses the channel by the host's identifier and gets it ready: the launcher's arguments. Nothing when a host that
/// talks over files has no place for them.
std::optional<std::vector<std::string>> TKSInterface::prepareChannel() {
  bundleID = tks::platform::bundles().mainBundleIdentifier().value_or("");
  std::vector<std::string> arguments = {option(TKSLaunchArgNameLaunchMethod),
                                        std::string(TKSLaunchArgValueLaunchMethodTKSInterface),
                                        option(TKSLaunchArgNameCommunicate)};
  if (!tks::messaging::talksOverFiles(bundleID)) {
    arguments.emplace_back(TKSLaunchArgValueCommunicatePipe);
    return arguments;
  }
  const std::string temporary = tks::platform::knownFolders().temporary();
  if (temporary.empty()) return std::nullopt;
  const std::string folder = tks::joinedPath(tks::joinedPath(temporary, bundleID),
                                             formatted("ipcFile_%@", tks::platform::clock().localTimestamp()));
  // Left open by a launch that failed: with it open, the new folder would never be made and the old one never removed.
  if (messageHandler->messageHost->isOpened) messageHandler->stopMessageHost();
  messageHandler->setIPCFileFolderPath(folder);
  messageHandler->startMessageHost();
  arguments.emplace_back(TKSLaunchArgValueCommunicateFile);
  arguments.push_back(option(TKSLaunchArgNameTempIPCFilePath));
  arguments.push_back(folder);
  return arguments;
}

void TKSInterface::connect(const TKSRunningApplication& application, TKSFinishBlock finishBlock,
                           TKSErrorBlock errorBlock) {
  const std::int32_t pid = application.processIdentifier;
  appManager->launchedTKSPid = pid;
  const TKSPidBlock block = pidBlock;  // it may set another one
  tks::callHost("launchedTKSPidBlock", block, pid);
  TKSILog::logWithLevel(TKSILogLevelInfo, "TKS launched, pid: %i. Start message host, and send hello message to test",
                        pid);
  greet(std::move(finishBlock), std::move(errorBlock));
}

/// Most often the conversation has noticed by itself. It cannot when the channel is a pair of files, or when a child of
/// the launcher keeps the pipe open.
void TKSInterface::State::onLauncherEnd(std::uint64_t launch, const std::string& end) {
  if (launch != launches) return;
  const std::weak_ptr<State> self = weak_from_this();
  endTimer = tks::platform::mainLoop().after(kTimeForLastWords, [self, launch, end] {
    const std::shared_ptr<State> state = self.lock();
    if (!state || state->facade == nullptr || state->launches != launch) return;
    TKSMessageHost& host = *state->facade->messageHandler->messageHost;
    if (!host.isOpened) return;
    host.handleFatalError(formatted("Launcher process ended while message host is still open. (%@)", end));
  });
}

/// The check for a broken launcher, and its removal, are made for hosts that listen to errors only: kept.
void TKSInterface::reportFailedLaunch(const std::string& exePath, const std::string& reason,
                                      const TKSErrorBlock& errorBlock) {
  appManager->handleStatusChange(TKSI_APP_STATUS_UNCONNECTED);
  if (!errorBlock) return;
  const std::string message = formatted("Launch app failed. Path: %@. Error: %@", exePath, reason);
  TKSILog::logWithLevel(TKSILogLevelError, "%@", masked(message));
  const auto placeLock = tks::install::lockPlace(appManager->TKSAppPath, kPatienceWithInstallations, nullptr);
  const std::string launcher = appManager->TKSAppPath;
  if (TKSUtilBase::isBrokenApp(launcher) && tks::install::mayBeCleanedUp(launcher)) {
    TKSILog::logWithLevel(TKSILogLevelError, "App broken, about to clean up the broken tks app.");
    TKSUtilBase::cleanUpFolderPath(launcher, true);
  }
  tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
}

void TKSInterface::greet(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  auto [finish, error] = state_->greetings.join({std::move(finishBlock), std::move(errorBlock)});
  messageHandler->sendHelloMessage(std::move(finish), std::move(error));
}

/// The conversation is over, so whoever wanted to stop it has got what he wanted. What was asked of the launcher and
/// not answered until then never will be: a greeting that crossed our own goodbye is made again with a new launcher,
/// everything else has failed.
void TKSInterface::endUnansweredCalls() {
  tks::callHost("finishBlock", tks::take(state_->disconnected));
  if (appManager->TKSAppStatus != TKSI_APP_STATUS_UNCONNECTED || messageHandler->messageHost->isOpened) return;
  const bool greetingWaits = state_->greetings.isWaiting();
  if (greetingWaits && std::exchange(state_->greetAgain, false)) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "TKS disconnected before it answered hello. Start again.");
    start(tks::take(messageHandler->helloFinishBlock), tks::take(messageHandler->helloErrorBlock));
    return;
  }
  if (!greetingWaits && !messageHandler->launchFinishBlock && !messageHandler->launchErrorBlock) return;
  messageHandler->handleErrorString("TKS disconnected before it answered.");
}
