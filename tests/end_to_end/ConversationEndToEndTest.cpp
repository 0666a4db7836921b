#include <sstream>

#include "tests/end_to_end/EndToEndTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::HostKind;
using tks::test::HostOptions;
using tks::test::Pair;

class Conversation : public testing::TestWithParam<HostKind> {
 protected:
  HostOptions host() const { return {.kind = GetParam()}; }
};

INSTANTIATE_TEST_SUITE_P(Each, Conversation, testing::Values(HostKind::plain, HostKind::ember, HostKind::emberDebug),
                         tks::test::nameOf);

TEST_P(Conversation, LaunchesAMeetingAndLeavesNothingBehind) {
  Pair pair({"--received", "received"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  std::istringstream lines(pair.launcher.report("received"));
  std::vector<std::string> received;
  for (std::string line; std::getline(lines, line);) received.push_back(line);
  EXPECT_THAT(
      received,
      ElementsAre(R"({"message":"hello","message_type":"hello"})",
                  R"({"domain":"https://meet.tarvo.example","message":{"gpcurlroot":"https://meet.tarvo.example"},)"
                  R"("message_type":"launch_meeting"})",
                  R"({"message":"disconnect","message_type":"disconnect"})"));
  EXPECT_EQ(pair.host.quit(), 0);
}

TEST_P(Conversation, LauncherGetsItsCommandLineAndThreeDescriptorsOnly) {
  Pair pair({"--dump-arguments", "arguments", "--dump-descriptors", "descriptors"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  std::vector<std::string> arguments;
  std::istringstream texts(pair.launcher.report("arguments"));
  for (std::string text; std::getline(texts, text, '\0');) arguments.push_back(text);
  ASSERT_GE(arguments.size(), 5u);
  EXPECT_EQ(arguments.at(1), "-LaunchMethod");
  EXPECT_EQ(arguments.at(2), "SDK");
  EXPECT_EQ(arguments.at(3), "-Communicate");
  EXPECT_EQ(arguments.at(4), GetParam() == HostKind::plain ? "Pipe" : "File");
  EXPECT_EQ(arguments.size(), GetParam() == HostKind::plain ? 5u : 7u);
  std::istringstream descriptors(pair.launcher.report("descriptors"));
  std::vector<std::string> open;
  for (std::string line; std::getline(descriptors, line);) open.push_back(line.substr(0, line.find(' ')));
  EXPECT_THAT(open, testing::UnorderedElementsAre("0", "1", "2"));
}

TEST_P(Conversation, ErrorOfTheLauncherReachesTheHost) {
  Pair pair({"--error-code", "2002", "--error-text", "Download failed"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("error one TKSITKSDomain 2002 Download failed"));
}

TEST_P(Conversation, SelfUpdateIsFollowedByTheNewLauncher) {
  Pair pair({"--update-once", "--linger", "300ms"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  EXPECT_EQ(pair.host.events("pid ").size(), 2u);
  EXPECT_THAT(pair.host.events("log 2 Launch again."), ElementsAre("log 2 Launch again."));
}

TEST_P(Conversation, OldLauncherThatDoesNotQuitIsGivenUpAfterFiftyOneLooks) {
  Pair pair({}, host());
  pair.host.command("start one");
  ASSERT_TRUE(pair.host.waitFor("finish one"));
  pair.host.command("relaunch two");
  ASSERT_TRUE(pair.host.waitFor("error two"));
  EXPECT_THAT(pair.host.events("error two"),
              ElementsAre("error two TKSIDefaultDomain 0 TKS app failed to quit, checking timeout. Path: " +
                          pair.launcher.bundle()));
  EXPECT_EQ(pair.host.events("log 2 Still running... check after 100ms").size(), 51u);
}

TEST_P(Conversation, HostThatDiesTakesTheLauncherWithIt) {
  Pair pair({}, host());
  pair.host.command("start one");
  ASSERT_TRUE(pair.host.waitFor("finish one"));
  EXPECT_EQ(pair.launcher.processes().size(), 1u);
  pair.host.kill();
  EXPECT_TRUE(tks::test::waitUntil([&] { return pair.launcher.processes().empty(); }));
}

TEST_P(Conversation, LauncherThatFillsStandardErrorGoesOn) {
  Pair pair({"--stderr", "100M"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

TEST_P(Conversation, LauncherThatClosesStandardErrorGoesOn) {
  Pair pair({"--close-stderr"}, host());
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

TEST_P(Conversation, HostWithoutStandardDescriptorsTalksAllTheSame) {
  Pair pair({}, {.kind = GetParam(), .withoutStandardDescriptors = true});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
}

TEST_P(Conversation, FiveThousandOpenDescriptorsOfTheHostStayThere) {
  Pair pair({"--dump-descriptors", "descriptors"}, {.kind = GetParam(), .openDescriptors = 5000});
  ASSERT_GE(pair.host.descriptors(), 5000u);
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("finish one"));
  const std::string descriptors = pair.launcher.report("descriptors");
  EXPECT_EQ(std::count(descriptors.begin(), descriptors.end(), '\n'), 3) << descriptors;
}

TEST_P(Conversation, HostThatIgnoresItsChildrenNoticesTheEndOfTheLauncher) {
  Pair pair({"--mute-after", "hello_ack"}, {.kind = GetParam(), .ignoresChildren = true});
  pair.host.command("launch one");
  ASSERT_TRUE(pair.host.waitFor("log 2 Switch TKS app status to: LAUNCHING"));
  ::kill(pair.launcherPid(), SIGKILL);
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), ElementsAre(StartsWith("error one TKSIDefaultDomain 0 ")));
}

}  // namespace
