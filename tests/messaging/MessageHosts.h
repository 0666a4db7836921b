#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"

namespace tks::test {

inline constexpr const char* kHello = R"({"message":"hello","message_type":"hello"})";

/// What a message host reports of a text that is no JSON.
inline std::string parseFailure(const std::string& text) {
  return "Error when parse JSON in [TKSMessagHost onMessage]. Message str: " + text +
         ", error: Error Domain=messages.tarvo.example Code=0 \"Passing nil or not an valid JSON string when try to "
         "parse JSON for TKSMessge.\"";
}

inline TKSMessage messageOf(std::string_view type, std::string_view body) {
  TKSMessage made;
  made.messageType = type;
  made.message = body;
  return made;
}
/// A message whose body is the name of its type.
inline TKSMessage messageOf(std::string_view type) { return messageOf(type, type); }

/// The text of a message with a text as body.
inline std::string jsonOf(const std::string& type, const std::string& body = "") {
  return "{\"message\":\"" + body + "\",\"message_type\":\"" + type + "\"}";
}

/// Everything but the trace lines, which name numbers of the process and of source lines.
inline std::vector<LogLine> linesWithoutTrace(const LogRecorder& log) {
  std::vector<LogLine> lines;
  for (const LogLine& line : log.lines()) {
    if (line.level != 1) lines.push_back(line);
  }
  return lines;
}

/// A message host of the interface's side, not yet opened, on a pipe in memory.
class PipeHostTest : public testing::Test {
 protected:
  void open() {
    host_.openWithMessengeHandler(&delegate_);
    log_.clear();
  }

  FakeHostProcess process_;
  MemoryChannels channels_;
  RecordingDelegate delegate_;
  LogRecorder log_;
  TKSMessageHost host_{tksMessageHostTypeInterface};
};

}  // namespace tks::test
