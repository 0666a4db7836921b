#include <tksinterface/TKSInstallProgress.h>

#include <algorithm>
#include <thread>

#include "tests/install/InstallTest.h"
#include "tests/support/HostLoop.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

struct InstallProgress : tks::test::InstallTest {
  ~InstallProgress() override { TKSInstallation::setProgressBlock({}); }

  /// Keeps what is told.
  void listen() {
    TKSInstallation::setProgressBlock([this](const TKSInstallProgress& progress) {
      threads.push_back(std::this_thread::get_id());
      told.push_back(progress);
    });
  }
  /// The steps, each once.
  std::vector<std::string> steps() const {
    std::vector<std::string> names;
    for (const TKSInstallProgress& progress : told) {
      const std::string name(TKSInstallStepName(progress.step));
      if (names.empty() || names.back() != name) names.push_back(name);
    }
    return names;
  }

  std::vector<TKSInstallProgress> told;
  std::vector<std::thread::id> threads;
};

TEST_F(InstallProgress, NamesEachStepInItsOrder) {
  listen();
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_THAT(steps(), ElementsAre("examining", "unpacking", "checking", "ending", "replacing", "assessing"));
  for (const TKSInstallProgress& progress : told) EXPECT_EQ(progress.numberOfSteps, 6);
}

TEST_F(InstallProgress, CountsBytesUpToTheLast) {
  listen();
  const std::string zip = archive("5.0.1");
  ASSERT_TRUE(install("5.0.1", zip));
  for (const TKSInstallStep step : {TKSInstallStep::examining, TKSInstallStep::unpacking}) {
    std::uint64_t before = 0;
    std::uint64_t total = 0;
    for (const TKSInstallProgress& progress : told) {
      if (progress.step != step) continue;
      EXPECT_GE(progress.bytesDone, before);
      EXPECT_LE(progress.bytesDone, progress.bytesTotal);
      before = progress.bytesDone;
      total = progress.bytesTotal;
    }
    EXPECT_GT(total, 0u);
    EXPECT_EQ(before, total);
  }
  EXPECT_THAT(tks::platform::files().size(zip, nullptr), Optional(told.front().bytesTotal));
}

TEST_F(InstallProgress, CountsBytesWhileTheLauncherIsUnpacked) {
  // The unpacker goes on once something was told of what it has written so far.
  const std::string go = base_ / "go";
  world.tools.script(tks::platform::Tool::unzip, "printf '%500s' x >/dev/null; until [ -e '" + go +
                                                     "' ]; do sleep 0.01; done; exec /usr/bin/unzip \"$@\"");
  world.tools.limitTime(std::chrono::seconds(60));
  std::vector<std::uint64_t> between;
  TKSInstallation::setProgressBlock([&](const TKSInstallProgress& progress) {
    const bool isBetween = progress.bytesDone > 0 && progress.bytesDone < progress.bytesTotal;
    if (progress.step != TKSInstallStep::unpacking || !isBetween) return;
    between.push_back(progress.bytesDone);
    tks::test::writeFile(go, "");
  });
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  ASSERT_FALSE(between.empty());
  EXPECT_GE(between.front(), 500u);
  EXPECT_TRUE(std::ranges::is_sorted(between));
}

TEST_F(InstallProgress, EndsAtTheStepThatFails) {
  listen();
  EXPECT_FALSE(install("9.0.0", archive("5.0.1")));
  EXPECT_THAT(steps(), ElementsAre("examining", "unpacking", "checking"));
}

TEST_F(InstallProgress, ArrivesOnTheMainThreadOfAnInstallationInTheBackground) {
  listen();
  const std::string zip = archive("5.0.1");
  bool isDone = false;
  std::thread worker([&] {
    TKSUtilBase::installTKSVersion("5.0.1", zip, target());
    tks::platform::mainLoop().post([&] { isDone = true; });
  });
  EXPECT_TRUE(tks::test::drainUntil([&] { return isDone; }, std::chrono::minutes(1)));
  worker.join();
  EXPECT_THAT(steps(), ElementsAre("examining", "unpacking", "checking", "ending", "replacing", "assessing"));
  EXPECT_THAT(threads, testing::Each(std::this_thread::get_id()));
}

TEST_F(InstallProgress, SurvivesACallbackThatThrowsOrTakesItselfAway) {
  int calls = 0;
  TKSInstallation::setProgressBlock([&](const TKSInstallProgress&) {
    if (++calls == 2) TKSInstallation::setProgressBlock({});
    throw 1;
  });
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(logged(8, "Callback 'installProgressBlock' threw an exception"));
  EXPECT_FALSE(TKSInstallation::progressBlock());
}

TEST(InstallStep, HasANameForItsNumber) {
  EXPECT_EQ(TKSInstallStepName(TKSInstallStep::assessing), "assessing");
  EXPECT_THAT(TKSInstallStepName(static_cast<TKSInstallStep>(0)), IsEmpty());
  EXPECT_THAT(TKSInstallStepName(static_cast<TKSInstallStep>(7)), IsEmpty());
}

}  // namespace
