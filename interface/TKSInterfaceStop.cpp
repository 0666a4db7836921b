#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "interface/Facade.h"

// Taking leave of the launcher.

namespace tks::interface {

void Facade::stop(TKSFinishBlock finish, TKSErrorBlock error) {
  leave(Stage::stopping, {"finishBlock", std::move(finish)}, std::move(error));
}

void Facade::leave(Stage stage, HostCall finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "%s,  connected pid: %i", "-[TKSInterface stop:errorBlock:]",
                        manager().connectedTKSPid.load());
  const std::int32_t found = status();
  switch (found) {
    case TKSI_APP_STATUS_LAUNCHING: {
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app status: LAUNCHING. Abort processing job.");
      const TKSError stopped =
          withReason(TKSUtilBase::generateTKSInterfaceError("Previous launching job running, will stop it firstly.",
                                                            TKSIDefaultDomain, 1),
                     TKSErrorReason::cancelled);
      step(Event::jobStopped, stopped, [&] {
        // Waits from now on, so that it keeps its place before what the job's callbacks ask for.
        session_.add(stage, {std::move(finish), std::move(error)});
        handler().handleError(stopped);
      });
      if (!isGone()) disconnect();
      break;
    }
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app status: CONNECTED. Stop directlly.");
      session_.add(stage, {std::move(finish), std::move(error)});
      disconnect();
      break;
    case TKSI_APP_STATUS_UNCONNECTED:
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app status: UNCONNECTED. No need to stop.");
      cleanUpFileChannel();
      handler().stopMessageHost();
      tell({std::move(finish)});
      break;
    default:
      refuseToStop(found, error);
      break;
  }
}

void Facade::disconnect() {
  constexpr Stages kLeaving = {Stage::stopping, Stage::replacing};
  request_.end();
  handler().sendDisconnectMessage(finishOf(kLeaving), errorOf(kLeaving));
  cleanUpFileChannel();
}

/// A launcher that is being started goes on: its result opens the message host again and greets for everybody who
/// waits. A greeting that is under way can no longer be answered, so whoever waits for it is told.
void Facade::refuseToStop(std::int32_t status, const TKSErrorBlock& error) {
  cleanUpFileChannel();
  handler().stopMessageHost();
  const std::string message = formatted("Unexpected app status: %i", status);
  TKSILog::logWithLevel(TKSILogLevelWarning, "Stop failed: %@", message);
  const TKSError refusal = defaultError(TKSErrorReason::busy, message);
  std::vector<HostCall> calls;
  if (error) calls.push_back({"errorBlock", [error, refusal] { error(refusal); }});
  calls.push_back({"end of the greeting", later([](Facade& self) { self.endGreeting(); })});
  tell(std::move(calls));
}

void Facade::endGreeting() {
  if (session_.isStarting() || !session_.isWaiting({Stage::greeting, Stage::crossing})) return;
  setStatus(TKSI_APP_STATUS_UNCONNECTED);
  const TKSError ended = defaultError(TKSErrorReason::cancelled, "Message host stopped before TKS answered hello.");
  step(Event::greetingStopped, ended, [&] { handler().handleError(ended); });
}

/// Asks for the release identifier only, although starting chooses files for the debug identifier as well. Required
/// behaviour: do not fix.
void Facade::cleanUpFileChannel() {
  if (platform::bundles().mainBundleIdentifier() != TKSIBundleIDHuddle) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc by pipe. Don't need cleanup connect status of interface.");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc by file. Need cleanup connect status of interface.");
  handler().cleanupConnectStatus4FileIPC();
}

}  // namespace tks::interface
