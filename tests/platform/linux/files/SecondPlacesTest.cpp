#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>

#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

// Folders that stand in two places of the file system at once.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::writeFile;

TEST(KeptFoldersInSecondPlaces, AreNotRemovedThere) {
  const tks::test::TemporaryFolder folder;
  writeFile(folder / "real/precious", "x");
  fs::create_directories(folder / "place of it");
  if (::mount((folder / "real").c_str(), (folder / "place of it").c_str(), nullptr, MS_BIND, nullptr) != 0) {
    GTEST_SKIP() << "needs the right to mount";
  }
  EXPECT_FALSE(files().remove(folder / "place of it", nullptr));
  EXPECT_EQ(contentOf(folder / "real/precious"), "x");
  ::umount2((folder / "place of it").c_str(), MNT_DETACH);
}

}  // namespace
