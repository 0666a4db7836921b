#include <algorithm>
#include <sstream>

#include "tests/end_to_end/EndToEndTest.h"

// Options of a real host with a real launcher.

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using tks::test::HostKind;
using tks::test::Pair;
using tks::test::waitUntil;

class OptionsEndToEnd : public testing::TestWithParam<HostKind> {
 protected:
  /// A host with options and the launcher that it is going to start.
  struct OptionPair : Pair {
    OptionPair(const std::vector<std::string>& switches, const std::string& options)
        : Pair(switches, {.kind = GetParam()}) {
      host.command("options " + options);
      EXPECT_TRUE(host.waitFor("set")) << options;
    }
    bool launcherIsGone() const {
      return waitUntil([this] { return launcher.processes().empty(); });
    }
  };

  static std::string silent(const std::string& type, int limit) {
    return "error one TKSIDefaultDomain 0 TKS did not answer \"" + type + "\" within " + std::to_string(limit) + " ms.";
  }
};

INSTANTIATE_TEST_SUITE_P(Each, OptionsEndToEnd, testing::Values(HostKind::plain, HostKind::ember), tks::test::nameOf);

TEST_P(OptionsEndToEnd, SilentLauncherFailsTheStartAndIsEnded) {
  OptionPair pair({"--mute"}, R"({"helloLimit": 100, "endSilentLauncher": true})");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre(silent("hello", 100)));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.host.events("log 2 Option "), SizeIs(2));
}

TEST_P(OptionsEndToEnd, LauncherThatRefusesToEndIsKilled) {
  // So long a launcher has to get where it ignores signals.
  OptionPair pair({"--mute", "--wont-die"}, R"({"helloLimit": 500, "endSilentLauncher": true})");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.expectNothingLeft();
  for (const std::string said :
       {"Asked the launcher that never answered to end", "Killed the launcher that never answered"}) {
    EXPECT_TRUE(pair.host.waitFor("log 4 " + said + ", PID: ")) << said;
  }
}

TEST_P(OptionsEndToEnd, LauncherThatNeverAnsweredEndsWithItsHost) {
  OptionPair pair({"--mute", "--wont-die", "--received", "received"}, R"({"endSilentLauncher": true})");
  pair.host.command("start one");
  pair.launcher.report("received");  // before that it could still be asked to end
  ASSERT_GT(pair.launcherPid(), 0);
  EXPECT_EQ(pair.host.exit(), 0);
  EXPECT_TRUE(pair.launcherIsGone());
}

TEST_P(OptionsEndToEnd, WithoutTheOptionASilentLauncherIsLeftAlone) {
  OptionPair pair({"--mute", "--wont-die"}, R"({"helloLimit": 50})");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_TRUE(pair.host.waitForStatus(tks::test::kUnconnected));
  EXPECT_THAT(pair.launcher.processes(), SizeIs(1));
  EXPECT_THAT(pair.host.events("log 4 "), Not(Contains(HasSubstr("Asked the launcher"))));
}

TEST_P(OptionsEndToEnd, LauncherThatHasAnsweredIsLeftAlone) {
  OptionPair pair({"--mute-after", "hello_ack", "--wont-die"}, R"({"launchLimit": 50, "endSilentLauncher": true})");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre(silent("launch_meeting", 50)));
  EXPECT_TRUE(pair.host.waitForStatus(tks::test::kUnconnected));
  EXPECT_THAT(pair.launcher.processes(), SizeIs(1));
  EXPECT_THAT(pair.host.events("log 4 "), Not(Contains(HasSubstr("Asked the launcher"))));
}

TEST_P(OptionsEndToEnd, EachAnswerHasItsLimit) {
  {
    OptionPair pair({"--mute-after", "launch_meeting_ack"}, R"({"disconnectLimit": 50})");
    pair.host.command("launch one");
    ASSERT_TRUE(pair.waitUntilTold(2));
    EXPECT_THAT(pair.told(), ElementsAre("finish one", silent("disconnect", 50)));
  }
  OptionPair pair({"--stall-after", "10"}, R"({"frameLimit": 50})");
  pair.host.command("launch one");
  ASSERT_TRUE(pair.waitUntilTold());
  EXPECT_THAT(pair.told(), ElementsAre("error one TKSIDefaultDomain 0 Message not whole within 50 ms."));
}

TEST_P(OptionsEndToEnd, GenerousLimitsChangeNothing) {
  OptionPair pair({}, R"({"helloLimit": 60000, "launchLimit": 60000, "disconnectLimit": 60000, "frameLimit": 60000,
                          "silenceNotice": 60000, "endSilentLauncher": true, "privatePipes": true,
                          "checkFilePeer": true, "largestFrame": 65536})");
  for (const std::string name : {"one", "two"}) {
    pair.host.command("launch " + name);
    ASSERT_TRUE(pair.host.waitFor("finish " + name));
    pair.expectNothingLeft();
  }
  EXPECT_THAT(pair.told(), ElementsAre("finish one", "finish two"));
  EXPECT_EQ(pair.host.quit(), 0);
}

TEST_P(OptionsEndToEnd, PrivatePipesLeaveTheStandardHandlesAsTheyAre) {
  const bool usesPipes = GetParam() == HostKind::plain;
  for (const bool isPrivate : {false, true}) {
    OptionPair pair({"--dump-descriptors", "descriptors"}, isPrivate ? R"({"privatePipes": true})" : "{}");
    pair.host.command("start one");
    ASSERT_TRUE(pair.waitUntilTold());
    EXPECT_THAT(pair.told(), ElementsAre("finish one"));
    pair.host.command("handles");
    EXPECT_EQ(pair.host.waitFor("handles"), usesPipes && !isPrivate ? "handles pipe pipe" : "handles device device");
    if (usesPipes) {
      EXPECT_THAT(pair.launcher.report("descriptors"), AllOf(HasSubstr("0 pipe:"), HasSubstr("1 pipe:")));
    }
    const std::size_t descriptors = pair.host.descriptors();
    pair.host.command("stop two");
    // Over files a stop calls nobody.
    ASSERT_TRUE(!usesPipes || pair.waitUntilTold(2));
    pair.expectNothingLeft();
    EXPECT_TRUE(pair.host.waitForDescriptors(descriptors)) << pair.host.descriptors() << " for " << descriptors;
  }
}

TEST_P(OptionsEndToEnd, LaunchersEnvironmentIsReducedToAList) {
  for (const bool isOn : {false, true}) {
    OptionPair pair({"--dump-environment", "environment"},
                    isOn ? R"({"launcherEnvironment": ["PATH", "TKS_NO_SUCH_VARIABLE"]})" : "{}");
    pair.host.command("start one");
    ASSERT_TRUE(pair.waitUntilTold());
    std::istringstream entries(pair.launcher.report("environment"));
    std::vector<std::string> names;
    for (std::string entry; std::getline(entries, entry, '\0');) names.push_back(entry.substr(0, entry.find('=')));
    EXPECT_EQ(names == std::vector<std::string>{"PATH"}, isOn) << names.size();
  }
}

TEST_P(OptionsEndToEnd, AreRefusedAfterTheFirstStart) {
  OptionPair pair({}, R"({"helloLimit": 60000})");
  pair.host.command("start one");
  ASSERT_TRUE(pair.waitUntilTold());
  pair.host.command("options {}");
  EXPECT_EQ(pair.host.waitFor("error options"),
            "error options - 0 Options can be set only before the first start, launch, installation or list of "
            "updates.");
}

}  // namespace
