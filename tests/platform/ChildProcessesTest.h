#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSMainLoop.h>

#include "platform/child_processes.h"
#include "platform/platform.h"
#include "tests/support/HostLoop.h"

// What the tests of child processes share, those of one system's own ways included.

namespace tks::test {

inline std::vector<std::string> pieces(const std::string& text, char end) {
  std::vector<std::string> found;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, end);) found.push_back(piece);
  return found;
}

/// Numbers of the descriptors in a launcher's report.
inline std::vector<std::string> numbers(const std::string& report) {
  std::vector<std::string> found;
  for (const std::string& line : pieces(report, '\n')) found.push_back(line.substr(0, line.find(' ')));
  return found;
}

/// A child and what is told of its end.
struct Child {
  bool start(const std::string& executable, std::vector<std::string> arguments = {}) {
    platform::ChildRequest request{executable, std::move(arguments), false};
    pid = platform::childProcesses().start(
        request, [this](platform::ChildEnd how) { ends.push_back(how); }, &error);
    return pid > 0;
  }
  bool waitForEnd(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    return drainUntil([this] { return !ends.empty(); }, limit);
  }

  std::int32_t pid = 0;
  TKSError error;
  std::vector<platform::ChildEnd> ends;
};

class ChildProcesses : public ::testing::Test {
 protected:
  ChildProcesses() { TKSMainLoop::descriptor(); }  // so that its descriptors do not count as new ones
};

}  // namespace tks::test
