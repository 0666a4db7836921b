#include "foundation/values/FilePaths.h"

#include <gtest/gtest.h>

namespace {

TEST(FilePath, TwoPartsAreJoinedByOneSlash) {
  EXPECT_EQ(tks::joinedPath("/a/b", "c"), "/a/b/c");
  EXPECT_EQ(tks::joinedPath("/a/b//", "c"), "/a/b/c");
  EXPECT_EQ(tks::joinedPath("/", "c"), "/c");
  EXPECT_EQ(tks::joinedPath("//", "c"), "/c");
  EXPECT_EQ(tks::joinedPath("", "c"), "c");
}

TEST(FilePath, ClosingSlashesAreNoComponent) {
  for (const char* path : {"/a/b/C.app", "/a/b/C.app/", "C.app", "C.app///"}) {
    EXPECT_EQ(tks::lastPathComponent(path), "C.app") << path;
  }
  EXPECT_EQ(tks::lastPathComponent("/"), "/");
  EXPECT_EQ(tks::lastPathComponent("//"), "/");
  EXPECT_EQ(tks::lastPathComponent("/a"), "a");
  EXPECT_EQ(tks::lastPathComponent("a"), "a");
  EXPECT_EQ(tks::lastPathComponent(""), "");
}

TEST(FilePath, AnExtensionBeginsAtTheLastDotThatIsNotTheFirstCharacter) {
  EXPECT_EQ(tks::withoutExtension("C.app"), "C");
  EXPECT_EQ(tks::withoutExtension("a.b.app"), "a.b");
  EXPECT_EQ(tks::withoutExtension("C."), "C");
  EXPECT_EQ(tks::withoutExtension(".hidden"), ".hidden");
  EXPECT_EQ(tks::withoutExtension("C"), "C");
  EXPECT_EQ(tks::withoutExtension(""), "");
}

}  // namespace
