#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSUtilBase.h>
#include <tksinterface/TKSUtilBaseHelper.h>

#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"
#include "tests/support/ScriptedTools.h"
#include "tests/support/TemporaryFolder.h"

// The health check with real processes in the place of its tools.

namespace {

namespace fs = std::filesystem;
using tks::platform::Tool;

class HealthTools : public ::testing::Test {
 protected:
  HealthTools() {
    fs::create_directory(app);
    tools.limitTime(std::chrono::seconds(30));
    tools.script(Tool::lsof, "echo \"$@\"");
    tools.script(Tool::shasum, "cat; echo '  -'");
  }

  tks::test::FakeHome home;
  tks::test::TemporaryFolder folder;
  std::string app = folder / "A.app";
  /// They have less time than they usually have.
  tks::test::ScriptedTools tools{folder.path(), tks::test::ScriptedTools::Others::missing};
  tks::test::LogRecorder log;
};

TEST_F(HealthTools, AnAcceptingAssessmentIsRememberedByTheFingerprint) {
  tools.script(Tool::spctl, "echo \"$3: accepted\" >&2; echo x >> '" + folder / "runs" + "'");
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(tks::test::contentOf(folder / "runs"), "x\n");
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app), "-g -o -R " + app + "\n  -");
}

TEST_F(HealthTools, AToolThatEndsWithoutAGoodWordMakesTheAppBroken) {
  const std::pair<const char*, std::string> ways[] = {
      {"silent", "exit 0"},
      {"failing", "exit 1"},
      {"asking", "read answer; echo \"$answer\" >&2"},
      {"on the wrong output", "echo \"$3: accepted\""},
      {"ten megabytes", "head -c 10485760 /dev/zero | tr '\\0' a >&2; echo >&2; echo no >&2"}};
  for (const auto& [name, lines] : ways) {
    tools.script(Tool::spctl, lines);
    EXPECT_TRUE(TKSUtilBase::isBrokenApp(app)) << name;
    EXPECT_TRUE(log.has(4, "Further verify result: 1, 0, 0")) << name;
    log.clear();
  }
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_THAT(tks::test::children(), ::testing::IsEmpty());
}

TEST_F(HealthTools, AToolThatIsNotToBeHadOrEndedEarlyGivesNoVerdict) {
  const auto expectNone = [&](const std::string& name, const std::string& reason) {
    log.clear();
    EXPECT_FALSE(TKSUtilBase::isBrokenApp(app)) << name;
    EXPECT_THAT(log.texts(8), ::testing::ElementsAre(::testing::AllOf(
                                  ::testing::StartsWith("No verdict of spctl, consider the app as not broken: "),
                                  ::testing::HasSubstr(TKSILog::removeSensitiveInformation(reason)))))
        << name;
    EXPECT_THAT(log.texts(4), ::testing::Not(::testing::Contains("Verify result not accepted, go further check")));
  };
  tools.put(Tool::spctl, folder / "missing");
  expectNone("missing", "run \"" + (folder / "missing") + "\": No such file or directory");
  tools.script(Tool::spctl, "echo \"$3: rejected\" >&2");
  fs::permissions(tools.pathOf(Tool::spctl), fs::perms(0644));
  expectNone("without the right to run", "Permission denied");
  tools.script(Tool::spctl, "echo \"$3: rejected\" >&2; kill -9 $$");
  expectNone("killed", "(signal: 9)");
  tools.script(Tool::spctl, "echo error while loading shared libraries >&2; exit 127");
  expectNone("not loaded", "Can not access a needed shared library");
  tools.script(Tool::spctl, "sleep 1000");
  tools.limitTime(std::chrono::seconds(1));
  expectNone("hanging", "timed out");
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_THAT(tks::test::children(), ::testing::IsEmpty());
}

TEST_F(HealthTools, TenMegabytesBeforeTheVerdictAreRead) {
  tools.script(Tool::spctl, "head -c 10485760 /dev/zero | tr '\\0' a >&2; echo >&2; echo \"$3: accepted\" >&2");
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
}

TEST_F(HealthTools, AFingerprintIsTheDigestOfWhoHoldsTheAppOpen) {
  for (const Tool tool : {Tool::lsof, Tool::shasum}) {
    tools.put(tool, tks::gnulinux::standardToolPath(tool));
    if (tools.pathOf(tool).empty()) GTEST_SKIP() << "no such tool here";
  }
  const std::optional<std::string> fingerprint = TKSUtilBase::hashFilePropertiesWithAppPath(app);
  ASSERT_TRUE(fingerprint);
  EXPECT_THAT(*fingerprint, ::testing::MatchesRegex("[0-9a-f]{40}  -"));
}

TEST_F(HealthTools, FingerprintsMayBeSetAndReadByAnyThread) {
  tools.limitTime(std::chrono::seconds(60));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      const std::string own = app + "/" + std::to_string(i % 2);
      tks::test::writeFile(own + "/file", "x");
      for (int round = 0; round < 5; ++round) {
        TKSUtilBaseHelper::setHashValueOfAppPath(own);
        EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(own), "-g -o -R " + own + "\n  -");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(&TKSUtilBaseHelper::sharedInstance(), &TKSUtilBaseHelper::sharedInstance());
}

}  // namespace
