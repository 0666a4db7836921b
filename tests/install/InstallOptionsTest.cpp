#include <sys/xattr.h>

#include <filesystem>

#include "install/AcceptedVersion.h"
#include "install/ReplaceBundle.h"
#include "tests/install/InstallTest.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/ScopedOptions.h"

// What a host may ask of installations beyond what is described, each by itself.

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tks::platform::Tool;
using tks::platform::ToolRequest;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::namesIn;
using tks::test::ScopedOptions;
using tks::test::writeFile;

constexpr const char* kQuarantine = "user.com.apple.quarantine";

class InstallOptions : public tks::test::InstallTest {
 protected:
  bool install(const std::string& version, const TKSOptions& options = {}) {
    const ScopedOptions scope(options);
    return InstallTest::install(version, archive(version));
  }
  static std::string kept() { return tks::install::previousBundleOf(target()); }
  /// From now on the assessment rejects every launcher of a version.
  void reject(const std::string& version) {
    world.tools.script(Tool::shasum, "cat > /dev/null; echo $$");  // nothing is what it was when it was healthy
    world.tools.script(
        Tool::spctl,
        "grep -q '<string>" + version +
            "</string>' \"$3/Contents/Info.plist\" && echo \"$3: rejected\" >&2 || echo \"$3: accepted\" >&2");
  }
  static bool isMarked(const std::string& path) { return ::getxattr(path.c_str(), kQuarantine, nullptr, 0) >= 0; }
  void markWhatIsUnpacked() {
    world.tools.after[Tool::unzip] = [this](const auto&) {
      ::setxattr(world.unpackedByTool().c_str(), kQuarantine, "0081", 4, 0);
    };
  }
};

TEST_F(InstallOptions, EveryToolHasTheTimeThatTheHostAllows) {
  ASSERT_TRUE(install("5.0.1", {.toolLimit = 60'000, .scanAhead = true}));
  for (const ToolRequest& request : world.tools.requests) EXPECT_EQ(request.timeLimit, std::chrono::minutes(1));
  world.tools.requests.clear();
  ASSERT_TRUE(install("5.0.2"));
  for (const ToolRequest& request : world.tools.requests) EXPECT_EQ(request.timeLimit, std::chrono::minutes(5));
}

TEST_F(InstallOptions, ABrokenLauncherStaysForThoseWhoDevelopOne) {
  reject("5.0.1");
  EXPECT_FALSE(install("5.0.1", {.keepBrokenLauncher = true}));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_TRUE(log.has(4, "Launcher broken, but broken ones are kept: " + shown(target())));
  EXPECT_FALSE(log.has(8, "TKS broken after installation, about to clean up"));
  EXPECT_FALSE(install("5.0.1"));
  EXPECT_EQ(launcherAt(target()), "none");
}

TEST_F(InstallOptions, ThePreviousLauncherIsKeptAndPutBackWhenTheNewOneIsBroken) {
  const TKSOptions options{.keepPreviousLauncher = true};
  ASSERT_TRUE(install("5.0.1", options));
  EXPECT_THAT(namesIn(parent()), ElementsAre(TKSAppName)) << "there was none before";
  ASSERT_TRUE(install("5.0.2", options));
  EXPECT_EQ(launcherAt(kept()), "5.0.1");
  ASSERT_TRUE(install("5.0.3", options));
  EXPECT_EQ(launcherAt(kept()), "5.0.2") << "one is kept";
  reject("5.0.4");
  EXPECT_FALSE(install("5.0.4", options));
  EXPECT_EQ(launcherAt(target()), "5.0.3");
  EXPECT_TRUE(log.has(4, "Launcher broken, the previous one was put back: " + shown(target())));
  EXPECT_THAT(namesIn(parent()), ElementsAre(TKSAppName));
}

TEST_F(InstallOptions, ALinkThatLeadsNowhereGivesWayToThePreviousLauncher) {
  putLauncher("5.0.1");
  fs::create_symlink("nowhere", kept());
  ASSERT_TRUE(install("5.0.2", {.keepPreviousLauncher = true}));
  EXPECT_EQ(launcherAt(kept()), "5.0.1");
  EXPECT_EQ(launcherAt(target()), "5.0.2");
}

TEST_F(InstallOptions, WithoutTheOptionNoPreviousLauncherIsKept) {
  ASSERT_TRUE(install("5.0.1", {.keepPreviousLauncher = true}));
  ASSERT_TRUE(install("5.0.2", {.keepPreviousLauncher = true}));
  ASSERT_TRUE(install("5.0.3"));
  EXPECT_THAT(namesIn(parent()), ElementsAre(TKSAppName)) << "nor one of before";
  reject("5.0.4");
  EXPECT_FALSE(install("5.0.4"));
  EXPECT_EQ(launcherAt(target()), "none");
}

TEST_F(InstallOptions, APreviousLauncherThatIsNoLongerWholeIsNotPutBack) {
  const TKSOptions options{.keepPreviousLauncher = true};
  ASSERT_TRUE(install("5.0.1", options));
  ASSERT_TRUE(install("5.0.2", options));
  writeFile(kept() + "/Contents/Resources/added", "x");
  world.tools.script(Tool::spctl, "echo \"$3: rejected\" >&2");
  world.tools.script(Tool::shasum, "cat > /dev/null; echo another");
  EXPECT_FALSE(InstallTest::install("5.0.2", file("none.zip", "no archive")));
  const ScopedOptions scope(options);
  putLauncher("5.0.2");
  EXPECT_FALSE(InstallTest::install("5.0.2", file("none.zip", "no archive")));
  EXPECT_EQ(launcherAt(target()), "none");
  EXPECT_TRUE(logged(8, "The previous launcher is not put back: "));
}

/// Files of a volume on which a certain item does not change places with another, or with which nothing does.
class StuckItem : public tks::test::ForwardingFiles {
 public:
  enum class Way { out, in };
  StuckItem(Way way, std::string path) : way_(way), path_(std::move(path)) {}

  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    return (way_ == Way::out ? first : second) == path_ ? fail(error) : real().exchange(first, second, error);
  }
  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    return (way_ == Way::out ? from : to) == path_ ? fail(error) : real().move(from, to, error);
  }

 private:
  static bool fail(TKSError* error) {
    if (error != nullptr) *error = {"D", 7, "stuck"};
    return false;
  }

  Way way_;
  std::string path_;
};

TEST_F(InstallOptions, APreviousLauncherThatCannotBePutBackStaysWhereItIs) {
  const TKSOptions options{.keepPreviousLauncher = true};
  ASSERT_TRUE(install("5.0.1", options));
  reject("5.0.2");
  const StuckItem stuck(StuckItem::Way::out, kept());
  EXPECT_FALSE(install("5.0.2", options));
  EXPECT_TRUE(log.has(
      8, "The previous launcher is not put back: " + shown(kept()) + ", error: Error Domain=D Code=7 \"stuck\""));
  EXPECT_FALSE(logged(4, "Launcher broken, the previous one was put back: "));
  EXPECT_EQ(launcherAt(target()), "none") << "a broken launcher does not stay";
  EXPECT_EQ(launcherAt(kept()), "5.0.1");
}

TEST_F(InstallOptions, APreviousLauncherThatCannotBeKeptStopsNoInstallation) {
  const TKSOptions options{.keepPreviousLauncher = true};
  const std::string line =
      "The previous launcher is not kept: " + shown(kept()) + ", error: Error Domain=D Code=7 \"stuck\"";
  ASSERT_TRUE(install("5.0.1", options));
  {
    const StuckItem stuck(StuckItem::Way::in, kept());
    EXPECT_TRUE(install("5.0.2", options));
    EXPECT_TRUE(log.has(4, line)) << "none was kept before";
  }
  EXPECT_EQ(launcherAt(target()), "5.0.2");
  EXPECT_THAT(namesIn(parent()), ElementsAre(TKSAppName));
  ASSERT_TRUE(install("5.0.3", options));
  {
    const StuckItem stuck(StuckItem::Way::in, kept());
    EXPECT_TRUE(install("5.0.4", options));
    EXPECT_TRUE(log.has(4, line)) << "one was";
  }
  EXPECT_EQ(launcherAt(target()), "5.0.4");
  EXPECT_EQ(launcherAt(kept()), "5.0.2");
}

TEST_F(InstallOptions, APreviousLauncherThatIsBrokenTooIsRemovedAsWell) {
  const TKSOptions options{.keepPreviousLauncher = true};
  putLauncher("5.0.1");
  world.tools.script(Tool::spctl, "echo \"$3: rejected\" >&2");
  EXPECT_FALSE(install("5.0.2", options));
  EXPECT_EQ(launcherAt(target()), "none");
  EXPECT_THAT(namesIn(parent()), IsEmpty());
}

TEST_F(InstallOptions, TheQuarantineMarkGoesOnlyAfterTheHealthCheck) {
  const TKSOptions options{.quarantineUntilChecked = true};
  markWhatIsUnpacked();
  bool isMarkedAtTheCheck = false;
  world.tools.before[Tool::spctl] = [&](const ToolRequest& request) {
    isMarkedAtTheCheck = isMarked(request.arguments.back());
  };
  ASSERT_TRUE(install("5.0.1", options));
  EXPECT_TRUE(isMarkedAtTheCheck);
  EXPECT_FALSE(isMarked(target()));
  fs::remove_all(target());
  world.tools.script(Tool::shasum, "cat > /dev/null; echo another");
  ASSERT_TRUE(install("5.0.1"));
  EXPECT_FALSE(isMarkedAtTheCheck) << "as described";
}

TEST_F(InstallOptions, TheSystemLooksThroughAHealthyLauncherAhead) {
  ASSERT_TRUE(install("5.0.1"));
  EXPECT_EQ(world.tools.runs(Tool::gktool), 0u);
  ASSERT_TRUE(install("5.0.2", {.scanAhead = true}));
  EXPECT_EQ(world.tools.runs(Tool::gktool), 1u);
  EXPECT_THAT(world.tools.requests.back().arguments, ElementsAre("scan", target()));
  EXPECT_TRUE(log.has(2, "Scanned ahead: " + shown(target()) + ", result: exit code 0"));
  reject("5.0.3");
  EXPECT_FALSE(install("5.0.3", {.scanAhead = true}));
  EXPECT_EQ(world.tools.runs(Tool::gktool), 1u) << "a broken one is removed";
}

TEST_F(InstallOptions, AnOlderLauncherIsNotInstalledAndTheVersionSurvivesTheLauncher) {
  const TKSOptions options{.refuseDowngrades = true};
  ASSERT_TRUE(install("5.0.2", options));
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.2");
  fs::remove_all(target());
  EXPECT_FALSE(install("5.0.1", options));
  EXPECT_EQ(launcherAt(target()), "none");
  EXPECT_TRUE(logged(8, "Unsafe to install '"));
  EXPECT_TRUE(install("5.0.1"));
  EXPECT_TRUE(install("5.0.3", options));
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.3");
}

TEST_F(InstallOptions, ABrokenLauncherIsNotAccepted) {
  const TKSOptions options{.refuseDowngrades = true, .keepPreviousLauncher = true};
  ASSERT_TRUE(install("5.0.1", options));
  reject("5.0.2");
  EXPECT_FALSE(install("5.0.2", options));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_EQ(tks::install::acceptedVersion(target()), "5.0.1");
}

TEST_F(InstallOptions, AnArchiveOrAPlaceThatOthersCanWriteToIsRefused) {
  const std::string zip = archive("5.0.1");
  fs::permissions(zip, fs::perms(0666));
  EXPECT_TRUE(InstallTest::install("5.0.1", zip)) << "without the option";
  fs::remove_all(target());
  const ScopedOptions scope({.refuseShared = true});
  EXPECT_FALSE(InstallTest::install("5.0.1", zip));
  EXPECT_TRUE(logged(8, "Unsafe to install '" + shown(zip) + "': "));
  fs::permissions(zip, fs::perms(0644));
  fs::create_directories(parent());
  fs::permissions(parent(), fs::perms(0777));
  EXPECT_FALSE(InstallTest::install("5.0.1", zip));
  EXPECT_TRUE(logged(8, "Unsafe to install '" + shown(target()) + "': "));
  fs::permissions(parent(), fs::perms(0755));
  EXPECT_TRUE(InstallTest::install("5.0.1", zip));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

}  // namespace
