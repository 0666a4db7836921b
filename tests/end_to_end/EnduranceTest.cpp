#include <random>
#include <thread>

#include "tests/end_to_end/EndToEndTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::HostKind;
using tks::test::HostOptions;
using tks::test::Pair;

TEST(Endurance, AThousandStartsAndStopsLeaveTheHostAsItWas) {
  Pair pair({});
  pair.host.command("cycle 5");
  ASSERT_TRUE(pair.host.waitFor("done 5"));
  pair.expectNothingLeft();
  const std::size_t descriptors = pair.host.descriptors();
  pair.host.forget();
  pair.host.command("cycle 1000");
  ASSERT_TRUE(pair.host.waitFor("done 1000", std::chrono::seconds(110)));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), IsEmpty());
  EXPECT_TRUE(pair.host.waitForDescriptors(descriptors)) << pair.host.descriptors() << " for " << descriptors;
  EXPECT_LE(pair.host.threads(), 10u);
}

TEST(Endurance, AHundredLaunchesOverFilesLeaveNoFolder) {
  Pair pair({}, {.kind = HostKind::ember});
  pair.host.command("repeat 5");
  ASSERT_TRUE(pair.host.waitFor("done 5"));
  pair.expectNothingLeft();
  const std::size_t descriptors = pair.host.descriptors();
  pair.host.command("repeat 100");
  ASSERT_TRUE(pair.host.waitFor("done 100"));
  pair.expectNothingLeft();
  EXPECT_THAT(pair.told(), IsEmpty());
  EXPECT_TRUE(pair.host.waitForDescriptors(descriptors)) << pair.host.descriptors() << " for " << descriptors;
}

TEST(Endurance, AHundredHostsInARowLaunchTheirMeetings) {
  tks::test::FakeLauncher launcher;
  for (int i = 0; i < 100; ++i) {
    tks::test::HostProcess host(HostOptions{.kind = i % 2 == 0 ? HostKind::plain : HostKind::ember});
    host.command("path " + launcher.bundle());
    host.command("launch one");
    ASSERT_TRUE(host.waitFor("finish one")) << "host " << i;
    ASSERT_THAT(host.events("error "), IsEmpty()) << "host " << i;
    ASSERT_TRUE(host.waitForStatus(tks::test::kUnconnected));
    ASSERT_EQ(host.quit(), 0) << "host " << i;
  }
}

TEST(Endurance, LauncherKilledAtAHundredRandomMomentsIsReportedOnce) {
  std::mt19937 random(20240607);
  std::array<int, 3> outcomes{};
  for (const HostKind kind : {HostKind::plain, HostKind::ember}) {
    Pair pair({"--late", "3ms"}, {.kind = kind});
    for (int i = 0; i < 50; ++i) {
      SCOPED_TRACE(i);
      pair.host.forget();
      pair.host.command("launch one");
      const pid_t launcher = pair.launcherPid();
      ASSERT_GT(launcher, 0);
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 14000));
      ::kill(launcher, SIGKILL);
      ASSERT_TRUE(pair.waitUntilTold());
      pair.expectNothingLeft();
      ASSERT_TRUE(pair.host.isAlive());
      const std::vector<std::string> told = pair.told();
      // A launcher that dies between the launched meeting and the goodbye is an error of the goodbye.
      if (told.size() == 2) {
        EXPECT_THAT(told, ElementsAre("finish one", StartsWith("error one ")));
        ++outcomes[2];
      } else {
        ASSERT_EQ(told.size(), 1u);
        ++outcomes[told.front() == "finish one" ? 0 : 1];
      }
    }
  }
  RecordProperty("launched", outcomes[0]);
  RecordProperty("failed", outcomes[1]);
  RecordProperty("failed at the goodbye", outcomes[2]);
  // Otherwise the moments were no longer random.
  EXPECT_GT(outcomes[1], 0);
}

}  // namespace
