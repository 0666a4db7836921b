#include <filesystem>

#include "tests/install/InstallTest.h"

// What lies where a launcher is to be installed: it is replaced, or removed after a bad verdict, when it is a launcher.

namespace {

namespace fs = std::filesystem;
using tks::platform::Tool;
using tks::test::launcherAt;
using tks::test::writeFile;

using WrongTarget = tks::test::InstallTest;

TEST_F(WrongTarget, WithoutAVerdictTheLauncherInItsPlaceStays) {
  for (const char* script : {"kill -KILL $$", "exit 127", "exit 75"}) {
    world.tools.script(Tool::spctl, script);
    EXPECT_TRUE(install("5.0.1", archive("5.0.1"))) << script;
    EXPECT_TRUE(logged(8, "No verdict of spctl, ")) << script;
    EXPECT_EQ(launcherAt(target()), "5.0.1") << script;
  }
}

TEST_F(WrongTarget, NeverRemovesWhatIsNoLauncher) {
  const std::string documents = base_ / "Documents";
  writeFile(documents + "/thesis.txt", "years of work");
  EXPECT_FALSE(install("5.0.1", base_ / "none.zip", documents));
  EXPECT_TRUE(log.has(8, "Not removed: " + shown(documents) + " is no launcher."));
  EXPECT_FALSE(logged(8, "TKS broken after installation"));
  EXPECT_FALSE(logged(2, "Try to clean up folder path: "));
  EXPECT_EQ(tks::test::contentOf(documents + "/thesis.txt"), "years of work");
}

TEST_F(WrongTarget, NeverReplacesWhatIsNoLauncher) {
  const std::string zip = archive("5.0.1");
  writeFile(base_ / "Documents/thesis.txt", "years of work");
  writeFile(base_ / "program", "x");
  writeFile(base_ / "Other.app/Contents/Info.plist", tks::test::launcherInformation("Other", "com.example.other", "1"));
  for (const char* name : {"Documents", "program", "Other.app"}) {
    EXPECT_FALSE(install("5.0.1", zip, base_ / name)) << name;
    EXPECT_TRUE(logged(8, "Clean up TKS failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"Not removed: ")) << name;
  }
  EXPECT_EQ(tks::test::contentOf(base_ / "Documents/thesis.txt"), "years of work");
  EXPECT_EQ(tks::test::contentOf(base_ / "program"), "x");
  EXPECT_TRUE(fs::exists(base_ / "Other.app/Contents/Info.plist"));
}

TEST_F(WrongTarget, IsNoneThatHoldsWhatIsLeftOfALauncherOrNothing) {
  const std::string zip = archive("5.0.1");
  fs::create_directory(base_ / "empty");
  writeFile(base_ / "Damaged.app/Contents/MacOS/program", "x");
  tks::test::makeLauncher(base_ / "Renamed.app", {.version = "4.9"});
  for (const char* name : {"empty", "Damaged.app", "Renamed.app"}) {
    EXPECT_TRUE(install("5.0.1", zip, base_ / name)) << name;
    EXPECT_EQ(launcherAt(base_ / name), "5.0.1") << name;
  }
}

}  // namespace
