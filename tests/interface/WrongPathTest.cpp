#include <filesystem>

#include "tests/interface/FacadeTest.h"

// What lies at the path of a launcher when a start has failed: a launcher that was found broken is removed, and nothing
// else ever is.

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Each;
using testing::Not;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::writeFile;

class WrongPath : public FacadeTest {
 protected:
  WrongPath() { world_.preferences.values = {}; }

  /// A bundle that names an identifier.
  std::string bundle(const std::string& name, std::string_view identifier) {
    const std::string path = world_.folder / name;
    writeFile(path + "/Contents/Info.plist", "<plist><dict><key>CFBundleIdentifier</key><string>" +
                                                 std::string(identifier) + "</string></dict></plist>");
    writeFile(path + "/Contents/MacOS/program", "x");
    return path;
  }
  void failToStart(const std::string& path) {
    tks_.setTKSAppPath(path);
    log_.clear();
    calls_.clear();
    tks_.start(finish(), error());
    ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
    EXPECT_THAT(called(), testing::ElementsAre(StartsWith("error: Launch app failed. Path: ")));
  }
  void expectRemoved(const std::string& path) {
    failToStart(path);
    EXPECT_FALSE(fs::exists(path)) << path;
    EXPECT_TRUE(log_.has(8, "App broken, about to clean up the broken tks app."));
  }
  void expectUntouched(const std::string& path) {
    const auto entries = [&] {
      return fs::is_directory(path) ? std::distance(fs::recursive_directory_iterator(path), {}) : 0;
    };
    const auto before = entries();
    failToStart(path);
    EXPECT_TRUE(fs::exists(path)) << path;
    EXPECT_EQ(entries(), before) << path;
    EXPECT_THAT(log_.texts(8),
                Contains("Not removed: " + TKSILog::removeSensitiveInformation(path) + " is no launcher.").Times(1));
    EXPECT_THAT(log_.texts(8), Not(Contains("App broken, about to clean up the broken tks app.")));
    EXPECT_THAT(log_.texts(2), Each(Not(StartsWith("Try to clean up folder path: "))));
  }
};

TEST_F(WrongPath, LaunchersAreRemovedByTheirNameOrByTheirIdentifier) {
  expectRemoved(bundle("own/Tarvo Kovra Start.app", "com.example.unreadable"));
  expectRemoved(bundle("Renamed.app", TKSAppBundleID));
  expectRemoved(bundle("Slashes.app", TKSAppBundleID) + "//");
  writeFile(world_.folder / "damaged/Tarvo Kovra Start.app/Contents/x", "a launcher of which little is left");
  expectRemoved(world_.folder / "damaged/Tarvo Kovra Start.app");
}

TEST_F(WrongPath, AFolderOfDocumentsIsNotTouched) {
  writeFile(world_.folder / "Documents/thesis.txt", "years of work");
  writeFile(world_.folder / "Pictures.app/one.png", "a folder that is only named like an app");
  expectUntouched(world_.folder / "Documents");
  expectUntouched(world_.folder / "Pictures.app");
  expectUntouched(world_.folder.path());
  expectUntouched(world_.folder.path() + "/.");
}

TEST_F(WrongPath, AHomeIsNotTouched) {
  writeFile(world_.home / "letters.txt", "x");
  expectUntouched(world_.home.realHome());
  expectUntouched(world_.home.realHome() + "/");
}

TEST_F(WrongPath, AProgramOrAnotherApplicationIsNotTouched) {
  writeFile(world_.folder / "program", "x");
  writeFile(world_.folder / "Tarvo Kovra Start.app", "a plain file of that name");
  expectUntouched(world_.folder / "program");
  expectUntouched(world_.folder / "Tarvo Kovra Start.app");
  expectUntouched(bundle("Other.app", "com.example.other"));
  expectUntouched(bundle("without an ending", TKSAppBundleID));
  // What lies inside a launcher is not the launcher.
  const std::string launcher = bundle("Tarvo Kovra Start.app.d/Tarvo Kovra Start.app", TKSAppBundleID);
  expectUntouched(launcher + "/Contents");
  expectUntouched(launcher + "/Contents/MacOS/program");
  expectUntouched(launcher + "/Contents/..");
}

TEST_F(WrongPath, BelowAFolderThatIsMissingNothingIsEnded) {
  failToStart(world_.folder / "Lau");
  EXPECT_TRUE(
      log_.has(8, "Not removed: " + TKSILog::removeSensitiveInformation(world_.folder / "Lau") + " is no launcher."));
  EXPECT_THAT(log_.texts(2), Each(Not(StartsWith("Try to clean up folder path: "))));
  EXPECT_TRUE(fs::exists(world_.executable()));
}

TEST_F(WrongPath, ALinkIsRemovedWithoutWhatItLeadsTo) {
  const std::string launcher = bundle("elsewhere/Tarvo Kovra Start.app", TKSAppBundleID);
  fs::create_directory_symlink(launcher, world_.folder / "Linked.app");
  failToStart(world_.folder / "Linked.app");
  EXPECT_FALSE(fs::is_symlink(world_.folder / "Linked.app"));
  EXPECT_TRUE(fs::exists(launcher + "/Contents/MacOS/program"));
}

}  // namespace
