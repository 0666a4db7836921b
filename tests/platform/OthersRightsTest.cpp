#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "platform/platform.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Unprivileged.h"

// Where somebody else than this user and the superuser can write. By permission bits on both systems, and on macOS by
// access control lists as well.

namespace {

namespace fs = std::filesystem;
using tks::platform::Reach;
using tks::test::writeFile;

class OthersRights : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(item + "/Contents/a", "x");
    for (const std::string& path : {above, item, item + "/Contents"}) mode(path, 0755);
    mode(item + "/Contents/a", 0644);
  }
  static void mode(const std::string& path, unsigned bits) { fs::permissions(path, fs::perms(bits)); }
  static std::string found(const std::string& path, Reach reach = Reach::content) {
    TKSError error;
    return tks::platform::files().writableByOthers(path, reach, &error).value_or("error: " + error.description());
  }

  tks::test::TemporaryFolder folder;
  const std::string above = folder / "above";
  const std::string item = folder / "above/A.app";
};

TEST_F(OthersRights, AreNoneInAFolderOfThisUser) {
  EXPECT_EQ(found(item), "");
  EXPECT_EQ(found(item + "/"), "");
  EXPECT_EQ(found(item + "/Contents/a"), "");
  const tks::test::ScopedWorkingFolder here(above);
  EXPECT_EQ(found("A.app"), "");
  EXPECT_EQ(found("./../above/A.app"), "");
}

TEST_F(OthersRights, OfTheGroupOrOfAllAreFoundAnywhereInTheItem) {
  for (const std::string& path : {item, item + "/Contents", item + "/Contents/a"}) {
    for (const unsigned bits : {0775u, 0757u, 0720u, 01777u}) {
      mode(path, bits);
      EXPECT_EQ(found(item), path) << bits;
      EXPECT_EQ(found(item, Reach::way), "") << bits;
    }
    mode(path, 0755);
  }
}

TEST_F(OthersRights, AreFoundOnTheWay) {
  mode(above, 0777);
  EXPECT_EQ(found(item), above);
  EXPECT_EQ(found(item, Reach::way), above);
  EXPECT_EQ(found(item + "/Contents/a"), above);
  mode(above, 01777);
  EXPECT_EQ(found(item), "") << "everybody can change his own only";
}

TEST_F(OthersRights, AreFoundOnTheWayOfALinkToo) {
  const std::string shared = folder / "shared";
  fs::create_directory(shared);
  fs::create_symlink(above, shared + "/link");
  fs::create_symlink("A.app", above + "/B.app");
  EXPECT_EQ(found(shared + "/link/B.app"), "");
  mode(shared, 0777);
  EXPECT_EQ(found(shared + "/link/B.app"), shared);
  mode(shared, 0755);
  mode(above, 0777);
  EXPECT_EQ(found(shared + "/link/B.app"), above);
  mode(above, 0755);
  mode(item + "/Contents/a", 0666);
  EXPECT_EQ(found(shared + "/link/B.app"), item + "/Contents/a");
}

TEST_F(OthersRights, OfWhatIsNotThereAreThoseOnTheWay) {
  EXPECT_EQ(found(above + "/missing/B.app"), "");
  mode(above, 0777);
  EXPECT_EQ(found(above + "/missing/B.app", Reach::way), above);
}

TEST_F(OthersRights, BelongToAnotherOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give files away";
  ASSERT_EQ(::chown((item + "/Contents").c_str(), 65534, 65534), 0);
  EXPECT_EQ(found(item), item + "/Contents");
  ASSERT_EQ(::chown(item.c_str(), 65534, 65534), 0);
  EXPECT_EQ(found(item), item);
  EXPECT_EQ(found(item, Reach::way), item) << "whose it is";
}

TEST_F(OthersRights, OfTheSuperuserCountForNobody) {
  if (::geteuid() != 0) GTEST_SKIP() << "this user has no files of the superuser's";
  mode(folder.path(), 0755);
  const tks::test::Unprivileged user;
  EXPECT_EQ(found(item), "");
}

TEST_F(OthersRights, ThatCannotBeLookedAtAreAnError) {
  fs::create_symlink("loop", above + "/loop");
  EXPECT_TRUE(found(above + "/loop/A.app").starts_with("error: "));
  EXPECT_TRUE(found("").starts_with("error: "));
  EXPECT_TRUE(found(std::string("a\0b", 3)).starts_with("error: "));
  mode(item + "/Contents", 0000);
  mode(folder.path(), 0755);
  const tks::test::Unprivileged user;
  EXPECT_TRUE(found(item).starts_with("error: "));
}

}  // namespace
