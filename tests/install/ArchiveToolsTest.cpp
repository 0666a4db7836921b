#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/install/InstallTest.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/ZipWriter.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::platform::Tool;
using tks::test::contentOf;
using tks::test::LauncherPlan;
using tks::test::LogLine;
using tks::test::writeFile;

unsigned modeOf(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

// Unpacking.

class Unpacking : public tks::test::InstallTest {
 protected:
  /// So many names that their list fills a pipe several times over.
  static constexpr int kMany = 1000;
  static std::string longName(int number) { return std::string(200, 'n') + std::to_string(number); }

  std::string textWith(const std::string& beginning) const {
    for (const std::string& text : log.texts(2)) {
      if (text.starts_with(beginning)) return text.substr(beginning.size());
    }
    return "no such line";
  }
};

TEST_F(Unpacking, OfAZipSaysWhatItDoes) {
  const std::string zip = archive();
  const std::string folder = base_ / "there";
  TKSUtilBase::unzip(zip, folder);
  EXPECT_TRUE(fs::exists(folder + "/" + std::string(TKSAppName) + "/Contents/Info.plist"));
  ASSERT_EQ(log.lines().size(), 5u);
  const std::string output = log.lines()[3].text;
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{2, "Unzip Begin"}, LogLine{2, "Archive: " + shown(zip)},
                          LogLine{2, "Unzip to: " + shown(folder)}, LogLine{2, output}, LogLine{2, "Unzip End"}));
  EXPECT_THAT(output, testing::StartsWith("Unzip Output: Archive:  " + shown(zip)));
}

TEST_F(Unpacking, IsDoneWithTheDescribedArguments) {
  TKSUtilBase::unzip("/a/b.zip", "/c");
  TKSUtilBase::untar("/a/b.tar", "/c");
  ASSERT_EQ(world.tools.requests.size(), 2u);
  EXPECT_EQ(world.tools.requests[0].tool, Tool::unzip);
  EXPECT_THAT(world.tools.requests[0].arguments, ElementsAre("-u", "-d", "/c", "/a/b.zip"));
  EXPECT_EQ(world.tools.requests[1].tool, Tool::tar);
  EXPECT_THAT(world.tools.requests[1].arguments, ElementsAre("-xvf", "/a/b.tar", "-C", "/c"));
}

TEST_F(Unpacking, ShowsFiveHundredCharactersOfTheOutputAtMost) {
  std::vector<tks::test::ZipEntry> entries;
  for (int i = 0; i < kMany; ++i) entries.push_back({longName(i), "x"});
  TKSUtilBase::unzip(file("many.zip", tks::test::zipOf(entries)), base_ / "there");
  EXPECT_EQ(std::distance(fs::directory_iterator(base_ / "there"), fs::directory_iterator()), kMany);
  EXPECT_EQ(textWith("Unzip Output: ").size(), 500u);

  log.clear();
  world.tools.script(Tool::unzip, "printf '\xC3\xA4%.0s' $(seq 600)");
  TKSUtilBase::unzip("/a.zip", "/b");
  EXPECT_EQ(textWith("Unzip Output: ").size(), 1000u) << "characters, not bytes";
}

TEST_F(Unpacking, ShowsAShortOutputWhole) {
  world.tools.script(Tool::unzip, "echo short");
  TKSUtilBase::unzip("/a.zip", "/b");
  EXPECT_EQ(textWith("Unzip Output: "), "short\n");
}

TEST_F(Unpacking, ShowsNoOutputThatIsNoText) {
  world.tools.script(Tool::unzip, "printf 'abc\\377'");
  TKSUtilBase::unzip("/a.zip", "/b");
  EXPECT_EQ(textWith("Unzip Output: "), "(null)");
}

TEST_F(Unpacking, MasksPathsAndOutput) {
  world.tools.script(Tool::unzip, "echo /Users/jane/file");
  TKSUtilBase::unzip("/Users/jane/a.zip", "/Users/jane/b");
  EXPECT_TRUE(log.has(2, "Archive: /Users/****/a.zip"));
  EXPECT_TRUE(log.has(2, "Unzip to: /Users/****/b"));
  EXPECT_EQ(textWith("Unzip Output: "), "/Users/****/file\n");
  log.clear();
  TKSUtilBase::untar("/Users/jane/a.tar", "/Users/jane/b");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "untar Begin"}, LogLine{2, "Archive: /Users/****/a.tar"},
                                       LogLine{2, "Untar to: /Users/****/b"}, LogLine{2, "Untar End"}));
}

TEST_F(Unpacking, GoesOnWhateverTheToolSays) {
  for (const char* script : {"exit 9", "kill -9 $$"}) {
    world.tools.script(Tool::unzip, script);
    log.clear();
    TKSUtilBase::unzip("/a.zip", "/b");
    EXPECT_EQ(log.lines().back(), (LogLine{2, "Unzip End"})) << script;
  }
}

TEST_F(Unpacking, NamesAToolThatIsMissingAndWhereItWasLookedFor) {
  const std::string failed = "System tool failed: Error Domain=NSPOSIXErrorDomain Code=2 \"run \"";
  world.tools.remove(Tool::unzip);
  world.tools.remove(Tool::tar);
  TKSUtilBase::unzip("/a.zip", "/b");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Unzip Begin"},
                                       LogLine{8, failed + "/usr/bin/unzip\": No such file or directory\""},
                                       LogLine{2, "Archive: /a.zip"}, LogLine{2, "Unzip to: /b"},
                                       LogLine{2, "Unzip Output: "}, LogLine{2, "Unzip End"}));
  log.clear();
  TKSUtilBase::untar("/a.tar", "/b");
  EXPECT_THAT(log.texts(8), ElementsAre(failed + "/usr/bin/tar or /bin/tar\": No such file or directory\""));
}

TEST_F(Unpacking, TellsThatAToolWasEndedEarly) {
  world.tools.script(Tool::unzip, "echo begun; kill -9 $$");
  TKSUtilBase::unzip("/a.zip", "/b");
  EXPECT_THAT(log.texts(8), ElementsAre(testing::EndsWith("(signal: 9)\"")));
  EXPECT_EQ(textWith("Unzip Output: "), "begun\n");
}

TEST_F(Unpacking, KeepsWhatIsThereAndNeverAsks) {
  const std::string zip = archive();
  const std::string folder = base_ / "there";
  const std::string file = folder + "/" + std::string(TKSAppName) + "/Contents/Info.plist";
  writeFile(file, "older");
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(24 * 3650));
  world.tools.limitTime(std::chrono::seconds(60));
  TKSUtilBase::unzip(zip, folder);
  EXPECT_EQ(log.lines().back(), (LogLine{2, "Unzip End"})) << "the question finds no answer, and nobody waits";
  EXPECT_EQ(contentOf(file), "older");
  EXPECT_TRUE(fs::exists(folder + "/" + std::string(TKSAppName) + "/Contents/CodeResources")) << "the rest is there";
}

TEST_F(Unpacking, TakesNoPathForAnOption) {
  TKSUtilBase::unzip("-x.zip", "-there");
  TKSUtilBase::untar("-x.tar", "-there");
  TKSUtilBase::untar("host:x.tar", "there");
  EXPECT_THAT(world.tools.requests[0].arguments, ElementsAre("-u", "-d", "./-there", "./-x.zip"));
  EXPECT_THAT(world.tools.requests[1].arguments, ElementsAre("-xvf", "./-x.tar", "-C", "./-there"));
  EXPECT_THAT(world.tools.requests[2].arguments, ElementsAre("-xvf", "./host:x.tar", "-C", "there"));
}

TEST_F(Unpacking, FindsAZipWhateverItsNameAndFolder) {
  const std::string content = tks::test::zipOf({{"inside", "x"}});
  const std::string other = tks::test::zipOf({{"other", "x"}});
  const char* const names[] = {"a\\b.zip", "a*b.zip", "a[b.zip",    "[ab].zip", "a?b.zip",    "a\\*b.zip",
                               "\\.zip",   "*.zip",   "a\\[b].zip", "!.zip",    "a\\\\*.zip", "[!a]\\.zip"};
  for (const char* folder : {"plain", "a*b", "a\\b", "[ab]", "a\\*b", "-a"}) {
    const std::string place = base_ / folder;
    // What the names would stand for as patterns.
    for (const char* trap : {"a.zip", "b.zip", "ab.zip", "axb.zip", "zz.zip"}) writeFile(place + "/" + trap, other);
    for (const char* name : names) {
      writeFile(place + "/" + name, content);
      TKSUtilBase::unzip(place + "/" + name, base_ / "out");
      EXPECT_THAT(tks::test::namesIn(base_ / "out"), ElementsAre("inside")) << folder << "/" << name;
      fs::remove_all(base_ / "out");
      fs::remove(place + "/" + name);
    }
  }
}

TEST_F(Unpacking, OfATarUnpacksWholeTreesHoweverMuchTheToolTells) {
  for (int i = 0; i < kMany; ++i) writeFile(base_ / "many/" + longName(i), "x");
  auto tar = tks::test::ChildProcess::run("/bin/tar", {"-cf", base_ / "many.tar", "-C", base_.path(), "many"});
  ASSERT_EQ(tar.wait(), 0);
  fs::create_directory(base_ / "there");
  TKSUtilBase::untar(base_ / "many.tar", base_ / "there");
  EXPECT_EQ(std::distance(fs::directory_iterator(base_ / "there/many"), fs::directory_iterator()), kMany);
}

// Whether a package may be installed.

class PackageSafety : public tks::test::InstallTest {
 protected:
  std::string verdict(const std::string& path, const std::string& version) {
    TKSError error;
    if (TKSUtilBase::isSafeToInstall(path, version, &error)) return "safe";
    EXPECT_EQ(error.code, 0);
    EXPECT_FALSE(TKSUtilBase::isSafeToInstall(path, version, nullptr)) << "without an error as well";
    return error.domain + ": " + error.localizedDescription;
  }
};

TEST_F(PackageSafety, IsGivenToTheMakersPackageOfTheVersion) {
  const std::string bundle = tks::test::makeLauncher(base_ / "A.app", {.version = "5.0.1"});
  for (const char* version : {"5.0.1", "5,0,1", "5, 0, 1", " 5.0.1 "}) EXPECT_EQ(verdict(bundle, version), "safe");
}

TEST_F(PackageSafety, NamesWhatIsWrong) {
  const std::string none = base_ / "none.app";
  EXPECT_EQ(verdict(none, "5"), "com.tarvo.kovra.TKSUtil: Package not exist: " + none);
  const std::string bundle = tks::test::makeLauncher(base_ / "A.app", {.version = "5, 0 ,2"});
  EXPECT_EQ(verdict(bundle, "5,0,1"),
            "com.tarvo.kovra.TKSUtil: Version not match, package version: 5.0.2, telling version: 5.0.1");
  EXPECT_EQ(verdict(bundle, "5.0.2.0"),
            "com.tarvo.kovra.TKSUtil: Version not match, package version: 5.0.2, telling version: 5.0.2.0")
      << "texts are compared, not numbers";
  const std::string bare = tks::test::makeLauncher(base_ / "B.app", {.version = ""});
  EXPECT_EQ(verdict(bare, "5"), "com.tarvo.kovra.TKSUtil: Fail to extract version with path: " + bare);
  EXPECT_EQ(verdict(bare, ""), "com.tarvo.kovra.TKSUtil: Fail to extract version with path: " + bare);
}

TEST_F(PackageSafety, LeavesTheReasonToTheSignature) {
  const std::string bundle = tks::test::makeLauncher(base_ / "A.app", {.signer = "other team"});
  EXPECT_EQ(verdict(bundle, "another version"), "com.tarvo.kovra.codesign: Codesign verify failed, not from Tarvo.");
}

TEST_F(PackageSafety, AsksNoVersionOfASingleLibrary) {
  const std::string library = base_ / "a.dylib";
  tks::test::writeBytes(library, tks::signing::makeImage({}));
  EXPECT_THAT(verdict(library, "5"),
              testing::StartsWith("com.tarvo.kovra.codesign: Code object is not signed at all."));
  tks::test::signAs(library);
  EXPECT_EQ(verdict(library, "5"), "safe");
  EXPECT_EQ(verdict(library, ""), "safe");
  const std::string folder = tks::test::makeLauncher(base_ / "b.dylib", {.version = "5.0.1"});
  EXPECT_EQ(verdict(folder, "5"),
            "com.tarvo.kovra.TKSUtil: Version not match, package version: 5.0.1, telling version: 5")
      << "a folder of that name is a package";
}

TEST_F(PackageSafety, SupportsVersionsFromFourOn) {
  for (const char* version : {"4", "4.0", "4.9.1", "5.0.1", "44.1", "4x.1", " 4.1"}) {
    EXPECT_TRUE(TKSUtilBase::isSupportedTKSVersion(version)) << version;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  for (const char* version : {"3.9", "3", "0.4", "x4", "-5", "3.99.4"}) {
    log.clear();
    EXPECT_FALSE(TKSUtilBase::isSupportedTKSVersion(version)) << version;
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "Unsupported TKS version: " + std::string(version)}));
  }
  for (const char* version : {"", ".5", "."}) {
    log.clear();
    EXPECT_FALSE(TKSUtilBase::isSupportedTKSVersion(version)) << version;
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "Version string format incorrect: " + std::string(version)}));
  }
}

// Permission to be executed.

class LaunchService : public tks::test::InstallTest {
 protected:
  std::string executable() { return target() + "/Contents/MacOS/Tarvo Kovra Start"; }
  std::string extension(const std::string& name = "Meeting") {
    return target() + "/Contents/PlugIns/" + name + ".appex/Contents/MacOS/" + name;
  }
  const LogLine begin_{2, "Check launch service begin"};
  const LogLine prepared_{2, "Prepare for app ext done."};
  const LogLine end_{2, "Check launch service end"};
};

TEST_F(LaunchService, GivesTheOwnerTheRightToExecuteAndNobodyElse) {
  putLauncher("5.0.1");
  ASSERT_EQ(::chmod(executable().c_str(), 0640), 0);
  ASSERT_EQ(::chmod(extension().c_str(), 0600), 0);
  TKSUtilBase::checkLaunchService();
  EXPECT_EQ(modeOf(executable()), 0740u);
  EXPECT_EQ(modeOf(extension()), 0700u);
  EXPECT_THAT(
      log.lines(),
      ElementsAre(begin_, LogLine{2, "Add exe permission done: " + shown(executable()) + ", result: 1(expect 1)."},
                  LogLine{2, "Add app ext exe permission done: " + shown(extension()) + ", result: 1(expect 1)."},
                  prepared_, end_));
}

TEST_F(LaunchService, LeavesWhatMayBeExecuted) {
  putLauncher("5.0.1");
  ASSERT_EQ(::chmod(executable().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(extension().c_str(), 0755), 0);
  TKSUtilBase::checkLaunchService();
  EXPECT_THAT(log.lines(), ElementsAre(begin_, prepared_, end_));
}

TEST_F(LaunchService, OfNoLauncherSaysSo) {
  TKSUtilBase::checkLaunchService();
  EXPECT_THAT(log.lines(),
              ElementsAre(begin_, LogLine{8, "Fail to prepare for app ext with path: " + shown(target())}, end_));
}

TEST_F(LaunchService, OfALauncherWithoutItsExecutableSaysSo) {
  putLauncher("5.0.1");
  fs::remove(executable());
  fs::remove_all(target() + "/Contents/PlugIns");
  TKSUtilBase::checkLaunchService();
  EXPECT_THAT(log.lines(),
              ElementsAre(begin_, LogLine{8, "Failed to get attributes of (null)"},
                          LogLine{2, "Add exe permission done: (null), result: 0(expect 1)."}, prepared_, end_));
}

TEST_F(LaunchService, LooksAtExtensionsAlone) {
  putLauncher("5.0.1");
  ASSERT_EQ(::chmod(executable().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(extension().c_str(), 0755), 0);
  writeFile(target() + "/Contents/PlugIns/Other.bundle/Contents/Info.plist",
            tks::test::launcherInformation("Other", "com.tarvo.other", "1"));
  writeFile(target() + "/Contents/PlugIns/Other.bundle/Contents/MacOS/Other", "x");
  writeFile(target() + "/Contents/PlugIns/file.appex", "x");
  fs::create_directories(target() + "/Contents/PlugIns/Empty.appex");
  TKSUtilBase::checkLaunchService();
  EXPECT_THAT(log.lines(), ElementsAre(begin_, prepared_, end_));
}

TEST_F(LaunchService, ThatMayNotSetPermissionsSaysWhy) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool setPermissions(std::string_view, std::uint32_t, TKSError* error) override {
      *error = {"D", 7, "stubborn"};
      return false;
    }
  };
  putLauncher("5.0.1");
  ASSERT_EQ(::chmod(extension().c_str(), 0755), 0);
  const Stubborn files;
  TKSUtilBase::checkLaunchService();
  EXPECT_THAT(log.lines(),
              ElementsAre(begin_,
                          LogLine{8, "Failed to set execute attributes to " + shown(executable()) +
                                         ", error: Error Domain=D Code=7 \"stubborn\""},
                          LogLine{2, "Add exe permission done: " + shown(executable()) + ", result: 0(expect 1)."},
                          prepared_, end_));
}

// Which processors the launcher was built for.

TEST(BuildArchitecture, IsReadOnceAndKeptWhateverComesLater) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::TemporaryFolder base;
  const tks::test::InstallWorld world(base.path());
  const std::string bundle = TKSUtilBase::getStandardTKSPath();
  tks::test::makeLauncher(bundle, {.signer = ""});
  EXPECT_EQ(TKSUtilBase::getTKSBuildArchitecture(), "x86_64 ARM64");
  EXPECT_TRUE(TKSUtilBase::isArmArchitecturalApp("")) << "in any letter case, of whatever path";
  fs::remove_all(bundle);
  EXPECT_EQ(TKSUtilBase::getTKSBuildArchitecture(), "x86_64 ARM64");
  EXPECT_TRUE(TKSUtilBase::isArmArchitecturalApp("/elsewhere"));
}

TEST(BuildArchitecture, OfNoLauncherIsNoneForGood) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::TemporaryFolder base;
  const tks::test::InstallWorld world(base.path());
  EXPECT_EQ(TKSUtilBase::getTKSBuildArchitecture(), std::nullopt);
  EXPECT_FALSE(TKSUtilBase::isArmArchitecturalApp(""));
  tks::test::makeLauncher(TKSUtilBase::getStandardTKSPath(), {.signer = ""});
  EXPECT_EQ(TKSUtilBase::getTKSBuildArchitecture(), std::nullopt);
}

}  // namespace
