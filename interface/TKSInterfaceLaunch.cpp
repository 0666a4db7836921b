#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Logging.h"
#include "interface/TKSInterfaceState.h"
#include "platform/platform.h"

// Asking the launcher to launch meetings.

using tks::formatted;
using tks::masked;

namespace {

bool isDownloadOnly(const TKSValue& param) {
  return TKSUtilBase::isCaseInsensitiveTrue(
      param[tks_param_key_gpcdownloadonly],
      {tks_param_value_gpcdownloadonly_true, tks_param_value_gpcdownloadonly_true_2});
}

}  // namespace

void TKSInterface::launchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  if (isElsewhere()) return doOnMainThread([=, this] { launchMeetingWithParam(param, finishBlock, errorBlock); });

  TKSILog::logWithLevel(TKSILogLevelInfo, "About to launch meetting.");
  const std::int32_t status = appManager->TKSAppStatus;
  switch (status) {
    case TKSI_APP_STATUS_UNCONNECTED:
    case TKSI_APP_STATUS_CONNECTED:
      TKSILog::logWithLevel(TKSILogLevelInfo, "TKS app in correct status. Get on to launch.");
      internalLaunchMeetingWithParam(param, std::move(finishBlock), std::move(errorBlock));
      break;
    case TKSI_APP_STATUS_LAUNCHING:
      launchOverRunningJob(param, std::move(finishBlock), std::move(errorBlock));
      break;
    default: {
      const std::string message = formatted("TKS app in unexpected status: %i", status);
      TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
      tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
      break;
    }
  }
}

void TKSInterface::launchOverRunningJob(const TKSValue& param, TKSFinishBlock finishBlock, TKSErrorBlock errorBlock) {
  TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app already in launching status.");
  if (isDownloadOnly(param)) {
    constexpr std::string_view kRefusal = "New coming job is download only, ignore it.";
    TKSILog::logWithLevel(TKSILogLevelWarning, "%@", kRefusal);
    tks::callHost("errorBlock", errorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(kRefusal));
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Stop previous job firstly.");
  TKSFinishBlock stopped = [this, param, finish = std::move(finishBlock), errorBlock] {
    internalLaunchMeetingWithParam(param, finish, errorBlock);
  };
  stop(std::move(stopped), std::move(errorBlock));
}

void TKSInterface::internalLaunchMeetingWithParam(const TKSValue& param, TKSFinishBlock finishBlock,
                                                  TKSErrorBlock errorBlock) {
  if (isElsewhere()) {
    return doOnMainThread([=, this] { internalLaunchMeetingWithParam(param, finishBlock, errorBlock); });
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Internal launch meeting with param: %@", masked(param));
  TKSFinishBlock started = [this, param, finish = std::move(finishBlock), errorBlock] {
    sendLaunch(param, finish, errorBlock);
  };
  start(std::move(started), [this, error = std::move(errorBlock)](const TKSError& startError) {
    // A stop that fails reports its own error instead.
    stop([error, startError] { tks::callHost("errorBlock", error, startError); }, error);
  });
}

void TKSInterface::sendLaunch(const TKSValue& param, const TKSFinishBlock& finishBlock,
                              const TKSErrorBlock& errorBlock) {
  // Several jobs may have waited for one greeting. A later one takes the place of a running one in good order, also
  // when the answer to another greeting has made the status forget that one is running.
  const bool jobIsRunning = messageHandler->launchFinishBlock || messageHandler->launchErrorBlock;
  if (jobIsRunning && !isTKSAppProcessing()) appManager->handleStatusChange(TKSI_APP_STATUS_LAUNCHING);
  if (isTKSAppProcessing()) return launchMeetingWithParam(param, finishBlock, errorBlock);
  const std::uint64_t job = ++state_->job;
  messageHandler->sendLaunchMessage(param, finishBlock, errorBlock, [=, this] {
    if (state_->job != job) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "TKS self update done, but its job was stopped. Don't launch again.");
      return;
    }
    // The callbacks go over to the next launch, so that nothing calls them from here any more.
    messageHandler->launchFinishBlock = nullptr;
    messageHandler->launchErrorBlock = nullptr;
    relaunchTKSWhenUpdateDone(param, finishBlock, errorBlock);
  });
}
