#include "tests/interface/FacadeTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::LogLine;

class FacadeLaunch : public FacadeTest {
 protected:
  void launchAnother(const TKSValue& param) {
    log_.clear();
    tks_.launchMeetingWithParam(param, finish("second launched"), error("second failed"));
  }
};

TEST_F(FacadeLaunch, FromTheBeginningStartsGreetsLaunchesAndSaysGoodbye) {
  const TKSDictionary param = {{"gpcurlroot", "https://meet.example"}, {"confid", "42"}};
  tks_.launchMeetingWithParam(param, finish("launched"), error("launch failed"));
  EXPECT_THAT(log_.lines().at(0), (LogLine{2, "About to launch meetting."}));
  EXPECT_THAT(log_.lines().at(1), (LogLine{2, "TKS app in correct status. Get on to launch."}));
  EXPECT_THAT(log_.lines().at(2), (LogLine{2, "Internal launch meeting with param: " +
                                                  TKSILog::removeSensitiveInformation(TKSValue(param))}));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  EXPECT_TRUE(tks_.isTKSAppProcessing());
  EXPECT_EQ(world_.lastMessage["domain"], TKSValue("https://meet.example"));
  EXPECT_EQ(world_.lastMessage["message"], TKSValue(param));
  EXPECT_THAT(calls_, IsEmpty());
  world_.says("launch_meeting_ack", "{}");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(called(), ElementsAre("launched"));
  EXPECT_TRUE(tks_.isTKSAppProcessing());
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeLaunch, ParametersThatAreNoJsonFailTheLaunchAndTheNextOneWorks) {
  const TKSDictionary param = {{"gpcurlroot", "https://meet.example"}, {"when", TKSDate{1}}};
  tks_.launchMeetingWithParam(param, finish("launched"), error("launch failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect")) << "the launcher is not left waiting";
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("launch failed: Send message failed: Invalid type in JSON write")));
  world_.channels.input = std::make_shared<tks::test::Wire>();
  launch();
}

TEST_F(FacadeLaunch, ParametersAreMaskedInTheLine) {
  const TKSValue param = TKSDictionary{{"gpcurlroot", "https://meet.example/join/secretroom"}};
  tks_.launchMeetingWithParam(param, nullptr, nullptr);
  EXPECT_THAT(log_.texts(2), Not(Contains(testing::HasSubstr("secretroom"))));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
}

TEST_F(FacadeLaunch, OnAConnectedLauncherNeedsNoNewProcess) {
  connect();
  launch();
  EXPECT_EQ(world_.processes.count(), 1u);
}

TEST_F(FacadeLaunch, IsRefusedWhileTheLauncherIsBeingStarted) {
  tks_.start(finish("started"), error("start failed"));
  tks_.launchMeetingWithParam(TKSDictionary(), finish(), error());
  EXPECT_THAT(called(), ElementsAre("error: TKS app in unexpected status: 2"));
  EXPECT_EQ(lastError_.domain, "TKSIDefaultDomain");
  EXPECT_TRUE(log_.has(4, "TKS app in unexpected status: 2"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
}

TEST_F(FacadeLaunch, FailedStartIsReportedOnceAndAfterAStop) {
  tks_.setTKSAppPath("/nowhere/A.app");
  tks_.launchMeetingWithParam(TKSDictionary(), finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("error: Launch app failed. Path: /nowhere/A.app/Contents/MacOS/A. ")));
  EXPECT_TRUE(log_.has(4, "TKS app status: UNCONNECTED. No need to stop."));
}

TEST_F(FacadeLaunch, EndOfTheLauncherWhileItGreetsIsReportedOnce) {
  tks_.launchMeetingWithParam(TKSDictionary(), finish(), error());
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("error: Message data size ( 0 ) less than")));
}

TEST_F(FacadeLaunch, ErrorOfTheLauncherReachesTheHostWithItsCode) {
  launch();
  world_.says("error", R"({"error_code":"2002","error_message":"Download failed"})");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(called(), ElementsAre("launch failed: Download failed"));
  EXPECT_EQ(lastError_.domain, "TKSITKSDomain");
  EXPECT_EQ(lastError_.code, 2002);
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
}

TEST_F(FacadeLaunch, DownloadOnlyJobIsRefusedWhileAnotherRuns) {
  launch();
  for (const char* value : {"1", "true", "TRUE", "True"}) {
    SCOPED_TRACE(value);
    launchAnother(TKSDictionary{{"gpcdownloadonly", value}});
    EXPECT_THAT(called(), ElementsAre("second failed: New coming job is download only, ignore it."));
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogLine{2, "About to launch meetting."}, LogLine{4, "TKS app already in launching status."},
                            LogLine{4, "New coming job is download only, ignore it."}));
    EXPECT_EQ(status(), TKSI_APP_STATUS_LAUNCHING);
  }
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("launched"));
}

class FacadeLaunchOverAnother : public FacadeLaunch, public testing::WithParamInterface<TKSValue> {};

TEST_P(FacadeLaunchOverAnother, StopsItAndStartsTheNewOne) {
  launch();
  launchAnother(GetParam());
  EXPECT_EQ(log_.lines().at(1), (LogLine{4, "TKS app already in launching status."}));
  EXPECT_TRUE(log_.has(4, "Stop previous job firstly."));
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
  EXPECT_EQ(lastError_.code, 1);
  EXPECT_THAT(world_.heard(), ElementsAre("disconnect"));
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(world_.processes.count(), 2u);
  world_.says("hello_ack");
  const std::vector<std::string> heard = waitUntilHeard();
  ASSERT_THAT(heard, ElementsAre("launch_meeting"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("second launched"));
}

INSTANTIATE_TEST_SUITE_P(AnythingElse, FacadeLaunchOverAnother,
                         testing::Values(TKSDictionary(), TKSDictionary{{"gpcdownloadonly", "0"}},
                                         TKSDictionary{{"gpcdownloadonly", ""}},
                                         TKSDictionary{{"gpcdownloadonly", "yes"}},
                                         TKSDictionary{{"gpcdownloadonly", "11"}}));

TEST_F(FacadeLaunch, FailingStopOfThePreviousJobReportsItsOwnError) {
  launch();
  launchAnother(TKSDictionary());
  called();
  world_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("second failed: Message data size ( 0 ) less than")));
}

TEST_F(FacadeLaunch, ThirdJobTakesThePlaceOfTheSecondThatStillWaits) {
  launch();
  launchAnother(TKSDictionary());
  called();
  tks_.launchMeetingWithParam(TKSDictionary(), finish("third launched"), error("third failed"));
  EXPECT_THAT(called(), ElementsAre("second failed: Previous launching job running, will stop it firstly."));
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("third launched"));
}

TEST_F(FacadeLaunch, TwoJobsThatWaitForOneGreetingComeOneAfterTheOther) {
  connect();
  tks_.launchMeetingWithParam(TKSDictionary(), finish("first launched"), error("first failed"));
  tks_.launchMeetingWithParam(TKSDictionary(), finish("second launched"), error("second failed"));
  EXPECT_THAT(world_.heard(), ElementsAre("hello", "hello"));
  world_.says("hello_ack");
  EXPECT_THAT(waitUntilHeard(), ElementsAre("launch_meeting", "disconnect"));
  EXPECT_THAT(called(), ElementsAre("first failed: Previous launching job running, will stop it firstly."));
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("second launched"));
}

TEST_F(FacadeLaunch, SecondAnswerToAGreetingDoesNotPushARunningJobOut) {
  launch();
  world_.says("hello_ack");  // nobody asked
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  tks_.launchMeetingWithParam(TKSDictionary(), finish("second launched"), error("second failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  EXPECT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
}

TEST_F(FacadeLaunch, GoodbyeInTheMiddleOfALaunchIsAnError) {
  launch();
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("launch failed: TKS disconnected before it answered."));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
}

TEST_F(FacadeLaunch, MissingParametersAreReportedAtOnceAndTheRequestIsSentAllTheSame) {
  tks_.launchMeetingWithParam({}, finish(), error());
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  EXPECT_THAT(called(), ElementsAre("error: Launch param nil!"));
  EXPECT_TRUE(log_.has(8, "Launch param nil!"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("finish"));
}

TEST_F(FacadeLaunch, InternalLaunchDoesNotLookAtTheStatusFirst) {
  launch();
  log_.clear();
  tks_.internalLaunchMeetingWithParam(TKSDictionary(), finish("second launched"), error("second failed"));
  EXPECT_EQ(log_.lines().at(0).text, "Internal launch meeting with param: {\n}");
  EXPECT_TRUE(log_.has(4, "Start failed: Unexpected app status: 4"));
  // The failed start leads to a stop, and that to the end of the running job.
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("second failed: Unexpected app status: 4"));
}

TEST_F(FacadeLaunch, RecordedSitesAreThoseOfTheLaunchersRecord) {
  EXPECT_EQ(tks_.getRecordedSites(), std::nullopt);
  std::filesystem::create_directories(TKSUtilBase::getKovraAppDataPath());
  TKSUtilBase::setPlist({"Versions", "44.1"},
                        TKSArray{TKSDictionary{{"SiteDomain", "a.example"}, {"LastLaunchTime", 12.5}}},
                        TKSUtilBase::getClientVersionsPlistPath());
  EXPECT_EQ(tks_.getRecordedSites(), (TKSDictionary{{"a.example", 12.5}}));
}

TEST_F(FacadeLaunch, MissingParametersAreReportedAgainByALaterError) {
  tks_.launchMeetingWithParam({}, finish(), error());
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  world_.says("error", "\"refused\"");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(called(), ElementsAre("error: Launch param nil!", "error: refused"));
}

}  // namespace
