#pragma once

#include <gtest/gtest.h>

#include <chrono>

#include <tksinterface/tksinterface.h>

#include "tests/support/HostLoop.h"

namespace tks::test {

/// Asks the facade for a meeting and drains until its finish callback has come; an error fails the test.
inline bool launchesAMeeting(TKSInterface& facade) {
  bool launched = false;
  facade.launchMeetingWithParam(
      TKSDictionary{{"gpcurlroot", "https://meet.tarvo.example"}}, [&] { launched = true; },
      [](const TKSError& error) { ADD_FAILURE() << error.description(); });
  return drainUntil([&] { return launched; }, std::chrono::seconds(30));
}

}  // namespace tks::test
