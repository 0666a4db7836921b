#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/posix/paths.h"
#include "tests/support/TemporaryFolder.h"

// One code for both systems. On macOS "/tmp", "/var" and "/etc" are links into "/private".

namespace {

namespace fs = std::filesystem;
using namespace tks::posix;

TEST(Paths, ThoseThatTheSystemWouldTakeForOthersAreNone) {
  EXPECT_TRUE(isPath("/a b/\xff"));
  EXPECT_FALSE(isPath(""));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(isPath(std::string("a\0b", 3)));
  EXPECT_EQ(errno, EINVAL);
}

TEST(Paths, AFolderLiesWithinItselfAndThoseAboveIt) {
  const tks::test::TemporaryFolder folder;
  fs::create_directories(folder / "a/b/c");
  fs::create_directories(folder / "ab");
  fs::create_directory_symlink(folder / "a/b", folder / "link");
  EXPECT_TRUE(liesWithin(folder / "a", folder / "a"));
  EXPECT_TRUE(liesWithin(folder / "a/b/c", folder / "a"));
  EXPECT_TRUE(liesWithin(folder / "a/b/../b/c", folder / "a"));
  EXPECT_TRUE(liesWithin(folder / "link", folder / "a")) << "wherever a link leads";
  EXPECT_FALSE(liesWithin(folder / "ab", folder / "a"));
  EXPECT_FALSE(liesWithin(folder / "a", folder / "a/b"));
  EXPECT_FALSE(liesWithin(folder / "missing", folder / "a"));
}

TEST(Paths, OnlyAFolderIsTheRootOfAVolume) {
  const tks::test::TemporaryFolder folder;
  fs::create_directory(folder / "a");
  fs::create_directory_symlink("/", folder / "link");
  EXPECT_TRUE(isRootOfVolume("/"));
  EXPECT_FALSE(isRootOfVolume(folder / "a"));
  EXPECT_FALSE(isRootOfVolume(folder / "link"));
  EXPECT_FALSE(isRootOfVolume(folder / "missing"));
}

}  // namespace
