#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "tests/install/InstallTest.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/ZipWriter.h"

namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::IsEmpty;
using tks::test::ChildProcess;
using tks::test::InstallWorld;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::LogLine;
using tks::test::namesIn;

// Installing in a process of its own, which may be ended at any moment.

/// Files that end this process before the n-th call.
class KillingFiles final : public tks::test::ForwardingFiles {
 public:
  explicit KillingFiles(int killAt) : killAt_(killAt) {}

  bool exists(std::string_view path) override { return step(), ForwardingFiles::exists(path); }
  bool isWritable(std::string_view path) override { return step(), ForwardingFiles::isWritable(path); }
  std::optional<std::vector<std::string>> list(std::string_view path, TKSError* error) override {
    return step(), ForwardingFiles::list(path, error);
  }
  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return step(), ForwardingFiles::createDirectory(path, permissions, error);
  }
  bool usePrivateDirectory(std::string_view path, TKSError* error) override {
    return step(), ForwardingFiles::usePrivateDirectory(path, error);
  }
  std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) override {
    return step(), ForwardingFiles::makePrivateDirectory(beginning, error);
  }
  bool copyContent(std::string_view from, std::string_view to, TKSError* error) override {
    return step(), ForwardingFiles::copyContent(from, to, error);
  }
  bool visitTree(std::string_view folder, const std::function<bool(const tks::platform::TreeItem&)>& visit,
                 TKSError* error) override {
    return step(), ForwardingFiles::visitTree(folder, visit, error);
  }
  bool remove(std::string_view path, TKSError* error) override { return step(), ForwardingFiles::remove(path, error); }
  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    return step(), ForwardingFiles::move(from, to, error);
  }
  bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
    return step(), ForwardingFiles::exchange(first, second, error);
  }
  std::unique_ptr<tks::platform::FileLock> lock(std::string_view path, std::chrono::milliseconds patience,
                                                TKSError* error) override {
    return step(), ForwardingFiles::lock(path, patience, error);
  }
  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    return step(), ForwardingFiles::changeMark(path, error);
  }
  std::optional<tks::platform::FileAttributes> attributes(std::string_view path, TKSError* error) override {
    return step(), ForwardingFiles::attributes(path, error);
  }
  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return step(), ForwardingFiles::setPermissions(path, permissions, error);
  }

 private:
  void step() {
    if (++calls_ == killAt_) ::kill(::getpid(), SIGKILL);
  }
  int calls_ = 0;
  int killAt_;
};

/// Arguments: folder of the world, temporary folder or "", version, archive, target, call to be ended at, time to be
/// ended after in microseconds, rounds.
int installInChild(const tks::test::Arguments& arguments) {
  InstallWorld world(arguments[0]);
  if (!arguments[1].empty()) world.folders.setTemporary(arguments[1]);
  KillingFiles files(std::atoi(arguments[5].c_str()));
  if (const long time = std::atol(arguments[6].c_str()); time > 0) {
    const itimerval timer{{0, 0}, {time / 1'000'000, time % 1'000'000}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  for (int round = std::atoi(arguments[7].c_str()); round > 0; --round) {
    const tks::test::LogRecorder log;
    // In the background, where there is time to wait for the other host as long as it takes.
    bool installed = false;
    std::thread([&] { installed = TKSUtilBase::installTKSVersion(arguments[2], arguments[3], arguments[4]); }).join();
    if (installed) continue;
    for (const LogLine& line : log.lines()) std::cout << line << std::endl;
    return 1;
  }
  return 0;
}
const tks::test::ChildRole role("install", installInChild);

class InterruptedInstallation : public tks::test::InstallTest {
 protected:
  ChildProcess begin(const std::string& version, const std::string& zip, int killAt, long killAfter, int rounds = 1,
                     const std::string& temporary = "") {
    return ChildProcess::inRole("install", {base_.path(), temporary, version, zip, place_, std::to_string(killAt),
                                            std::to_string(killAfter), std::to_string(rounds)});
  }

  /// What stands there is the old launcher, the new one or nothing; then a refresh makes it the new one, and nothing is
  /// left of the installation that was interrupted.
  void expectWholeAndRepaired(const std::string& zip, const std::string& when) {
    const std::string found = launcherAt(place_);
    EXPECT_THAT(found, AnyOf("4.9", "5.0.1", "none")) << when;
    TKSIAppManager manager;
    manager.TKSAppPath = place_;
    log.clear();
    EXPECT_TRUE(manager.updateDefaultTKS("5.0.1", zip)) << when;
    EXPECT_EQ(launcherAt(place_), "5.0.1") << when;
    // Nothing is refreshed when the new one was in place already: what is left then goes with the next installation.
    EXPECT_TRUE(found != "5.0.1" || install("5.0.1", zip, place_)) << when;
    for (const std::string& name : namesIn(place_.substr(0, place_.rfind('/')))) EXPECT_EQ(name, TKSAppName) << when;
    EXPECT_THAT(namesIn(world.unpackFolder()), IsEmpty()) << when;
  }

  void putOldLauncher(bool there) {
    const fs::path parent = fs::path(place_).parent_path();
    fs::remove_all(parent);
    if (!there) return;
    fs::create_directories(parent);
    fs::copy(old_, place_, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  void endAtEachCall(bool withOldLauncher) {
    const std::string zip = archive("5.0.1");
    int call = 1;
    for (int result = -1; result != 0; ++call) {
      putOldLauncher(withOldLauncher);
      auto child = begin("5.0.1", zip, call, 0);
      result = child.wait();
      ASSERT_THAT(result, AnyOf(0, 128 + SIGKILL)) << "at call " << call;
      expectWholeAndRepaired(zip, "at call " + std::to_string(call));
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(call, 25) << "the whole installation was gone through";
  }

  const std::string old_ = tks::test::makeLauncher(base_ / ("old/" + std::string(TKSAppName)), {.version = "4.9"});
  std::string place_ = base_ / ("Add-ons/" + std::string(TKSAppName));
};

TEST_F(InterruptedInstallation, AtEachStepLeavesTheOldLauncherOrTheNewOne) { endAtEachCall(true); }

TEST_F(InterruptedInstallation, AtEachStepIntoAnEmptyPlaceLeavesNothingOrTheNewOne) { endAtEachCall(false); }

TEST_F(InterruptedInstallation, AtAnyMomentLeavesTheOldLauncherOrTheNewOne) {
  const std::string zip = archive(LauncherPlan{.files = {{"Contents/Resources/large", std::string(3'000'000, 'x')}}});
  int survived = 0;
  for (long time = 1000; survived < 2 && time < 5'000'000; time += time / 5 + 2000) {
    putOldLauncher(true);
    auto child = begin("5.0.1", zip, 0, time);
    const int result = child.wait();
    ASSERT_THAT(result, AnyOf(0, 128 + SIGALRM)) << "after " << time;
    survived += result == 0 ? 1 : 0;
    expectWholeAndRepaired(zip, "after " + std::to_string(time) + " microseconds");
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(InterruptedInstallation, OnTheWayToAnotherVolumeLeavesTheOldLauncherOrTheNewOne) {
  const tks::test::SmallVolume volume("64m");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  place_ = volume / ("Add-ons/" + std::string(TKSAppName));
  std::map<std::string, std::string> files;
  for (int i = 0; i < 200; ++i) files["Contents/Resources/" + std::to_string(i)] = std::string(20'000, 'x');
  const std::string zip = archive(LauncherPlan{.files = files});
  int survived = 0;
  for (long time = 20'000; survived < 2 && time < 5'000'000; time += time / 6 + 2000) {
    putOldLauncher(true);
    auto child = begin("5.0.1", zip, 0, time);
    survived += child.wait() == 0 ? 1 : 0;
    expectWholeAndRepaired(zip, "after " + std::to_string(time) + " microseconds");
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(InterruptedInstallation, ByHostsThatRefreshAtOnceIsNeverAMixture) {
  const std::string first = archive("5.0.1");
  const std::string second = archive("5.0.2");
  putOldLauncher(true);
  constexpr int kRounds = 50;
  auto one = begin("5.0.1", first, 0, 0, kRounds);
  auto other = begin("5.0.2", second, 0, 0, kRounds);
  EXPECT_EQ(one.wait(), 0) << one.output();
  EXPECT_EQ(other.wait(), 0) << other.output();
  EXPECT_THAT(launcherAt(place_), AnyOf("5.0.1", "5.0.2"));
  EXPECT_THAT(namesIn(base_ / "Add-ons"), testing::ElementsAre(TKSAppName));
  EXPECT_THAT(namesIn(world.unpackFolder()), IsEmpty());
}

TEST_F(InterruptedInstallation, ByHostsWithTemporaryFoldersOfTheirOwnIsNeverAMixture) {
  const std::string first = archive("5.0.1");
  const std::string second = archive("5.0.2");
  putOldLauncher(true);
  fs::create_directory(base_ / "tmp2");
  constexpr int kRounds = 50;
  auto one = begin("5.0.1", first, 0, 0, kRounds);
  auto other = begin("5.0.2", second, 0, 0, kRounds, base_ / "tmp2");
  EXPECT_EQ(one.wait(), 0) << one.output();
  EXPECT_EQ(other.wait(), 0) << other.output();
  EXPECT_THAT(launcherAt(place_), AnyOf("5.0.1", "5.0.2"));
  EXPECT_THAT(namesIn(base_ / "Add-ons"), testing::ElementsAre(TKSAppName));
}

/// Whether the assessment of the launcher in its place was made, and made while no other host may replace it.
class AssessedAlone {
 public:
  AssessedAlone(tks::test::InstallWorld& world, const std::string& place) {
    world.tools.before[tks::platform::Tool::spctl] = [this, place](const tks::platform::ToolRequest& request) {
      if (request.arguments.back() != place) return;
      made_ = true;
      const std::string parent = place.substr(0, place.rfind('/'));
      if (tks::platform::files().lock(parent, std::chrono::milliseconds(0), nullptr)) disturbed_ = true;
    };
  }
  explicit operator bool() const { return made_ && !disturbed_; }

 private:
  bool made_ = false;
  bool disturbed_ = false;
};

TEST_F(InterruptedInstallation, IsNotPossibleByAnotherHostWhileTheResultIsAssessed) {
  const AssessedAlone alone(world, target());
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(alone);
}

TEST_F(InterruptedInstallation, BeforeThereIsAFolderForTheLauncherMakesNone) {
  EXPECT_FALSE(install("5.0.1", base_ / "no archive", base_ / "none/Tarvo Kovra Start.app"));
  EXPECT_FALSE(fs::exists(base_ / "none"));
}

TEST_F(InterruptedInstallation, IsNotPossibleByAnotherHostWhileWhatAFailedOneLeftIsAssessed) {
  putLauncher("4.9");
  const AssessedAlone alone(world, target());
  EXPECT_FALSE(install("5.0.1", base_ / "no archive"));
  EXPECT_TRUE(alone);
  EXPECT_EQ(launcherAt(target()), "4.9");
}

}  // namespace
