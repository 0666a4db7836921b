#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Logging.h"
#include "interface/TKSInterfaceState.h"
#include "platform/platform.h"

// Taking leave of the launcher.

using tks::formatted;

void TKSInterface::stop(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  if (isElsewhere()) return doOnMainThread([=, this] { stop(finishBlock, errorBlock); });

  TKSILog::logWithLevel(TKSILogLevelInfo, "%s,  connected pid: %i", "-[TKSInterface stop:errorBlock:]",
                        connectedTKSAppPid());
  const std::int32_t status = appManager->TKSAppStatus;
  switch (status) {
    case TKSI_APP_STATUS_LAUNCHING:
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app status: LAUNCHING. Abort processing job.");
      ++state_->job;
      messageHandler->handleError(TKSUtilBase::generateTKSInterfaceError(
          "Previous launching job running, will stop it firstly.", TKSIDefaultDomain, 1));
      disconnect(std::move(finishBlock), std::move(errorBlock));
      break;
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app status: CONNECTED. Stop directlly.");
      disconnect(std::move(finishBlock), std::move(errorBlock));
      break;
    case TKSI_APP_STATUS_UNCONNECTED:
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app status: UNCONNECTED. No need to stop.");
      cleanupConnectStatus4FileIPC();
      messageHandler->stopMessageHost();
      tks::callHost("finishBlock", finishBlock);
      break;
    default:
      refuseToStop(status, errorBlock);
      break;
  }
}

void TKSInterface::disconnect(TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  auto [finish, error] = state_->disconnects.join({std::move(finishBlock), std::move(errorBlock)});
  state_->disconnected = finish;
  messageHandler->sendDisconnectMessage(std::move(finish), std::move(error));
  cleanupConnectStatus4FileIPC();
}

/// A launcher that is being started goes on: its result opens the message host again and greets for everybody who
/// waits. A greeting that is under way can no longer be answered, so whoever waits for it is told.
void TKSInterface::refuseToStop(std::int32_t status, const TKSErrorBlock& errorBlock) {
  cleanupConnectStatus4FileIPC();
  messageHandler->stopMessageHost();
  const std::string message = formatted("Unexpected app status: %i", status);
  TKSILog::logWithLevel(TKSILogLevelWarning, "Stop failed: %@", message);
  const bool greetingWaits = state_->greetings.isWaiting();
  tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
  if (state_->launcherIsStarting || !greetingWaits || !state_->greetings.isWaiting()) return;
  appManager->handleStatusChange(TKSI_APP_STATUS_UNCONNECTED);
  messageHandler->handleErrorString("Message host stopped before TKS answered hello.");
}

/// Asks for the release identifier only, although starting chooses files for the debug identifier as well: kept.
void TKSInterface::cleanupConnectStatus4FileIPC() {
  if (isElsewhere()) return doOnMainThread([this] { cleanupConnectStatus4FileIPC(); });
  if (tks::platform::bundles().mainBundleIdentifier() != TKSIBundleIDHuddle) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc by pipe. Don't need cleanup connect status of interface.");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc by file. Need cleanup connect status of interface.");
  state_->disconnected = nullptr;
  messageHandler->cleanupConnectStatus4FileIPC();
}
