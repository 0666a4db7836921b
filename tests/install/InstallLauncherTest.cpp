#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>

#include "tests/install/InstallTest.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/ProcessState.h"

namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tks::platform::Tool;
using tks::test::contentOf;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::LogLine;
using tks::test::namesIn;
using tks::test::writeFile;

class InstallLauncher : public tks::test::InstallTest {};

unsigned modeOf(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

TEST_F(InstallLauncher, PutsTheLauncherOfTheArchiveIntoItsPlace) {
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  expectNothingLeft();
}

TEST_F(InstallLauncher, SaysEachStep) {
  const std::string zip = archive("5.0.1");
  ASSERT_TRUE(install("5.0.1", zip));
  std::vector<LogLine> lines = log.lines();
  // What the unpacker prints, what is broken or not, and what the checks say stands elsewhere.
  std::erase_if(lines, [](const LogLine& line) { return line.text.starts_with("Unzip Output: "); });
  const std::string unpacked = shown(world.unpacked());
  const std::string place = shown(target());
  const std::vector<LogLine> expected = {
      {2, "Unzip Begin"},
      {2, "Archive: " + shown(zip)},
      {2, "Unzip to: " + shown(world.unpackFolder())},
      {2, "Unzip End"},
      {2, "Unzip backup to temp TKS app: " + unpacked + ", result: 1"},
      {2, "Add-ons folder not exists, create folder: " + shown(parent()) + ", result: 1, any error: ((null))"},
      {2, "Install TKS done, result: 1, any error: ((null))"},
      {2, "File replacement done. Begin register work for appext"},
      {2, "Check launch service begin"},
      {2, "Add exe permission done: " + place + "/Contents/MacOS/Tarvo Kovra Start, result: 1(expect 1)."},
      {2, "Add app ext exe permission done: " + place +
              "/Contents/PlugIns/Meeting.appex/Contents/MacOS/Meeting, result: 1(expect 1)."},
      {2, "Prepare for app ext done."},
      {2, "Check launch service end"},
      {4, "Is INSIDER package."},
      {2, "Verify app's broken status, begin."},
      {2, "No recorded hashValue or dismatched. Continue checking broken status with spctl."},
      {2, "Verify app's broken status, end. Broken status:0.[0:healthy, 1:broken] for app: " + place + "."},
      {2, "Succeed to record hashValue:0123 for healthy app: " + place + "."}};
  EXPECT_EQ(lines, expected);
}

TEST_F(InstallLauncher, ReplacesAnOlderLauncherAsAWhole) {
  putLauncher(LauncherPlan{.version = "4.9", .files = {{"Contents/Resources/old", "old"}}});
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_FALSE(fs::exists(target() + "/Contents/Resources/old"));
  EXPECT_TRUE(log.has(2, "Check and end launch modules end: 1"));
  expectNothingLeft();
}

TEST_F(InstallLauncher, ReplacesWhateverIsAtTheTarget) {
  writeFile(target(), "a file");
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  fs::remove_all(target());
  fs::create_directory(base_ / "elsewhere");
  fs::create_directory_symlink(base_ / "elsewhere", target());
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_FALSE(fs::is_symlink(target()));
  EXPECT_TRUE(fs::exists(base_ / "elsewhere")) << "what the link led to is nobody's business";
  expectNothingLeft();
}

TEST_F(InstallLauncher, TakesATargetWithClosingSlashes) {
  EXPECT_TRUE(install("5.0.1", archive("5.0.1"), target() + "//"));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  expectNothingLeft();
}

TEST_F(InstallLauncher, MakesTheParentWithAllFoldersAboveIt) {
  const std::string place = base_ / "a/b/c/Launcher.app";
  EXPECT_TRUE(install("5.0.1", archive("5.0.1"), place));
  EXPECT_EQ(launcherAt(place), "5.0.1");
  EXPECT_TRUE(log.has(
      2, "Add-ons folder not exists, create folder: " + shown(base_ / "a/b/c") + ", result: 1, any error: ((null))"));
}

TEST_F(InstallLauncher, SaysNothingOfAParentThatIsThere) {
  fs::create_directories(parent());
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_FALSE(logged(2, "Add-ons folder not exists"));
}

TEST_F(InstallLauncher, MakesTheLauncherAndItsExtensionsExecutable) {
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(modeOf(target() + "/Contents/MacOS/Tarvo Kovra Start"), 0744u);
  EXPECT_EQ(modeOf(target() + "/Contents/PlugIns/Meeting.appex/Contents/MacOS/Meeting"), 0744u);
}

TEST_F(InstallLauncher, RemovesTheQuarantineMark) {
  // The mark lies on the unpacked bundle, as the system's own unpacker leaves it.
  bool marked = false;
  world.tools.after[Tool::unzip] = [&](const auto&) {
    marked = ::setxattr(world.unpackedByTool().c_str(), "user.com.apple.quarantine", "0081", 4, 0) == 0;
  };
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  if (!marked) GTEST_SKIP() << "no attributes here";
  EXPECT_TRUE(log.has(2, "Remove com.apple.quarantine attr done, result: 0. AppPath: " + shown(target()) + "."));
  EXPECT_LT(::getxattr(target().c_str(), "user.com.apple.quarantine", nullptr, 0), 0);
}

TEST_F(InstallLauncher, NormalizesTheVersionItIsGiven) {
  for (const char* version : {"5.0.1", "5,0,1", " 5, 0, 1 \n", "5 . 0 . 1", "\t5.0,1\r\n"}) {
    EXPECT_TRUE(install(version, archive("5.0.1"))) << version;
  }
  EXPECT_TRUE(install("5.0.1", archive("5, 0, 1")));
  EXPECT_TRUE(install("5, 0, 1", archive("5, 0, 1")));
}

TEST_F(InstallLauncher, RefusesWithoutAllParameters) {
  const std::string zip = archive();
  EXPECT_FALSE(install(" \n", zip));
  EXPECT_EQ(log.lines().front(),
            (LogLine{8, "Param incorrect when check default TKS version: backupVersion:  \n, zipPath: " + shown(zip) +
                            ", targetPath:" + shown(target()) + "."}));
  EXPECT_FALSE(install("5.0.1", ""));
  EXPECT_EQ(log.lines().front(), (LogLine{8,
                                          "Param incorrect when check default TKS version: backupVersion: 5.0.1, "
                                          "zipPath: , targetPath:" +
                                              shown(target()) + "."}));
  EXPECT_FALSE(install("5.0.1", zip, ""));
  EXPECT_EQ(log.lines().front(),
            (LogLine{8, "Param incorrect when check default TKS version: backupVersion: 5.0.1, zipPath: " + shown(zip) +
                            ", targetPath:."}));
  EXPECT_TRUE(log.has(8, "Nil/empty folderPath! Fail to cleanup it."));
}

TEST_F(InstallLauncher, MasksThePathsInItsLines) {
  install("", "/Users/jane/a.zip", "/Users/jane/A.app");
  EXPECT_EQ(log.lines().front().text,
            "Param incorrect when check default TKS version: backupVersion: , zipPath: /Users/****/a.zip, "
            "targetPath:/Users/****/A.app.");
  install("5.0.1", "/Users/jane/a.zip");
  EXPECT_EQ(log.lines().front(), (LogLine{8, "Zip path not exists: /Users/****/a.zip"}));
}

TEST_F(InstallLauncher, RefusesAnArchiveThatIsNotThere) {
  putLauncher("4.9");
  EXPECT_FALSE(install("5.0.1", base_ / "none.zip"));
  EXPECT_EQ(log.lines().front(), (LogLine{8, "Zip path not exists: " + shown(base_ / "none.zip")}));
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallLauncher, RemovesWhatAnEarlierInstallationLeft) {
  writeFile(world.unpacked() + "/Contents/left", "x");
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(log.lines().front(), (LogLine{2, "Clean existed temp app result: 1, any error: (null)"}));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

TEST_F(InstallLauncher, RemovesWhatAnEarlierInstallationLeftAlsoWhenItFails) {
  writeFile(world.unpacked() + "/Contents/left", "x");
  EXPECT_FALSE(install("5.0.1", base_ / "none.zip"));
  EXPECT_TRUE(log.has(2, "Clean up temp unziped app done: 1"));
  expectNothingLeft();
}

TEST_F(InstallLauncher, KeepsOutOfWhatElseIsInTheFolderItUnpacksTo) {
  writeFile(world.unpackFolder() + "/the hosts own", "x");
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_THAT(namesIn(world.unpackFolder()), ElementsAre("the hosts own"));
}

TEST_F(InstallLauncher, TakesAwayWhatTheArchiveHasBesideTheLauncher) {
  const std::string zip = archive("5.0.1");
  const std::string place = zip.substr(0, zip.rfind('/')) + "/made-1";
  writeFile(place + "/__MACOSX/._file", "x");
  writeFile(world.unpackFolder() + "/kept/file", "x");
  writeFile(place + "/kept/other", "x");
  tks::test::zipped(place, ".", zip);
  ASSERT_TRUE(install("5.0.1", zip));
  EXPECT_THAT(namesIn(world.unpackFolder()), ElementsAre("kept"));
}

TEST_F(InstallLauncher, RefusesAnUnsupportedVersion) {
  putLauncher("4.9");
  EXPECT_FALSE(install("3.9", archive("3.9")));
  EXPECT_TRUE(log.has(8, "Unsupported TKS version: 3.9"));
  EXPECT_FALSE(install(".5", archive(".5")));
  EXPECT_TRUE(log.has(8, "Version string format incorrect: .5"));
  EXPECT_EQ(launcherAt(target()), "4.9");
  EXPECT_TRUE(log.has(2, "Clean up temp unziped app done: 1"));
  expectNothingLeft();
}

TEST_F(InstallLauncher, RefusesAnotherVersionThanItWasTold) {
  putLauncher("4.9");
  EXPECT_FALSE(install("5.0.1", archive("5.0.2")));
  EXPECT_TRUE(log.has(8, "Unsafe to install '" + shown(world.unpacked()) +
                             "': Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"Version not match, package version: "
                             "5.0.2, telling version: 5.0.1\""));
  EXPECT_EQ(launcherAt(target()), "4.9");
  expectNothingLeft();
}

TEST_F(InstallLauncher, RefusesAPackageWithoutAVersion) {
  putLauncher("4.9");
  EXPECT_FALSE(install("5.0.1", archive("")));
  EXPECT_TRUE(log.has(8, "Unsafe to install '" + shown(world.unpacked()) +
                             "': Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"Fail to extract version with path: " +
                             shown(world.unpacked()) + "\""));
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallLauncher, RefusesWhatTheMakerDidNotSignBeforeTheTargetIsTouched) {
  putLauncher("4.9");
  const struct {
    const char* signer;
    const char* reason;
  } rows[] = {{"", "Code object is not signed at all."},
              {"nobody", "No certificate info included in code signature info."},
              {"other team", "Codesign verify failed, not from Tarvo."},
              {"two levels", "Codesign verify failed, wrong certificate structure."}};
  for (const auto& row : rows) {
    EXPECT_FALSE(install("5.0.1", archive(LauncherPlan{.signer = row.signer}))) << row.signer;
    ASSERT_TRUE(logged(8, "Unsafe to install '" + shown(world.unpacked()) + "': ")) << row.signer;
    EXPECT_THAT(log.texts(8).front(), HasSubstr(row.reason)) << row.signer;
    EXPECT_FALSE(logged(2, "Check and end launch modules begin")) << "the old launcher is left alone";
    EXPECT_EQ(launcherAt(target()), "4.9") << row.signer;
    expectNothingLeft();
  }
}

TEST_F(InstallLauncher, RefusesAPackageThatWasChangedAfterItWasSigned) {
  putLauncher("4.9");
  const std::string place = base_ / "changed";
  const std::string bundle = tks::test::makeLauncher(place + "/" + std::string(TKSAppName));
  tks::test::append(bundle + "/Contents/Resources/Grüße.lproj/Texts.strings", "!");
  EXPECT_FALSE(install("5.0.1", tks::test::zipped(place, std::string(TKSAppName), base_ / "changed.zip")));
  EXPECT_THAT(log.texts(8).front(), HasSubstr("A sealed resource is missing or invalid."));
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallLauncher, ChecksTheHealthAlsoAfterAFailure) {
  writeFile(target() + "/Contents/damaged", "x");
  EXPECT_FALSE(install("5.0.1", base_ / "none.zip"));
  EXPECT_TRUE(log.has(8, "TKS broken after installation, about to clean up"));
  EXPECT_FALSE(fs::exists(target())) << "a launcher that was damaged before goes as well";
}

TEST_F(InstallLauncher, RemovesALauncherThatTurnsOutBroken) {
  world.tools.script(Tool::spctl, "echo \"$3: rejected\" >&2");
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(2, "Install TKS done, result: 1, any error: ((null))"));
  EXPECT_TRUE(log.has(8, "TKS broken after installation, about to clean up"));
  EXPECT_TRUE(log.has(2, "Try to clean up folder path: " + shown(target()) + ". isForced: 1."));
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_EQ(world.applications.terminated, 0);
}

TEST_F(InstallLauncher, EndsTheLauncherThatUpdatedItselfAndTurnedOutBroken) {
  world.tools.script(Tool::spctl, "echo \"$3: rejected\" >&2");
  world.host.bundleIdentifier = std::string(TKSAppBundleID);
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(log.lines().back(), (LogLine{8, "About to terminate TKS app."}));
  EXPECT_EQ(world.applications.terminated, 1);
}

TEST_F(InstallLauncher, LeavesTheSameVersionInPlaceWhenItIsInstalledAgain) {
  for (int round = 0; round < 3; ++round) ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  expectNothingLeft();
}

TEST_F(InstallLauncher, WorksForAHostWithoutAnIdentifier) {
  world.host.bundleIdentifier.reset();
  const unsigned before = modeOf(world.folders.temporary());
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(2, "Unzip to: " + shown(world.folders.temporary())));
  EXPECT_EQ(modeOf(world.folders.temporary()), before);
  EXPECT_THAT(namesIn(world.folders.temporary()), IsEmpty());
}

TEST_F(InstallLauncher, UnpacksWhereNobodyElseMayLook) {
  fs::create_directory(world.unpackFolder());
  fs::permissions(world.unpackFolder(), fs::perms(0777));
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(modeOf(world.unpackFolder()), 0700u);
}

TEST_F(InstallLauncher, ChecksThePackageBeforeItIsMovedAndOnceMoreBeforeItGoesIn) {
  tks::test::WatchedSignatures signatures;
  ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
  constexpr std::size_t kOfOne = 2;  // the plain check with the one in depth, and who signed
  ASSERT_EQ(signatures.paths.size(), 2 * kOfOne);
  const auto middle = signatures.paths.begin() + kOfOne;
  EXPECT_THAT(std::vector(signatures.paths.begin(), middle), Each(world.unpacked()));
  EXPECT_THAT(std::vector(middle, signatures.paths.end()), Each(HasSubstr(".replacement-")));
  EXPECT_EQ(signatures.checks, 2) << "in depth";
  EXPECT_EQ(world.tools.runs(Tool::spctl), 1u);
}

TEST_F(InstallLauncher, NeedsNoProgramForTheAssessment) {
  world.tools.remove(Tool::spctl);
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(fs::exists(target())) << "the library assesses by itself";
  writeFile(target() + "/Contents/Resources/added", "x");
  world.tools.script(Tool::shasum, "cat > /dev/null; echo 4567");  // so that what was recorded does not count
  EXPECT_FALSE(install("5.0.1", target() + ".zip"));
  EXPECT_FALSE(fs::exists(target())) << "a damaged one is noticed all the same";
}

// Cleaning up what really runs.

class CleanUp : public InstallLauncher {
 protected:
  /// Starts a program out of the launcher.
  tks::test::ChildProcess start() {
    const std::string sleep = contentOf("/bin/sleep");
    putLauncher(LauncherPlan{.version = "4.9", .program = TKSData(sleep.begin(), sleep.end())});
    const std::string executable = target() + "/Contents/MacOS/Tarvo Kovra Start";
    fs::permissions(executable, fs::perms(0755));
    auto process = tks::test::ChildProcess::run(executable, {"1000"});
    EXPECT_TRUE(tks::test::waitUntil([&] { return !world.applications.list().empty(); }, std::chrono::seconds(30)));
    log.clear();
    return process;
  }
};

TEST_F(CleanUp, WithoutForceLeavesALauncherThatRuns) {
  auto process = start();
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(target(), false));
  EXPECT_EQ(launcherAt(target()), "4.9");
  EXPECT_FALSE(world.applications.list().empty()) << "it runs on";
}

TEST_F(CleanUp, ByForceEndsALauncherThatRunsAndRemovesItInTheSameCall) {
  auto process = start();
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(target(), true));
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_EQ(process.wait(), 128 + SIGKILL);
  EXPECT_TRUE(log.has(2, "The terminate request was successfully sent."));
}

TEST_F(CleanUp, ByForceRemovesALauncherThatCannotBeEnded) {
  auto process = start();
  world.applications.refuses = true;
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(target(), true));
  EXPECT_FALSE(fs::exists(target()));
  EXPECT_TRUE(log.has(8, "The terminate request failed to sent! Get on clean up as in forced case."));
}

// Refreshing the launcher from the archive.

class RefreshLauncher : public InstallLauncher {
 protected:
  TKSIAppManager manager_;
};

TEST_F(RefreshLauncher, InstallsWhenThereIsNone) {
  manager_.backupTKSVersion = "  5.0.1\n";
  manager_.backupTKSZipPath = archive("5.0.1");
  EXPECT_TRUE(manager_.updateDefaultTKS());
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_TRUE(log.has(2, "Backup TKS version: 5.0.1"));
  EXPECT_TRUE(log.has(4, "Backup version newer. Go to copy and replace with backup TKS."));
}

TEST_F(RefreshLauncher, InstallsANewerOneAndThenLeavesIt) {
  putLauncher("5.0.0");
  const std::string zip = archive("5.0.1");
  EXPECT_TRUE(manager_.updateDefaultTKS("5.0.1", zip));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  world.tools.requests.clear();
  EXPECT_TRUE(manager_.updateDefaultTKS("5.0.1", zip));
  EXPECT_TRUE(log.has(2, "Backup version not newer. Use default version directly."));
  EXPECT_THAT(world.tools.requests, IsEmpty()) << "a start with a current launcher runs no tool";
}

TEST_F(RefreshLauncher, LeavesANewerLauncher) {
  putLauncher("5.0.2");
  EXPECT_TRUE(manager_.updateDefaultTKS("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.2");
}

TEST_F(RefreshLauncher, TellsThatTheInstallationFailed) {
  putLauncher("5.0.0");
  EXPECT_FALSE(manager_.updateDefaultTKS("5.0.1", archive("5.0.2")));
  EXPECT_EQ(launcherAt(target()), "5.0.0");
}

TEST_F(RefreshLauncher, ReplacesALauncherWithoutAVersion) {
  writeFile(target() + "/Contents/Info.plist", "garbage");
  EXPECT_TRUE(manager_.updateDefaultTKS("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

TEST_F(RefreshLauncher, InstallsToThePathThatTheHostSet) {
  manager_.TKSAppPath = base_ / "Other/Launcher.app";
  EXPECT_TRUE(manager_.updateDefaultTKS("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(manager_.TKSAppPath), "5.0.1");
  EXPECT_EQ(launcherAt(target()), "none");
  EXPECT_TRUE(log.has(8, "Fail to prepare for app ext with path: " + shown(target())))
      << "permissions are granted at the standard place alone";
}

}  // namespace
