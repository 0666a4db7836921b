#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/interface/FacadeTest.h"

// What kind of failure hosts are told of, and what helps.

namespace {

using ::testing::ElementsAre;
using Reason = TKSErrorReason;

class FacadeReasons : public tks::test::FacadeTest {
 protected:
  void expectReason(TKSErrorReason reason) {
    ASSERT_TRUE(tks::test::drainUntil([&] { return !calls_.empty(); }));
    EXPECT_EQ(TKSErrorReasonName(lastError_.reason), TKSErrorReasonName(reason)) << lastError_.localizedDescription;
    EXPECT_EQ(lastError_.recoverySuggestion, TKSErrorReasonSuggestion(reason));
    calls_.clear();
  }
};

TEST_F(FacadeReasons, AMissingLauncherIsNotInstalled) {
  tks_.setTKSAppPath("/nowhere/A.app");
  tks_.start(finish(), error());
  expectReason(Reason::notInstalled);
}

TEST_F(FacadeReasons, ALauncherOfSomebodyElseIsNotTrusted) {
  world_.preferences.values = {};
  tks_.start(finish(), error());
  expectReason(Reason::notTrusted);
}

TEST_F(FacadeReasons, ALauncherThatMayNotBeExecutedHasNoPermission) {
  std::filesystem::permissions(world_.executable(), std::filesystem::perms::owner_read);
  tks_.start(finish(), error());
  expectReason(Reason::noPermission);
}

TEST_F(FacadeReasons, ALauncherThatIsNeverListedHasNotAnswered) {
  world_.processes.hide();
  tks_.start(finish(), error());
  expectReason(Reason::notAnswered);
}

TEST_F(FacadeReasons, ALauncherThatCannotBeStartedFailedByTheSystem) {
  world_.processes.refuseToStart();
  tks_.start(finish(), error());
  expectReason(Reason::systemFailed);
}

TEST_F(FacadeReasons, ASecondStartIsBusy) {
  tks_.start(finish("first"), error("first failed"));
  tks_.start(finish("second"), error("second failed"));
  expectReason(Reason::busy);
  tks_.launchMeetingWithParam(TKSDictionary(), finish(), error());
  expectReason(Reason::busy);
  tks_.stop(finish(), error());
  expectReason(Reason::busy);
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
}

TEST_F(FacadeReasons, AJobThatGivesWayIsCancelled) {
  launch();
  tks_.stop(finish("stopped"), error("stop failed"));
  expectReason(Reason::cancelled);
}

TEST_F(FacadeReasons, AConversationWhoseLauncherIsGoneEndedEarly) {
  startUntilGreeted();
  world_.channels.input->end();
  expectReason(Reason::endedEarly);
}

TEST_F(FacadeReasons, WhatIsNoMessageIsABadOne) {
  startUntilGreeted();
  world_.channels.input->arrive(tks::test::frame("no JSON"));
  expectReason(Reason::badMessage);
}

TEST_F(FacadeReasons, ALaunchWithoutParametersIsAnInvalidArgument) {
  connect();
  tks_.launchMeetingWithParam(TKSValue(), finish("launched"), error("launch failed"));
  world_.heard();
  world_.says("hello_ack");
  expectReason(Reason::invalidArgument);
}

TEST_F(FacadeReasons, TheLaunchersCodesHaveReasonsOfTheirOwn) {
  struct Row {
    const char* body;
    TKSErrorReason reason;
  };
  const Row rows[] = {
      {R"({"error_code":"2001"})", Reason::cancelled},         {R"({"error_code":"2002"})", Reason::networkFailed},
      {R"({"error_code":"2003"})", Reason::refusedByLauncher}, {R"({"error_code":"2004"})", Reason::refusedByLauncher},
      {R"({"error_code":"2005"})", Reason::refusedByLauncher}, {R"({"error_code":"2006"})", Reason::busy},
      {R"({"error_code":2007})", Reason::notAnswered},         {"{}", Reason::refusedByLauncher},
      {"\"Something of its own\"", Reason::refusedByLauncher},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.body);
    launch();
    world_.says("error", row.body);
    expectReason(row.reason);
    world_.says("disconnect_ack");
    ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
    world_.heard();
    calls_.clear();
  }
}

}  // namespace
