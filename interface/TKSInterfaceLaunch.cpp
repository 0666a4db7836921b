#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "interface/Facade.h"

// Asking the launcher to launch meetings.

namespace tks::interface {
namespace {

bool isDownloadOnly(const TKSValue& param) {
  return TKSUtilBase::isCaseInsensitiveTrue(
      param[tks_param_key_gpcdownloadonly],
      {tks_param_value_gpcdownloadonly_true, tks_param_value_gpcdownloadonly_true_2});
}

}  // namespace

void Facade::launch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "About to launch meetting.");
  const std::int32_t found = status();
  switch (found) {
    case TKSI_APP_STATUS_UNCONNECTED:
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app in correct status. Get on to launch.");
      launchInternally(param, std::move(finish), std::move(error));
      break;
    case TKSI_APP_STATUS_LAUNCHING:
      launchOverRunningJob(param, std::move(finish), std::move(error));
      break;
    default: {
      const std::string message = formatted("TKS app in unexpected status: %i", found);
      TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
      refuse(error, defaultError(TKSErrorReason::busy, message));
      break;
    }
  }
}

void Facade::launchOverRunningJob(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app already in launching status.");
  if (isDownloadOnly(param)) {
    constexpr std::string_view kRefusal = "New coming job is download only, ignore it.";
    TKSILog::logWithLevel(TKSILogLevelWarning, "%@", kRefusal);
    refuse(error, defaultError(TKSErrorReason::busy, kRefusal));
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Stop previous job firstly.");
  const auto launchNext = [param, finish = std::move(finish), error](Facade& self) {
    self.launchInternally(param, finish, error);
  };
  leave(Stage::replacing, {"finishBlock", later(launchNext)}, std::move(error));
}

void Facade::launchInternally(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Internal launch meeting with param: %@", masked(param));
  const auto started = [param, finish = std::move(finish), error](Facade& self) {
    self.sendLaunch(param, finish, error);
  };
  // A stop that fails reports its own error instead.
  const auto failed = [error](Facade& self, const TKSError& startError) {
    HostCall tellStartError{"errorBlock", nullptr};
    if (error) tellStartError.run = [error, startError] { error(startError); };
    self.leave(Stage::stopping, std::move(tellStartError), error);
  };
  start(later(started), later(failed));
}

void Facade::sendLaunch(const TKSValue& param, const TKSFinishBlock& finish, const TKSErrorBlock& error) {
  // Several jobs may have waited for one greeting. A later one takes the place of a running one in good order, also
  // when the answer to another greeting has made the status forget that one is running.
  if (session_.isWaiting({Stage::working}) && !isProcessing()) setStatus(TKSI_APP_STATUS_LAUNCHING);
  if (isProcessing()) return launch(param, finish, error);

  request_.end();
  const Epoch::Moment request = request_.now();
  const Session::Number job = session_.add(Stage::working, {});
  const auto updateDone = [job, param, finish, error](Facade& self) {
    if (!self.session_.forget(job)) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS self update done, but its job was stopped. Don't launch again.");
      return;
    }
    // The callbacks go over to the next launch, so that nothing calls them from here any more.
    self.handler().launchFinishBlock = nullptr;
    self.handler().launchErrorBlock = nullptr;
    self.relaunch(param, finish, error);
  };
  handler().sendLaunchMessage(param, finish, error, later(updateDone));
  // The error about missing parameters may have made the host turn to something else.
  if (!isGone() && request.isOver()) session_.forget(job);
}

}  // namespace tks::interface
