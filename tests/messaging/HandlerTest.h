#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/messaging/Conversation.h"

namespace tks::test {

inline constexpr const char* kEnd =
    "Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means parent or child "
    "process already exited, while current message host is still open.)";

/// The lines of the handler itself, without those of the host below it.
inline std::vector<LogLine> linesOfHandler(const Conversation& talk) {
  static const std::string ofHost[] = {"On message.",
                                       "messageDataSize",
                                       "Valid message data size",
                                       "No pending data",
                                       "sizeOfSize",
                                       "tellingSize",
                                       "actualDataSize",
                                       "pendingDataSize",
                                       "receivedData size",
                                       "Receive message string",
                                       "Send message string",
                                       "Open message host with handler",
                                       "Close message host.",
                                       "Close message host done."};
  std::vector<LogLine> lines;
  for (const LogLine& line : talk.log.lines()) {
    bool hosts = line.level == 1;
    for (const std::string& text : ofHost) hosts = hosts || line.text.starts_with(text);
    if (!hosts) lines.push_back(line);
  }
  return lines;
}

class HandlerTest : public testing::Test {
 protected:
  TKSIMessageHandler& handler() { return *talk_.handler; }
  std::vector<LogLine> lines() {
    talk_.settle();
    return linesOfHandler(talk_);
  }

  Conversation talk_;
};

}  // namespace tks::test
