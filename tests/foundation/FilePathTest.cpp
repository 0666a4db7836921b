#include "foundation/values/FilePaths.h"

#include <gtest/gtest.h>

namespace {

/// A path and its parts, as every caller needs them.
struct Parts {
  const char* path;
  const char* folder;
  const char* folderPart;  ///< as it stands, with its slash
  const char* name;
  const char* withoutClosingSlashes;
};
constexpr Parts kPaths[] = {
    {"/a/b/C.app", "/a/b", "/a/b/", "C.app", "/a/b/C.app"},
    {"/a/b/C.app/", "/a/b", "/a/b/", "C.app", "/a/b/C.app"},
    {"/a//C.app", "/a", "/a//", "C.app", "/a//C.app"},
    {"/C.app", "/", "/", "C.app", "/C.app"},
    {"a/b", "a", "a/", "b", "a/b"},
    {"a/..", "a", "a/", "..", "a/.."},
    {"./-a.zip", ".", "./", "-a.zip", "./-a.zip"},
    {"C.app", ".", "", "C.app", "C.app"},  // which lies in the working folder
    {"C.app///", ".", "", "C.app", "C.app"},
    {"/", "/", "/", "/", "/"},
    {"//", "/", "/", "/", "/"},
    {"", "", "", "", ""},
};

TEST(FilePath, APathHasAFolderAndAName) {
  for (const Parts& parts : kPaths) {
    EXPECT_EQ(tks::folderOf(parts.path), parts.folder) << parts.path;
    EXPECT_EQ(tks::folderPart(parts.path), parts.folderPart) << parts.path;
    EXPECT_EQ(tks::lastPathComponent(parts.path), parts.name) << parts.path;
    EXPECT_EQ(tks::withoutClosingSlashes(parts.path), parts.withoutClosingSlashes) << parts.path;
  }
}

TEST(FilePath, TwoPartsAreJoinedByOneSlash) {
  EXPECT_EQ(tks::joinedPath("/a/b", "c"), "/a/b/c");
  EXPECT_EQ(tks::joinedPath("/a/b//", "c"), "/a/b/c");
  EXPECT_EQ(tks::joinedPath("/", "c"), "/c");
  EXPECT_EQ(tks::joinedPath("//", "c"), "/c");
  EXPECT_EQ(tks::joinedPath("", "c"), "c");
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
