#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSURL.h>
#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Unprivileged.h"

// The operations on files with paths that mean something else at a second look: links, NUL bytes, two names of one
// thing.

namespace {

namespace fs = std::filesystem;
using tks::test::contentOf;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::writeFile;

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class PathOperations : public ::testing::Test {
 protected:
  unsigned modeOf(const std::string& path) {
    struct stat facts {};
    return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
  }
  void makePrivate(const std::string& path) { ASSERT_EQ(::chmod(path.c_str(), 0400), 0); }
  /// Lets a test take the superuser's rights away.
  void openToAll() { fs::permissions(folder.path(), fs::perms(0777)); }

  tks::test::FakeHome home;
  tks::test::TemporaryFolder folder;
  LogRecorder log;
  TKSError error;
};

TEST_F(PathOperations, PermissionsAreAddedToWhatALinkLeadsToHasAlready) {
  writeFile(folder / "file", "x");
  ASSERT_EQ(::chmod((folder / "file").c_str(), 0600), 0);
  fs::create_symlink("file", folder / "link");
  TKSUtilBase::addReadAndWritePermissionToFile(folder / "link");
  EXPECT_EQ(modeOf(folder / "file"), 0755u) << "never the 0777 of the link";
}

TEST_F(PathOperations, RemovingALinkLeavesItsTargetAsItIs) {
  writeFile(folder / "file", "x");
  makePrivate(folder / "file");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  openToAll();
  {
    const tks::test::Unprivileged nobody;
    EXPECT_TRUE(TKSUtilBase::removeFileAtPath(folder / "link", &error));
    EXPECT_TRUE(TKSUtilBase::removeFileAtPath(folder / "dangling", &error));
  }
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_FALSE(fs::is_symlink(folder / "dangling")) << "a link to nowhere is something, too";
  EXPECT_EQ(modeOf(folder / "file"), 0400u);
  for (const LogLine& line : log.lines()) EXPECT_EQ(line.level, 2) << line.text;
}

TEST_F(PathOperations, CleaningUpALinkLeavesItsTargetAsItIs) {
  writeFile(folder / "A.app/file", "x");
  ASSERT_EQ(::chmod((folder / "A.app").c_str(), 0500), 0);
  fs::create_directory_symlink("A.app", folder / "link.app");
  openToAll();
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(folder / "link.app", false));
  EXPECT_EQ(modeOf(folder / "A.app"), 0500u);
  EXPECT_EQ(contentOf(folder / "A.app/file"), "x");
}

TEST_F(PathOperations, CopyingOverALinkReplacesTheLinkAlone) {
  writeFile(folder / "new", "new");
  writeFile(folder / "file", "x");
  makePrivate(folder / "file");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "new", folder / "link", &error));
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "new", folder / "dangling", &error));
  EXPECT_EQ(contentOf(folder / "link"), "new");
  EXPECT_EQ(contentOf(folder / "dangling"), "new");
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(contentOf(folder / "file"), "x");
  EXPECT_EQ(modeOf(folder / "file"), 0400u);
}

TEST_F(PathOperations, WithANulAreRefusedAndTouchNothing) {
  writeFile(folder / "x", "precious");
  makePrivate(folder / "x");
  const std::string path = folder / std::string("x\0y", 3);
  EXPECT_FALSE(TKSUtilBase::removeFileAtPath(path, &error));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, true));
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath(path, folder / "copy", &(error = TKSError())));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath(folder / "x", folder / std::string("copy\0y", 6), &(error = TKSError())));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(path, folder / "moved", &(error = TKSError())));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(folder / "x", folder / std::string("m\0y", 3), &(error = TKSError())));
  EXPECT_EQ(error.code, EINVAL);
  TKSUtilBase::addReadAndWritePermissionToFile(path);
  TKSUtilBase::removeQuarantineAttribute(path);
  EXPECT_FALSE(TKSUtilBase::checkTrust(path, &error));
  EXPECT_FALSE(TKSUtilBase::checkTrustForLaunch(path, &error));
  EXPECT_EQ(contentOf(folder / "x"), "precious");
  EXPECT_EQ(modeOf(folder / "x"), 0400u);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST_F(PathOperations, CopyingOntoItselfIsRefused) {
  writeFile(folder / "a/file", "x");
  writeFile(folder / "a/b/inner", "y");
  fs::create_symlink("file", folder / "a/link");
  fs::create_directory_symlink("a", folder / "alias");
  const struct {
    std::string from, to;
  } rows[] = {{folder / "a/file", folder / "a/file"},     {folder / "a/file", folder / "a//./file"},
              {folder / "a/file", folder / "alias/file"}, {folder / "a/file", folder / "a/link"},
              {folder / "a/link", folder / "a/file"},     {folder / "a", folder / "a/"},
              {folder / "a/file", folder / "a"},          {folder / "a/b/inner", folder / "a"},
              {folder / "a/b", folder / "alias/."},       {folder / "a", folder / "a/b"},
              {folder / "alias/b/inner", folder / "a"},   {folder / "a", folder / "alias/b/c"}};
  for (const auto& [from, to] : rows) {
    log.clear();
    error = TKSError();
    EXPECT_FALSE(TKSUtilBase::copyFileAtPath(from, to, &error)) << from << " " << to;
    EXPECT_NE(error, TKSError()) << from << " " << to;
    EXPECT_THAT(log.lines().back().text, HasSubstr("Copy file at path: " + from + " failed Error Domain="));
    EXPECT_EQ(contentOf(folder / "a/file"), "x");
    EXPECT_EQ(contentOf(folder / "a/b/inner"), "y");
    EXPECT_TRUE(fs::is_symlink(folder / "a/link"));
  }
}

TEST_F(PathOperations, CopyingALinkIntoItsFolderAndOverALinkToItsFolderIsNone) {
  writeFile(folder / "a/file", "x");
  fs::create_directory_symlink("a", folder / "link");
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "link", folder / "a/copied", &error)) << error.description();
  EXPECT_TRUE(fs::is_symlink(folder / "a/copied"));
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "a/file", folder / "link", &error)) << error.description();
  EXPECT_EQ(contentOf(folder / "link"), "x");
  EXPECT_EQ(contentOf(folder / "a/file"), "x");
}

TEST_F(PathOperations, RelativePathsMeanTheWorkingFolder) {
  const tks::test::ScopedWorkingFolder here(folder.path());
  writeFile(folder / "-rf", "x");
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath("-rf", "copy", &error)) << error.description();
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath("-rf", "deep/copy", &error));
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath("copy", "deep/moved", &error));
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath("-rf", &error));
  EXPECT_EQ(contentOf(folder / "deep/copy"), "x");
  EXPECT_EQ(contentOf(folder / "deep/moved"), "x");
  EXPECT_FALSE(fs::exists(folder / "-rf"));
}

TEST_F(PathOperations, TheHomeIsNeitherRemovedNorCopiedOver) {
  writeFile(home / "letter", "dear");
  writeFile(folder / "file", "x");
  for (const std::string& path : {home.realHome(), home.realHome() + "/.", home.realHome() + "//"}) {
    EXPECT_FALSE(TKSUtilBase::removeFileAtPath(path, &error)) << path;
    EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, true)) << path;
    EXPECT_FALSE(TKSUtilBase::copyFileAtPath(folder / "file", path, &error)) << path;
  }
  EXPECT_EQ(contentOf(home / "letter"), "dear");
}

TEST_F(PathOperations, ErrorSlotsAreLeftAloneBySuccess) {
  writeFile(folder / "file", "x");
  const TKSError before{"mine", 7, "untouched"};
  error = before;
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "file", folder / "copy", &error));
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(folder / "copy", folder / "moved", &error));
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath(folder / "moved", &error));
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath(folder / "missing", &error));
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "missing", folder / "copy", &error));
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(folder / "missing", folder / "moved", &error));
  EXPECT_EQ(error, before);
}

}  // namespace
