#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/system_tools.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Tools.h"

// What the tests of system tools share, those of one system's own ways included.

namespace tks::test {

class SystemTools : public ::testing::Test {
 protected:
  /// Puts a script in the place of a tool.
  void script(platform::Tool tool, const std::string& lines) {
    const std::string path = folder / ("tool" + std::to_string(static_cast<int>(tool)));
    writeFile(path, "#!/bin/sh\n" + lines);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    paths[tool] = path;
  }
  platform::ToolResult run(const platform::ToolRequest& request) { return runner->run(request); }
  platform::ToolResult run(platform::Tool tool, std::vector<std::string> arguments = {}) {
    platform::ToolRequest request{tool, std::move(arguments)};
    return run(request);
  }
  /// Runs what writes more than a million bytes, which is the limit.
  void expectEndedForWhatItWrites(platform::Tool tool) {
    platform::ToolRequest request{tool, {}};
    request.writeLimit = 1000000;
    const platform::ToolResult result = run(request);
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exitCode, -1);
    EXPECT_EQ(result.error.localizedDescription, "wait for \"the tool\": File too large");
  }

  TemporaryFolder folder;
  std::map<platform::Tool, std::string> paths;
  std::unique_ptr<platform::SystemTools> runner = makeSystemTools([this](platform::Tool tool) {
    const auto found = paths.find(tool);
    return found == paths.end() ? std::string() : found->second;
  });
};

}  // namespace tks::test
