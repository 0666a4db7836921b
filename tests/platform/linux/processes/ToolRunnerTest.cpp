#include "platform/linux/processes/tool_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "tests/platform/SystemToolsTest.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// Tools as this system has and runs them.

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using tks::gnulinux::SystemCalls;
using tks::platform::Tool;
using tks::platform::ToolRequest;
using tks::platform::ToolResult;
using tks::test::InjectedSystemCall;
using tks::test::refusing;
using tks::test::SystemTools;

using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(SystemTools, AToolHasNoTerminalToAskQuestionsOn) {
  script(Tool::unzip, "ps -o sid= -p $$ | tr -d ' '; echo $$");
  const std::string output = run(Tool::unzip).output;
  const std::string session = output.substr(0, output.find('\n'));
  EXPECT_EQ(output, session + "\n" + session + "\n") << "the tool leads a session of its own";
}

TEST_F(SystemTools, RunWithoutDescriptorsOfProcesses) {
  const InjectedSystemCall olderKernel(&SystemCalls::cloneDescriptorFlag, 0);
  const InjectedSystemCall oldKernel(&SystemCalls::pidfdOpen, refusing<ENOSYS>);
  script(Tool::unzip, "echo out; exit 3");
  ToolResult result = run(Tool::unzip);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.exitCode, 3);
  script(Tool::unzip, "sleep 1000");
  ToolRequest request{Tool::unzip, {}};
  request.timeLimit = seconds(1);
  result = run(request);
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_THAT(tks::test::children(), IsEmpty());
}

TEST(StandardTools, TheProcessorTextComesFromTheKernel) {
  const ToolResult result = tks::platform::systemTools().run({Tool::sysctl, {"-n", "machdep.cpu.brand_string"}});
  const std::string processors = tks::test::contentOf("/proc/cpuinfo");
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.exitCode, 0);
  if (processors.find("\nmodel name") == std::string::npos) GTEST_SKIP() << "this kernel names no model";
  EXPECT_THAT(processors, HasSubstr("\nmodel name\t: " + result.output));
  EXPECT_GT(result.output.size(), 1u);
  EXPECT_EQ(result.output.back(), '\n');
}

TEST(StandardTools, OtherVariablesHaveNoTool) {
  EXPECT_FALSE(tks::platform::systemTools().run({Tool::sysctl, {"-n", "kern.version"}}).started);
}

TEST_F(SystemTools, AToolThatPrintsLineAfterLineIsNotLookedAtForEachOfThem) {
  constexpr int kLines = 300;
  // Another program between two lines gives this process the time to read each of them by itself.
  script(Tool::unzip, "i=0; while [ $i -lt " + std::to_string(kLines) +
                          " ]; do echo line; /bin/sh -c 'exit 0'; i=$((i+1)); done; echo end");
  int looks = 0;
  ToolRequest request{Tool::unzip, {}};
  request.onWritten = [&looks](std::uint64_t) { ++looks; };
  const auto start = std::chrono::steady_clock::now();
  const ToolResult result = run(request);
  const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_EQ(result.output.size(), kLines * std::string_view("line\n").size() + std::string_view("end\n").size());
  EXPECT_LE(looks, passed.count() / 10 + 10) << "looks come by the time that passes, not by what is printed";
  EXPECT_GT(looks, 0);
}

TEST_F(SystemTools, AToolThatPrintsMuchWhileItIsLookedAtIsReadToTheEnd) {
  constexpr std::size_t kBytes = 5'000'000;
  script(Tool::unzip, "exec head -c " + std::to_string(kBytes) + " /dev/zero");
  ToolRequest request{Tool::unzip, {}};
  request.writeLimit = 2 * kBytes;
  EXPECT_EQ(run(request).output.size(), kBytes);
}

TEST_F(SystemTools, AFileThatATooLongOneWouldBecomeStopsAtTheLimit) {
  script(Tool::unzip, "exec head -c 10000000 /dev/zero > '" + (folder / "file") + "'");
  expectEndedForWhatItWrites(Tool::unzip);
  EXPECT_LE(fs::file_size(folder / "file"), 1000000u);
  EXPECT_FALSE(fs::exists(folder / "core"));
}

TEST(StandardTools, ThereIsNoneForPrivacyAccess) { EXPECT_EQ(tks::gnulinux::standardToolPath(Tool::tccutil), ""); }

TEST(StandardTools, HavePlacesThatCanBeNamed) {
  using tks::gnulinux::placesOf;
  EXPECT_EQ(placesOf(Tool::unzip), "/usr/bin/unzip");
  EXPECT_EQ(placesOf(Tool::tar), "/usr/bin/tar or /bin/tar");
  EXPECT_EQ(placesOf(Tool::lsof), "/usr/bin/lsof or /usr/sbin/lsof");
  EXPECT_EQ(placesOf(Tool::shasum), "/usr/bin/shasum");
  EXPECT_EQ(placesOf(Tool::tccutil), "tccutil");
  EXPECT_THAT(placesOf(Tool::spctl), ::testing::EndsWith("/spctl"));
}

TEST_F(SystemTools, AProgramThatTheSystemCannotLoadWasNotStarted) {
  script(Tool::spctl, "echo error while loading shared libraries >&2; exit 127");
  const ToolResult result = run(Tool::spctl);
  EXPECT_FALSE(result.started);
  EXPECT_EQ(result.error.code, ELIBACC);
  EXPECT_THAT(result.error.localizedDescription, HasSubstr(paths[Tool::spctl]));
}

/// An assessment that says what it was asked.
class EchoedAssessment final : public tks::platform::Assessment {
 public:
  tks::assessment::Verdict run(const std::vector<std::string>& arguments) noexcept override {
    std::string text;
    for (const std::string& argument : arguments) text.append(argument).append("\n");
    return {3, std::move(text)};
  }

 private:
  tks::platform::Replaced<Assessment> replaced_{*this};
};

TEST_F(SystemTools, WithoutItsProgramAnAssessmentIsThatOfTheContract) {
  const EchoedAssessment assessment;
  ToolRequest request{Tool::spctl, {"-a", "-vv", "/X.app"}};
  request.collectStandardError = true;
  ToolResult result = run(request);
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.output, "-a\n-vv\n/X.app\n");
  request.outputLimit = 2;
  EXPECT_EQ(run(request).output, "-a");
  request.collectStandardError = false;
  EXPECT_EQ(run(request).output, "") << "the verdict is for standard error";
}

TEST_F(SystemTools, AToolThatIsEndedBeforeItIsDoneSaysByWhat) {
  script(Tool::unzip, "kill -SEGV $$");
  ToolResult result = run(Tool::unzip);
  EXPECT_TRUE(result.started && result.cutShort);
  EXPECT_THAT(result.error.localizedDescription, ::testing::EndsWith("(signal: 11)"));
  script(Tool::unzip, "exit 9");
  EXPECT_FALSE(run(Tool::unzip).cutShort);
  script(Tool::unzip, "sleep 1000");
  ToolRequest request{Tool::unzip, {}};
  request.timeLimit = seconds(1);
  result = run(request);
  EXPECT_TRUE(result.cutShort);
  EXPECT_EQ(result.error.code, ETIMEDOUT);
}

}  // namespace
