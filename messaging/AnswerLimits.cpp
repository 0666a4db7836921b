#include "messaging/AnswerLimits.h"

#include <chrono>
#include <string>
#include <string_view>

#include <tksinterface/TKSFormat.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/Options.h"
#include "platform/platform.h"

namespace tks::messaging {
namespace {

struct Row {
  /// The request's name, as it stands in the message.
  const std::string_view& type;
  std::int64_t TKSOptions::*limit;
};

/// One row a request, in their order.
constexpr Row kRows[] = {
    {tks_message_type_hello, &TKSOptions::helloLimit},
    {tks_message_type_launch_meeting, &TKSOptions::launchLimit},
    {tks_message_type_disconnect, &TKSOptions::disconnectLimit},
};

const Row& rowOf(AnswerLimits::Request request) { return kRows[static_cast<std::size_t>(request)]; }

void tellOfSilence(AnswerLimits::Request request) {
  TKSILog::logWithLevel(TKSILogLevelWarning, "Still no answer to \"%@\" after %lu ms.", rowOf(request).type,
                        options().silenceNotice);
}

}  // namespace

void AnswerLimits::sent(Request request) {
  Wait& wait = waits_[static_cast<std::size_t>(request)];
  if (wait.isUnderWay && request != Request::launch) return;
  wait = {};
  wait.isUnderWay = true;
  const std::int64_t limit = options().*rowOf(request).limit;
  const std::int64_t notice = options().silenceNotice;
  if (limit > 0) {
    wait.limit = platform::mainLoop().after(std::chrono::milliseconds(limit), [this, request] { onLimit(request); });
  }
  if (notice > 0) {
    wait.notice = platform::mainLoop().after(std::chrono::milliseconds(notice), [request] { tellOfSilence(request); });
  }
}

void AnswerLimits::onLimit(Request request) {
  const Over over = over_;
  answered(request);
  over(formatted("TKS did not answer \"%@\" within %lu ms.", rowOf(request).type, options().*rowOf(request).limit));
}

}  // namespace tks::messaging
