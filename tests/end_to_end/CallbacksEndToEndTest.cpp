#include "tests/end_to_end/EndToEndTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::Pair;

TEST(CallbacksEndToEnd, SecondStartIsRefusedAndTheFirstGoesOn) {
  Pair pair({});
  pair.host.command("start one");
  pair.host.command("start two");
  ASSERT_TRUE(pair.waitUntilTold(2));
  EXPECT_THAT(pair.told(), ElementsAre("error two TKSIDefaultDomain 0 Unexpected app status: 2", "finish one"));
  EXPECT_THAT(pair.host.events("log 4 Start failed: "), ElementsAre("log 4 Start failed: Unexpected app status: 2"));
}

TEST(CallbacksEndToEnd, StopWhileStartingFailsAndTheLaunchGoesOn) {
  Pair pair({}, {.realClock = true});
  pair.host.command("start one");
  pair.host.command("stop two");
  ASSERT_TRUE(pair.waitUntilTold(2));
  EXPECT_THAT(pair.told(), ElementsAre("error two TKSIDefaultDomain 0 Unexpected app status: 2", "finish one"));
}

TEST(CallbacksEndToEnd, SecondLaunchStopsTheFirstUnlessItIsADownload) {
  Pair pair({"--mute-after", "hello_ack"});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Switch TKS app status to: LAUNCHING"));
  pair.host.command(R"(launch two {"gpcdownloadonly":"True"})");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.host.command("launch three");
  ASSERT_TRUE(pair.waitUntilTold(2));
  EXPECT_THAT(pair.told(),
              ElementsAre("error two TKSIDefaultDomain 0 New coming job is download only, ignore it.",
                          "error one TKSIDefaultDomain 1 Previous launching job running, will stop it firstly."));
}

TEST(CallbacksEndToEnd, LaunchInsideTheCallbackOfALaunchStartsANewLauncher) {
  Pair pair({});
  pair.host.command("nested one launch two");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("finish two"));
  pair.expectNothingLeft();
  EXPECT_EQ(pair.host.events("finish one").size(), 1u);
  EXPECT_EQ(pair.host.events("pid ").size(), 2u);
}

TEST(CallbacksEndToEnd, StopInsideTheCallbackOfAStartEndsTheConversation) {
  Pair pair({});
  pair.host.command("nested one stop two");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold(2));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one", "finish two"));
}

TEST(CallbacksEndToEnd, StartInsideTheErrorOfAFailedStartTriesAgain) {
  Pair pair({"--exit-before", "hello_ack"});
  pair.host.command("nested one start two");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold(2));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre(testing::StartsWith("error one "), testing::StartsWith("error two ")));
}

TEST(CallbacksEndToEnd, CallbackThatThrowsIsCaughtAndTheConversationGoesOn) {
  Pair pair({});
  pair.host.command("throw one");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  EXPECT_THAT(pair.host.events("log 8 Callback"),
              ElementsAre("log 8 Callback 'launchFinishBlock' threw an exception: thrown by one"));
  EXPECT_EQ(pair.host.quit(), 0);
}

TEST(CallbacksEndToEnd, AnswersThatNobodyAskedForCallNobody) {
  Pair pair({"--script", "script"});
  tks::test::writeFile(pair.launcher.file("script"),
                       "expect hello\n"
                       "send {\"message_type\":\"launch_meeting_ack\",\"message\":\"early\"}\n"
                       "expect disconnect\n"
                       "send {\"message_type\":\"hello_ack\",\"message\":\"late\"}\n"
                       "send {\"message_type\":\"hello_ack\",\"message\":\"again\"}\n"
                       "send {\"message_type\":\"launch_meeting_ack\",\"message\":\"nobody asked\"}\n"
                       "expect disconnect\n"
                       "send {\"message_type\":\"unknown\",\"message\":\"x\"}\n"
                       "send {\"message_type\":\"disconnect_ack\",\"message\":\"bye\"}\n");
  pair.host.command("start one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Tarvo Kovra Start disconnected."));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

}  // namespace
