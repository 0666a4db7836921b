#include <sstream>
#include <thread>

#include "tests/end_to_end/EndToEndTest.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::HostKind;
using tks::test::Pair;

constexpr const char* kEndOfThePipe =
    "error one TKSIDefaultDomain 0 Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message "
    "probably means parent or child process already exited, while current message host is still open.)";
constexpr const char* kEndInsideAMessage =
    "error one TKSIDefaultDomain 0 Message data empty ( 0 ), pending data expected.";

std::string endOfTheProcess(const std::string& how) {
  return "error one TKSIDefaultDomain 0 Launcher process ended while message host is still open. (" + how + ")";
}

class LauncherFault : public testing::TestWithParam<HostKind> {
 protected:
  bool usesPipes() const { return GetParam() == HostKind::plain; }

  /// One launch with a launcher of these switches: what the callbacks are told. Nothing may be left of it.
  std::vector<std::string> launch(const std::vector<std::string>& switches) {
    Pair pair(switches, {.kind = GetParam()});
    pair.host.command("launch one");
    EXPECT_TRUE(pair.waitUntilTold());
    pair.expectNothingLeft();
    lines_ = pair.host.events("log ");
    EXPECT_EQ(pair.host.quit(), 0);
    return pair.told();
  }

  std::vector<std::string> lines_;
};

INSTANTIATE_TEST_SUITE_P(Each, LauncherFault, testing::Values(HostKind::plain, HostKind::ember), tks::test::nameOf);

TEST_P(LauncherFault, EndInsideAFrameIsReportedOnce) {
  EXPECT_THAT(launch({"--die-after-bytes", "100"}),
              ElementsAre(usesPipes() ? std::string(kEndInsideAMessage) : endOfTheProcess("exit code: 0")));
}

TEST_P(LauncherFault, EndBeforeTheAnswerToTheGreetingIsReportedOnce) {
  EXPECT_THAT(launch({"--exit-before", "hello_ack"}),
              ElementsAre(usesPipes() ? std::string(kEndOfThePipe) : endOfTheProcess("exit code: 0")));
}

TEST_P(LauncherFault, EndBeforeTheAnswerToTheLaunchIsReportedOnce) {
  EXPECT_THAT(launch({"--exit-before", "launch_meeting_ack"}),
              ElementsAre(usesPipes() ? std::string(kEndOfThePipe) : endOfTheProcess("exit code: 0")));
}

TEST_P(LauncherFault, EndAfterTheGoodbyeIsQuiet) {
  EXPECT_THAT(launch({"--exit-after", "disconnect_ack"}), ElementsAre("finish one"));
  EXPECT_THAT(lines_, testing::Not(Contains(HasSubstr("fatal error"))));
}

TEST_P(LauncherFault, EndInPlaceOfTheGoodbyeComesAfterTheLaunchedMeeting) {
  const std::vector<std::string> told = launch({"--exit-before", "disconnect_ack"});
  ASSERT_GE(told.size(), 1u);
  EXPECT_EQ(told.front(), "finish one");
}

TEST_P(LauncherFault, LauncherThatEndsAtOnceIsAFailedLaunch) {
  for (const std::vector<std::string>& switches :
       {std::vector<std::string>{"--exit", "3"}, {"--abort"}, {"--signal", "15"}}) {
    const std::vector<std::string> told = launch(switches);
    ASSERT_EQ(told.size(), 1u);
    // Whether it was listed as running before it ended is a matter of luck.
    EXPECT_THAT(told.front(), StartsWith("error one TKSIDefaultDomain 0 "));
    const std::string how = switches.front() == "--exit"    ? "exit code: 3"
                            : switches.front() == "--abort" ? "signal: 6"
                                                            : "signal: 15";
    if (told.front().find("Launched process ended before it was running (" + how + "). Path: ") != std::string::npos) {
      EXPECT_THAT(lines_,
                  Contains(testing::AllOf(StartsWith("log 4 Launched process ended early. PID: "), HasSubstr(how))));
    } else {
      EXPECT_EQ(told.front(), usesPipes() ? std::string(kEndOfThePipe) : endOfTheProcess(how));
    }
  }
}

TEST_P(LauncherFault, KilledWhileItIsGreeted) {
  Pair pair({"--mute"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 TKS launched, pid: "));
  ::kill(pair.launcherPid(), SIGKILL);
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre(usesPipes() ? std::string(kEndOfThePipe) : endOfTheProcess("signal: 9")));
}

TEST_P(LauncherFault, KilledWhileItIsConnected) {
  Pair pair({}, {.kind = GetParam()});
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold());
  ::kill(pair.launcherPid(), SIGKILL);
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

TEST_P(LauncherFault, KilledWhileItLaunches) {
  Pair pair({"--mute-after", "hello_ack"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Switch TKS app status to: LAUNCHING"));
  ::kill(pair.launcherPid(), SIGKILL);
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre(usesPipes() ? std::string(kEndOfThePipe) : endOfTheProcess("signal: 9")));
}

TEST_P(LauncherFault, NextLaunchAfterAKilledLauncherWorks) {
  Pair pair({"--mute-after", "hello_ack"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Switch TKS app status to: LAUNCHING"));
  ::kill(pair.launcherPid(), SIGKILL);
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  pair.launcher.setSwitches({});
  pair.host.command("launch two");
  ASSERT_TRUE(pair.host.waitFor("finish two"));
  pair.expectNothingLeft();
}

TEST_P(LauncherFault, ChildOfTheLauncherThatKeepsTheChannelDoesNotHideItsEnd) {
  Pair pair({"--fork-holder", "--mute-after", "hello_ack"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Switch TKS app status to: LAUNCHING"));
  ::kill(pair.launcherPid(), SIGKILL);
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre(endOfTheProcess("signal: 9")));
  EXPECT_TRUE(pair.host.waitForStatus(tks::test::kUnconnected));
  EXPECT_TRUE(tks::test::waitUntil([&] { return pair.host.children().empty(); }));
}

TEST_P(LauncherFault, FramesBackToBackAllArriveInOrder) {
  const std::vector<std::string> told = launch({"--burst", "50"});
  EXPECT_THAT(told, ElementsAre("finish one"));
  EXPECT_EQ(std::count(lines_.begin(), lines_.end(), "log 2 Handle message of type: client_status"), 50);
}

TEST_P(LauncherFault, HeaderBeyondTheLimitIsReportedOnce) {
  Pair pair({"--header", "10485761"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_TRUE(pair.host.waitForStatus(tks::test::kUnconnected));
  EXPECT_THAT(pair.told(),
              ElementsAre("error one TKSIDefaultDomain 0 Unexpected telling data size: 10485761, exceed max "
                          "message size: 10485760"));
  // The pipe stays open until the next launch or the end of the host.
  EXPECT_EQ(pair.host.quit(), 0);
  EXPECT_TRUE(tks::test::waitUntil([&] { return pair.launcher.processes().empty(); }));
}

TEST_P(LauncherFault, AnswersThatComeTwiceCallBackOnce) { EXPECT_THAT(launch({"--twice"}), ElementsAre("finish one")); }

TEST_P(LauncherFault, LauncherThatNeverAnswersTheGreetingKeepsNobodyFromAnything) {
  Pair pair({"--mute", "--received", "received"}, {.kind = GetParam()});
  pair.host.command("launch one");
  // It was greeted, and the host waits for as long as the launcher likes.
  const std::string greeting = "{\"message\":\"hello\",\"message_type\":\"hello\"}\n";
  ASSERT_TRUE(tks::test::waitUntil([&] { return tks::test::contentOf(pair.launcher.file("received")) == greeting; },
                                   std::chrono::seconds(30)));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(pair.host.status().first, tks::test::kStarting);
  EXPECT_THAT(pair.told(), IsEmpty());
  pair.host.command("start two");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("error two TKSIDefaultDomain 0 Unexpected app status: 2"));
  EXPECT_EQ(pair.host.quit(), 0);
  EXPECT_TRUE(tks::test::waitUntil([&] { return pair.launcher.processes().empty(); }));
}

TEST_P(LauncherFault, LauncherThatSaysNoGoodbyeLeavesTheLaunchedMeetingAsItIs) {
  Pair pair({"--mute-after", "launch_meeting_ack"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("finish one"));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(pair.host.status().first, tks::test::kLaunching);
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  // Once it is gone everything is as after a goodbye.
  ::kill(pair.launcherPid(), SIGKILL);
  pair.expectNothingLeft();
  pair.launcher.setSwitches({});
  pair.host.command("launch two");
  ASSERT_TRUE(pair.host.waitFor("finish two"));
  pair.expectNothingLeft();
}

TEST_P(LauncherFault, LauncherThatWillNotDieHoldsUpNobody) {
  Pair pair({"--wont-die"}, {.kind = GetParam()});
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold(1));
  pair.host.command("stop two");
  // A host over files ends the conversation at once and calls nobody.
  ASSERT_TRUE(pair.host.waitForStatus(tks::test::kUnconnected));
  if (usesPipes()) {
    ASSERT_TRUE(pair.waitUntilTold(2));
    EXPECT_THAT(pair.told(), ElementsAre("finish one", "finish two"));
  }
  EXPECT_EQ(pair.launcher.processes().size(), 1u) << "it is left alone";
  pair.launcher.setSwitches({});
  pair.host.command("launch three");
  ASSERT_TRUE(pair.host.waitFor("finish three"));
  EXPECT_EQ(pair.host.quit(), 0);
}

TEST_P(LauncherFault, LauncherThatAlwaysSaysThatItUpdatedItselfIsStartedOneAfterTheOther) {
  Pair pair({"--update"}, {.kind = GetParam()});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitUntil([](const std::vector<std::string>& events) {
    return std::count_if(events.begin(), events.end(), [](const auto& event) { return event.starts_with("pid "); }) >=
           5;
  }));
  EXPECT_LE(pair.launcher.processes().size(), 2u) << "the next one is started when the last one has quit";
  EXPECT_THAT(pair.told(), IsEmpty());
  // The first one that does not say so launches the meeting.
  pair.launcher.setSwitches({});
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

TEST_P(LauncherFault, ParametersOfAMeetingNeverBecomeArguments) {
  Pair pair({"--dump-arguments", "arguments", "--received", "received"}, {.kind = GetParam()});
  const std::string parameters =
      R"({"gpcurlroot":"https://meet.tarvo.example","-Communicate":"File","Communicate":"-Communicate",)"
      R"("LaunchMethod":"--x","a":"first\nsecond","b":"-daemon","--x":"--x","-daemon":"-LaunchMethod"})";
  pair.host.command("launch one " + parameters);
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  std::vector<std::string> arguments;
  std::istringstream texts(pair.launcher.report("arguments"));
  for (std::string text; std::getline(texts, text, '\0');) arguments.push_back(text);
  std::vector<std::string> expected = {pair.launcher.executable(), "-LaunchMethod", "SDK", "-Communicate",
                                       usesPipes() ? "Pipe" : "File"};
  if (!usesPipes()) {
    expected.push_back("-TempIPCFilePath");
    ASSERT_EQ(arguments.size(), 7u);
    expected.push_back(arguments.back());
    EXPECT_THAT(arguments.back(), testing::MatchesRegex("/.*/ipcFile_[0-9]+"));
  }
  EXPECT_EQ(arguments, expected);
  // They travel in the message, all of them.
  const std::string received = pair.launcher.report("received");
  for (const char* part :
       {R"("-Communicate":"File")", R"("a":"first\nsecond")", R"("b":"-daemon")", R"("--x":"--x")"}) {
    EXPECT_THAT(received, HasSubstr(part));
  }
}

TEST_P(LauncherFault, MissingLauncherIsReported) {
  Pair pair({}, {.kind = GetParam()});
  pair.host.command("path /nowhere/A.app");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(
      pair.told(),
      ElementsAre("error one TKSIDefaultDomain 0 Launch app failed. Path: /nowhere/A.app/Contents/MacOS/A. Error: "
                  "Component binary file not exists: /nowhere/A.app/Contents/MacOS/A"));
}

}  // namespace
