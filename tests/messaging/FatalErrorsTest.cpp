#include "messaging/FatalErrors.h"

#include <gtest/gtest.h>

#include <string_view>

namespace {

using Reason = TKSErrorReason;
using tks::messaging::reasonOfFatalError;

TEST(FatalErrors, HaveTheirReasonByTheirText) {
  struct Row {
    std::string_view text;
    TKSErrorReason reason;
  };
  const Row rows[] = {
      {"Launcher process ended while message host is still open. (exit code: 1)", Reason::endedEarly},
      {"Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means parent or child "
       "process already exited, while current message host is still open.)",
       Reason::endedEarly},
      {"Message data size ( 2 ) less than 'sizeOfSize', no pending data.", Reason::badMessage},
      {"Unexpected message data size: 11, exceed max message size: 10", Reason::badMessage},
      {"Unexpected telling data size: 11, exceed max message size: 10", Reason::badMessage},
      {"Received total message data (11) exceed max size: 10.", Reason::badMessage},
      {"Message data empty ( 0 ), pending data expected.", Reason::channelFailed},
      {"Read message failed: Error Domain=D Code=1 \"x\"", Reason::channelFailed},
      {"a text of a host's own", Reason::channelFailed},
  };
  for (const Row& row : rows) EXPECT_EQ(reasonOfFatalError(row.text), row.reason) << row.text;
}

TEST(FatalErrors, NeverTakeWhatWasReceivedForTheReason) {
  EXPECT_EQ(
      reasonOfFatalError("Error when parse JSON in [TKSMessagHost onMessage]. Message str: Launcher process ended "
                         "while message host is still open., error: (null)"),
      Reason::badMessage);
}

}  // namespace
