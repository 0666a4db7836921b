#include <sys/xattr.h>

#include "tests/interface/LaunchingTest.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/ScopedOptions.h"

namespace {

using namespace tks::test;
using std::chrono::milliseconds;

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class LaunchApplication : public LaunchingTest {
 protected:
  LogLine retried(int number, const std::string& reason) {
    return warning("The " + std::to_string(number) + " retry failed: " + reason);
  }
  const std::string busy = "Error Domain=Workspace Code=5 \"busy\"";
  PlayedApplications applications;
};

TEST_F(LaunchApplication, StartsANewInstance) {
  applications.launches = {""};
  const auto launched = TKSUtilBase::launchApp(bundle, {"-a", "b c"}, &error);
  ASSERT_TRUE(launched);
  EXPECT_EQ(launched->processIdentifier, 77);
  EXPECT_EQ(launched->bundlePath, bundle);
  EXPECT_THAT(applications.launchedWith, ElementsAre(ElementsAre("-a", "b c")));
  EXPECT_EQ(error, TKSError());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(info("Check app begin."), info("Check app done, result: 1, path: " + bundle),
                                   info("Launch APP result: [pid: 77, path: " + bundle + ", retryCount: 0]")));
}

TEST_F(LaunchApplication, TriesAgainAndSaysSoEvenForTheRetryThatWorks) {
  applications.launches = {"busy", "busy", ""};
  EXPECT_TRUE(TKSUtilBase::launchApp(bundle, {"-a"}, &error));
  EXPECT_EQ(error, TKSError()) << "the error of the earlier ones is taken back";
  EXPECT_THAT(applications.launchedWith, ElementsAre(ElementsAre("-a"), ElementsAre("-a"), ElementsAre("-a")));
  EXPECT_THAT(clock.sleeps(), ElementsAre(milliseconds(100), milliseconds(100)));
  EXPECT_THAT(lines(), ElementsAre(info("Check app begin."), info("Check app done, result: 1, path: " + bundle),
                                   retried(1, busy), retried(2, busy),
                                   info("Launch APP result: [pid: 77, path: " + bundle + ", retryCount: 2]")));
}

TEST_F(LaunchApplication, GivesUpAfterTenRetries) {
  applications.launches = std::vector<std::string>(11, "busy");
  EXPECT_FALSE(TKSUtilBase::launchApp(bundle, {}, &error));
  EXPECT_EQ(error, (TKSError{"Workspace", 5, "busy"}));
  EXPECT_EQ(applications.launchedWith.size(), 11u);
  EXPECT_EQ(clock.sleeps().size(), 10u);
  EXPECT_THAT(clock.sleeps(), Each(milliseconds(100)));
  EXPECT_TRUE(log.has(4, "The 10 retry failed: " + busy));
  EXPECT_EQ(lines().back(), info("Launch APP result: [pid: 0, path: " + bundle + ", retryCount: 10]"));
}

TEST_F(LaunchApplication, AWarmUpIsNotTriedAgain) {
  applications.launches = {"busy"};
  EXPECT_FALSE(TKSUtilBase::launchApp(bundle, {"x", "-warmup"}, &error));
  EXPECT_EQ(error, (TKSError{"Workspace", 5, "busy"}));
  EXPECT_EQ(lines().back(), info("Launch APP result: [pid: 0, path: " + bundle + ", retryCount: 0]"));
}

TEST_F(LaunchApplication, WithoutAnErrorSlotRetriesSayNothing) {
  applications.launches = {"busy", ""};
  EXPECT_TRUE(TKSUtilBase::launchApp(bundle, {}, nullptr));
  EXPECT_THAT(log.texts(4), Not(Contains(::testing::HasSubstr("retry"))));
  EXPECT_EQ(lines().back(), info("Launch APP result: [pid: 77, path: " + bundle + ", retryCount: 1]"));
}

TEST_F(LaunchApplication, WithoutAPathNothingIsLaunched) {
  EXPECT_FALSE(TKSUtilBase::launchApp("", {}, &error));
  EXPECT_THAT(log.lines(), ElementsAre(failure("No path param, fail to launch."),
                                       failure("Nil/empty appPath! Fail to get quarantine property of ."),
                                       failure("Launch APP failed, (null)")));
  EXPECT_FALSE(TKSUtilBase::launchApp("", {}, nullptr));
}

TEST_F(LaunchApplication, AnUntrustedBundleIsNotLaunched) {
  preferences.values = {};
  FakeSignatures unsignedCode;
  unsignedCode.createStatus = -67062;
  const tks::platform::Replaced<tks::platform::Signatures> replaced(unsignedCode);
  EXPECT_FALSE(TKSUtilBase::launchApp(bundle, {}, &error));
  EXPECT_EQ(error, (TKSError{"com.tarvo.kovra.codesign", 0, "No code signature info."}));
  EXPECT_THAT(applications.launchedWith, IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(info("Check app begin."), info("Check app done, result: 0, path: " + bundle),
                                   failure("Launch APP failed, " + error.description())));
  EXPECT_FALSE(TKSUtilBase::launchApp(bundle, {}, nullptr));
}

TEST_F(LaunchApplication, TheQuarantineMarkIsRemovedFirst) {
  if (::setxattr(bundle.c_str(), "user.com.apple.quarantine", "0081", 4, 0) != 0) GTEST_SKIP() << "no attributes here";
  applications.launches = {""};
  EXPECT_TRUE(TKSUtilBase::launchApp(bundle, {}, &error));
  EXPECT_LT(::getxattr(bundle.c_str(), "user.com.apple.quarantine", nullptr, 0), 0);
  EXPECT_EQ(lines().front(), info("Remove com.apple.quarantine attr done, result: 0. AppPath: " + bundle + "."));
}

TEST_F(LaunchApplication, TheQuarantineMarkStaysUntilTheCheckWhereTheHostWantsThat) {
  if (::setxattr(bundle.c_str(), "user.com.apple.quarantine", "0081", 4, 0) != 0) GTEST_SKIP() << "no attributes here";
  const ScopedOptions scope({.quarantineUntilChecked = true});
  applications.launches = {""};
  {
    FakePreferences noLabDevice{{{"AppleLocale", "en_US"}}};
    EXPECT_FALSE(TKSUtilBase::launchApp(bundle, {}, &error)) << "nobody signed it";
  }
  EXPECT_EQ(::getxattr(bundle.c_str(), "user.com.apple.quarantine", nullptr, 0), 4);
  EXPECT_TRUE(TKSUtilBase::launchApp(bundle, {}, &error));
  EXPECT_LT(::getxattr(bundle.c_str(), "user.com.apple.quarantine", nullptr, 0), 0);
}

TEST_F(LaunchApplication, TheQuarantineMarkStaysWhenTheExecutableIsStarted) {
  if (::setxattr(bundle.c_str(), "user.com.apple.quarantine", "0081", 4, 0) != 0) GTEST_SKIP() << "no attributes here";
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(executable, {"-warmup"}, &error), std::nullopt);
  EXPECT_TRUE(error == TKSError());
  EXPECT_EQ(::getxattr(bundle.c_str(), "user.com.apple.quarantine", nullptr, 0), 4);
}

TEST_F(LaunchApplication, PathsAreMasked) {
  applications.launches = {"", "at /Users/jane/x"};
  EXPECT_TRUE(TKSUtilBase::launchApp("/Users/jane/A.app", {}, &error));
  EXPECT_TRUE(log.has(2, "Launch APP result: [pid: 77, path: /Users/****/A.app, retryCount: 0]"));
}

}  // namespace
