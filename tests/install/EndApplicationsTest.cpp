#include "tests/interface/LaunchingTest.h"

namespace {

using namespace tks::test;
using std::chrono::milliseconds;

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EndApplications : public LaunchingTest {
 protected:
  static TKSRunningApplication application(std::int32_t pid, const std::string& identifier, const std::string& name) {
    return {pid, identifier, name, "/Users/jane/" + name + ".app", 1000u + static_cast<std::uint64_t>(pid)};
  }
  const TKSRunningApplication launcher = application(5, "com.tarvo.kovra.Tarvo-Kovra-Start", "Tarvo Kovra Start");
  PlayedApplications applications;
};

TEST_F(EndApplications, WithoutLaunchersEverythingHasEnded) {
  EXPECT_TRUE(TKSUtilBase::endLaunchModules());
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Check and end launch modules begin"), info("Check and end launch modules end: 1")));
}

TEST_F(EndApplications, LaunchersAreKnownByIdentifierAndMeetingClientsByName) {
  applications.listed = {application(1, "com.example.other", "Other"),
                         launcher,
                         application(2, "com.example.client", "Kovra64 (44.1)"),
                         application(3, "com.tarvo.kovra.Tarvo-Kovra-Start.helper", "Helper"),
                         application(4, "", "Kovra64 ("),
                         application(6, "com.example.x", "Kovra64"),
                         application(7, "com.example.x", "A Kovra64 (44.1)"),
                         application(8, "COM.TARVO.KOVRA.TARVO-KOVRA-START", "x")};
  EXPECT_TRUE(TKSUtilBase::endLaunchModules());
  EXPECT_THAT(applications.terminated, ElementsAre(5, 2, 4));
  EXPECT_THAT(log.texts(4), ElementsAre("End process: Tarvo Kovra Start, bid: com.tarvo.kovra.Tarvo-Kovra-Start",
                                        "End process: Kovra64 (44.1), bid: com.example.client",
                                        "End process: Kovra64 (, bid: (null)"));
  EXPECT_EQ(log.lines().back(), info("Check and end launch modules end: 1"));
}

TEST_F(EndApplications, OneThatCannotBeEndedDoesNotKeepTheOthers) {
  applications.listed = {application(1, "com.tarvo.kovra.Tarvo-Kovra-Start", "First"), launcher};
  applications.refusing = {1};
  applications.looks[1] = {applications.listed.front()};
  EXPECT_FALSE(TKSUtilBase::endLaunchModules());
  EXPECT_THAT(applications.terminated, ElementsAre(1, 5));
  EXPECT_TRUE(log.has(8, "End process failed: First"));
  EXPECT_EQ(log.lines().back(), info("Check and end launch modules end: 0"));
}

TEST_F(EndApplications, NoApplicationCannotBeTerminated) {
  EXPECT_FALSE(TKSUtilBase::forceTerminateApp(std::nullopt));
  EXPECT_THAT(log.lines(), ElementsAre(failure("App nil, no way to terminate it.")));
}

TEST_F(EndApplications, AnApplicationIsGoneWhenItIsNotFoundAnyMore) {
  applications.looks[5] = {launcher, launcher, std::nullopt};
  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launcher));
  const std::string description = "pid: 5, path: /Users/****/Tarvo Kovra Start.app";
  EXPECT_THAT(log.lines(),
              ElementsAre(info("Begin to force terminate app (" + description + ")"),
                          info("Wait a while for app terminate... 0"), info("Wait a while for app terminate... 1"),
                          info("Force terminate success: (" + description + ")")));
  EXPECT_THAT(clock.sleeps(), ElementsAre(milliseconds(50), milliseconds(50)));
}

TEST_F(EndApplications, ALaterProcessWithTheSameIdentifierIsNotTakenForIt) {
  TKSRunningApplication later = launcher;
  ++later.startTime;
  applications.looks[5] = {later};
  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launcher));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(EndApplications, OneThatEndedByItselfIsGone) {
  applications.refusing = {5};
  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launcher));
  const std::string description = "pid: 5, path: /Users/****/Tarvo Kovra Start.app";
  EXPECT_THAT(log.lines(), ElementsAre(info("Begin to force terminate app (" + description + ")"),
                                       info("Force terminate success: (" + description + ")")));
  applications.listed = {launcher};
  applications.looks[5] = {std::nullopt};
  EXPECT_TRUE(TKSUtilBase::endLaunchModules());
}

TEST_F(EndApplications, WhatCannotBeLookedUpIsNotTakenForGone) {
  applications.blind = true;
  applications.refusing = {5};
  EXPECT_FALSE(TKSUtilBase::endLaunchModules());
  const std::string reason = "Running apps can not be looked up: Error Domain=NSPOSIXErrorDomain Code=2 \"no table\"";
  EXPECT_THAT(log.lines(), ElementsAre(info("Check and end launch modules begin"), failure(reason),
                                       info("Check and end launch modules end: 0")));
  log.clear();
  EXPECT_FALSE(TKSUtilBase::forceTerminateApp(launcher));
  EXPECT_THAT(log.texts(8),
              ElementsAre(reason, "Force terminate app failed (pid: 5, path: /Users/****/Tarvo Kovra Start.app)"));
}

TEST_F(EndApplications, ARefusedRequestIsAFailure) {
  applications.refusing = {5};
  applications.looks[5] = {launcher};
  EXPECT_FALSE(TKSUtilBase::forceTerminateApp(launcher));
  const std::string description = "pid: 5, path: /Users/****/Tarvo Kovra Start.app";
  EXPECT_THAT(log.lines(), ElementsAre(info("Begin to force terminate app (" + description + ")"),
                                       failure("Force terminate app failed (" + description + ")")));
}

TEST_F(EndApplications, OneThatStaysIsAFailureAfterAHundredAttempts) {
  applications.looks[5] = {launcher};
  EXPECT_FALSE(TKSUtilBase::forceTerminateApp(launcher));
  EXPECT_EQ(clock.sleeps().size(), 100u);
  EXPECT_THAT(clock.sleeps(), Each(milliseconds(50)));
  EXPECT_TRUE(log.has(2, "Wait a while for app terminate... 99"));
  EXPECT_EQ(log.lines().back(),
            failure("Force terminate app failed (pid: 5, path: /Users/****/Tarvo Kovra Start.app)"));
}

}  // namespace
