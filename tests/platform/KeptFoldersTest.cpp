#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/platform.h"
#include "platform/posix/kept_folders.h"
#include "tests/support/FakeHome.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"

// Folders that nobody may lose: the home, volumes, and the folders above them. macOS names its volumes by getfsstat.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::writeFile;

class KeptFolders : public ::testing::Test {
 protected:
  KeptFolders() {
    writeFile(home / "letter", "dear");
    fs::create_directories(home / "Documents");
    fs::create_directory_symlink(home.realHome(), folder / "link");
  }
  void expectKept(const std::string& path) {
    TKSError error;
    EXPECT_FALSE(files().remove(path, &error)) << path;
    EXPECT_TRUE(error.code == EBUSY || error.code == EINVAL) << path << error.description();
    EXPECT_FALSE(files().removeEmptyDirectory(path, nullptr)) << path;
    fs::create_directories(folder / "other");
    EXPECT_FALSE(files().exchange(path, folder / "other", nullptr)) << path;
    EXPECT_FALSE(files().exchange(folder / "other", path, nullptr)) << path;
    EXPECT_FALSE(files().move(path, folder / "moved", nullptr)) << path;
    EXPECT_EQ(contentOf(home / "letter"), "dear") << path;
  }

  tks::test::TemporaryFolder folder;
  tks::test::FakeHome home{(folder / "users/jane")};
};

TEST_F(KeptFolders, AreTheHomeHoweverItIsSpelledAndWhatItLiesIn) {
  for (const std::string& path :
       {home.realHome(), home.realHome() + "/", home.realHome() + "//", home.realHome() + "/.", home / "Documents/..",
        folder / "users//jane", folder / "users/../users/jane", folder / "users", folder / "users/.", folder.path(),
        folder / "link/.", folder / "link/Documents/.."}) {
    expectKept(path);
  }
}

TEST_F(KeptFolders, AreMeantByRelativePathsToo) {
  {
    const tks::test::ScopedWorkingFolder here(folder.path());
    for (const char* path : {"users", "users/jane", "./users/jane/", "link/..", "."}) expectKept(path);
  }
  const tks::test::ScopedWorkingFolder here(home.realHome());
  for (const char* path : {".", "..", "./", "../jane", "../..", "Documents/.."}) expectKept(path);
}

TEST_F(KeptFolders, AreNotTheFoldersInTheHomeNorALinkToIt) {
  EXPECT_TRUE(files().remove(home / "Documents", nullptr));
  EXPECT_TRUE(files().remove(folder / "link/", nullptr));
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(contentOf(home / "letter"), "dear");
}

TEST_F(KeptFolders, AreNotBoundToAHomeThatIsMissing) {
  const tks::test::FakeHome none("/nonexistent");
  EXPECT_TRUE(files().remove(folder / "link", nullptr));
  writeFile(folder / "tree/file", "x");
  EXPECT_TRUE(files().remove(folder / "tree", nullptr));
}

TEST_F(KeptFolders, AreThoseAboveAVolumeBeforeAnythingOfThemIsTouched) {
  const tks::test::SmallVolume volume("64k");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  const std::string above = fs::path(volume.path()).parent_path();
  writeFile(above + "/a", "x");
  writeFile(volume / "precious", "x");
  TKSError error;
  EXPECT_FALSE(files().remove(above, &error));
  EXPECT_EQ(error.code, EBUSY);
  EXPECT_FALSE(files().move(above, folder / "moved", nullptr));
  EXPECT_EQ(contentOf(above + "/a"), "x");
  EXPECT_EQ(contentOf(volume / "precious"), "x");
}

TEST(MayBeTakenAway, ComparesWholeNamesOfVolumes) {
  const tks::test::TemporaryFolder folder;
  const std::string real = fs::canonical(folder.path());
  fs::create_directories(folder / "disk");
  fs::create_directories(folder / "disks/one");
  const std::string volumes[] = {real + "/disks/one"};
  EXPECT_TRUE(tks::posix::mayBeTakenAway(folder / "disk", "", volumes));
  EXPECT_FALSE(tks::posix::mayBeTakenAway(folder / "disks", "", volumes));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_FALSE(tks::posix::mayBeTakenAway(folder / "disks/one", "", volumes));
  EXPECT_FALSE(tks::posix::mayBeTakenAway("/", "", {}));
  EXPECT_FALSE(tks::posix::mayBeTakenAway(folder / "disk/.", "", {}));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(tks::posix::mayBeTakenAway(folder / "missing", "", volumes));
}

TEST(EmptyFolders, AloneAreRemovedAsSuch) {
  const tks::test::TemporaryFolder folder;
  writeFile(folder / "full/file", "x");
  fs::create_directories(folder / "empty");
  fs::create_directory_symlink("empty", folder / "link");
  TKSError error;
  EXPECT_FALSE(files().removeEmptyDirectory(folder / "full", &error));
  EXPECT_EQ(error.code, ENOTEMPTY);
  EXPECT_FALSE(files().removeEmptyDirectory(folder / "link", &error));
  EXPECT_EQ(error.code, ENOTDIR);
  EXPECT_FALSE(files().removeEmptyDirectory(folder / "full/file", &error));
  EXPECT_TRUE(files().removeEmptyDirectory(folder / "empty/", &error));
  EXPECT_FALSE(fs::exists(folder / "empty"));
  EXPECT_EQ(contentOf(folder / "full/file"), "x");
}

}  // namespace
