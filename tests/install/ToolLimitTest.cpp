#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <vector>

#include "foundation/LimitedTools.h"
#include "install/RunTool.h"
#include "platform/platform.h"
#include "tests/support/FakeTools.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedOptions.h"
#include "tests/support/TemporaryFolder.h"

// The option that limits how long a tool of the system may run.

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using tks::platform::Tool;
using tks::platform::ToolRequest;
using tks::platform::ToolResult;
using tks::test::ScopedOptions;

TEST(ToolLimit, ShortensWhatWouldTakeLongerAndLengthensNothing) {
  tks::test::FakeTools tools;
  tools.playOthers([](const ToolRequest&) { return tks::test::FakeTools::printed(""); });
  ToolRequest hasty{Tool::tar, {}};
  hasty.timeLimit = 1s;
  for (const std::int64_t limit : {0, 5000, 600000}) {
    const ScopedOptions options({.toolLimit = limit});
    tks::runWithinLimit({Tool::tar, {}});
    tks::runWithinLimit(hasty);
  }
  std::vector<std::chrono::milliseconds> limits;
  for (const ToolRequest& request : tools.requests) limits.push_back(request.timeLimit);
  EXPECT_THAT(limits, ElementsAre(300s, 1s, 5s, 1s, 300s, 1s));
}

TEST(ToolLimit, EndsAToolThatWaitsForEver) {
  const tks::test::TemporaryFolder folder;
  const std::string pipe = folder / "nobody-writes.tar";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const ScopedOptions options({.toolLimit = 100});
  const tks::test::LogRecorder log;
  const ToolResult result = tks::install::runTool({Tool::tar, {"-tf", pipe}});
  EXPECT_TRUE(result.started);
  EXPECT_TRUE(result.cutShort);
  EXPECT_EQ(log.texts(8).size(), 1U);
}

}  // namespace
