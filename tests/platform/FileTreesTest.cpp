#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/posix/posix_error.h"
#include "tests/platform/FileTreesTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Unprivileged.h"

// What every implementation of the contract promises. On macOS the file manager copies trees, with attributes and
// shared blocks on APFS, follows no link, and names the item that it fails at.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::Exchanging;
using tks::test::FileTrees;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

/// Everything in a tree: path to kind, permissions, and content or target.
std::map<std::string, std::string> facts(const std::string& root) {
  std::map<std::string, std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = entry.path();
    struct stat status {};
    ::lstat(path.c_str(), &status);
    std::string words = std::to_string(status.st_mode);
    if (entry.is_symlink()) words += " -> " + fs::read_symlink(entry.path()).string();
    if (!entry.is_symlink() && entry.is_regular_file()) words += " " + contentOf(path);
    found[path.substr(root.size())] = words;
  }
  return found;
}

/// A folder in which there are all kinds of things.
void makeTree(const std::string& root) {
  writeFile(root + "/Contents/Info.plist", "<plist/>");
  writeFile(root + "/Contents/MacOS/tool", std::string(300000, 't'));
  writeFile(root + "/Contents/Resources/empty", "");
  fs::create_directories(root + "/Contents/Frameworks/None");
  fs::create_symlink("../Info.plist", root + "/Contents/Resources/link");
  fs::create_symlink("/nowhere/at/all", root + "/Contents/Resources/dangling");
  ASSERT_EQ(::mkfifo((root + "/Contents/fifo").c_str(), 0600), 0);
  fs::permissions(root + "/Contents/MacOS/tool", fs::perms(0751));
  fs::permissions(root + "/Contents/Resources/empty", fs::perms(0444));
  fs::permissions(root + "/Contents/Resources", fs::perms(0555));
}

/// A chain of folders that is far deeper than the longest path that system calls take.
void makeDeepTree(const std::string& root, int depth) {
  ASSERT_EQ(::mkdir(root.c_str(), 0700), 0);
  int here = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(::mkdirat(here, "a folder with a name of some length", 0700), 0);
    const int below = ::openat(here, "a folder with a name of some length", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(here);
    here = below;
  }
  ::close(::openat(here, "leaf", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ::close(here);
}

bool anotherVolume(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 && first.st_dev != second.st_dev;
}

TEST_F(FileTrees, AFileALinkAndAnEmptyFolderAreRemoved) {
  writeFile(folder / "file", "x");
  fs::create_directory(folder / "sub");
  fs::create_symlink("file", folder / "link");
  fs::create_directory_symlink("sub", folder / "folderLink");
  EXPECT_TRUE(files().remove(folder / "link", &error));
  EXPECT_TRUE(files().remove(folder / "folderLink/", &error)) << "a closing slash does not make it the folder";
  EXPECT_TRUE(fs::exists(folder / "file"));
  EXPECT_TRUE(fs::exists(folder / "sub"));
  EXPECT_TRUE(files().remove(folder / "file", &error));
  EXPECT_TRUE(files().remove(folder / "sub/", &error));
  EXPECT_TRUE(fs::is_empty(folder.path()));
  EXPECT_EQ(error, TKSError());
}

TEST_F(FileTrees, AWholeTreeIsRemovedAndNothingThatItsLinksPointTo) {
  writeFile(folder / "outside/precious", "x");
  makeTree(folder / "tree");
  fs::create_directory_symlink(folder / "outside", folder / "tree/Contents/MacOS/outside");
  EXPECT_TRUE(files().remove(folder / "tree", &error)) << error.description();
  EXPECT_FALSE(fs::exists(folder / "tree"));
  EXPECT_TRUE(fs::exists(folder / "outside/precious"));
}

TEST_F(FileTrees, RemovingWhatIsNotThereNamesTheReason) {
  EXPECT_FALSE(files().remove(folder / "missing", &error));
  EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", ENOENT,
                             "remove \"" + (folder / "missing") + "\": No such file or directory"}));
}

TEST_F(FileTrees, ThePlaceOfAVolumeIsNotEmptiedInVain) {
  const tks::test::SmallVolume volume("64k");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  writeFile(volume / "precious", "x");
  EXPECT_FALSE(files().remove(volume.path(), &error));
  EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", EBUSY,
                             "remove \"" + volume.path() + "\": " + tks::posix::reasonText(EBUSY)}));
  EXPECT_EQ(contentOf(volume / "precious"), "x");
}

/// With a root of its own, so that no mistake can do harm: 0 when nothing of it was removed.
int triesToRemoveItsRoot(const tks::test::Arguments& arguments) {
  if (::chroot(arguments.at(0).c_str()) != 0 || ::chdir("/") != 0) return 77;
  struct stat facts {};
  if (::stat("/precious", &facts) != 0) return 78;
  for (const char* root : {"/", "//", "/."}) {
    if (files().remove(root, nullptr)) return 1;
    if (::stat("/precious", &facts) != 0) return 2;
  }
  return 0;
}
/// Ends at once: a sanitizer that looks for leaks at the end would miss the files it needs for that.
int removesItsRoot(const tks::test::Arguments& arguments) { ::_exit(triesToRemoveItsRoot(arguments)); }
const tks::test::ChildRole kRemovesItsRoot("removes-its-root", removesItsRoot);

TEST_F(FileTrees, TheRootIsNeverEmptied) {
  writeFile(folder / "precious", "x");
  tks::test::ChildProcess child = tks::test::ChildProcess::inRole("removes-its-root", {folder.path()});
  const int result = child.wait();
  if (result == 77) GTEST_SKIP() << "needs the right to change the root";
  EXPECT_EQ(result, 0);
}

TEST_F(FileTrees, RemovingStopsAtWhatMayNotBeRemovedAndNamesIt) {
  writeFile(folder / "tree/closed/file", "x");
  fs::permissions(folder.path(), fs::perms(0777));
  fs::permissions(folder / "tree", fs::perms(0777));
  fs::permissions(folder / "tree/closed", fs::perms(0555));
  {
    const tks::test::Unprivileged nobody;
    EXPECT_FALSE(files().remove(folder / "tree", &error));
  }
  EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", EACCES,
                             "remove \"" + (folder / "tree/closed/file") + "\": Permission denied"}));
  EXPECT_TRUE(fs::exists(folder / "tree/closed/file"));
}

TEST_F(FileTrees, ATreeDeeperThanAnyPathIsCopiedAndRemoved) {
  ASSERT_NO_FATAL_FAILURE(makeDeepTree(folder / "deep", 400));
  EXPECT_TRUE(files().copy(folder / "deep", folder / "copy", &error)) << error.description();
  EXPECT_TRUE(files().remove(folder / "deep", &error)) << error.description();
  EXPECT_TRUE(files().remove(folder / "copy", &error)) << error.description();
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(FileTrees, ALinkPutInPlaceOfAFolderWhileItIsRemovedIsNotFollowed) {
  fs::create_directories(folder / "victim");
  for (int i = 0; i < 20; ++i) writeFile(folder / ("victim/file" + std::to_string(i)), "precious");
  std::atomic<bool> done = false;
  std::thread swapper([&] {
    fs::create_directory_symlink(folder / "victim", folder / "link");
    while (!done) {
      ::renameat2(AT_FDCWD, (folder / "link").c_str(), AT_FDCWD, (folder / "tree/sub").c_str(), RENAME_EXCHANGE);
    }
  });
  for (int round = 0; round < 300; ++round) {
    for (int i = 0; i < 5; ++i) writeFile(folder / ("tree/sub/" + std::to_string(i)), "x");
    files().remove(folder / "tree", nullptr);  // may well fail, but not destroy anything else
    std::error_code ignored;
    if (fs::is_symlink(folder / "tree/sub")) fs::remove(folder / "tree/sub", ignored);
  }
  done = true;
  swapper.join();
  // What the loop itself wrote through the link may be there too.
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(contentOf(folder / ("victim/file" + std::to_string(i))), "precious");
  }
}

TEST_F(FileTrees, ACopyHasContentKindsPermissionsAndTimes) {
  makeTree(folder / "tree");
  const timespec times[] = {{1000000000, 0}, {1111111111, 222000000}};
  ::utimensat(AT_FDCWD, (folder / "tree/Contents/Info.plist").c_str(), times, 0);
  ::utimensat(AT_FDCWD, (folder / "tree/Contents").c_str(), times, 0);
  EXPECT_TRUE(files().copy(folder / "tree", folder / "copy", &error)) << error.description();
  EXPECT_EQ(facts(folder / "copy"), facts(folder / "tree"));
  for (const char* item : {"copy/Contents/Info.plist", "copy/Contents"}) {
    struct stat status {};
    ASSERT_EQ(::stat((folder / item).c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1111111111);
    EXPECT_EQ(status.st_mtim.tv_nsec, 222000000);
  }
  fs::permissions(folder / "copy/Contents/Resources", fs::perms(0755));
}

TEST_F(FileTrees, ACopyHasTheExtendedAttributes) {
  writeFile(folder / "tree/file", "x");
  const std::string path = folder / "tree/file";
  if (::setxattr(path.c_str(), "user.com.example.note", "abc", 3, 0) != 0) GTEST_SKIP() << "no attributes here";
  ::setxattr((folder / "tree").c_str(), "user.com.example.folder", "def", 3, 0);
  EXPECT_TRUE(files().copy(folder / "tree", folder / "copy", &error));
  char value[8] = {};
  EXPECT_EQ(::getxattr((folder / "copy/file").c_str(), "user.com.example.note", value, sizeof value), 3);
  EXPECT_STREQ(value, "abc");
  EXPECT_EQ(::getxattr((folder / "copy").c_str(), "user.com.example.folder", value, sizeof value), 3);
  EXPECT_STREQ(value, "def");
}

TEST_F(FileTrees, ALinkIsCopiedAsALink) {
  fs::create_symlink("nowhere", folder / "link");
  EXPECT_TRUE(files().copy(folder / "link", folder / "copy", &error));
  EXPECT_EQ(fs::read_symlink(folder / "copy"), "nowhere");
}

TEST_F(FileTrees, NothingIsCopiedOverWhatExists) {
  writeFile(folder / "file", "new");
  writeFile(folder / "there", "old");
  fs::create_symlink("nowhere", folder / "dangling");
  for (const char* target : {"there", "dangling"}) {
    EXPECT_FALSE(files().copy(folder / "file", folder / target, &error));
    EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", EEXIST, "copy to \"" + (folder / target) + "\": File exists"}));
  }
  EXPECT_EQ(contentOf(folder / "there"), "old");
  EXPECT_FALSE(files().copy(folder / "missing", folder / "new", &error));
  EXPECT_EQ(error.localizedDescription, "copy \"" + (folder / "missing") + "\": No such file or directory");
}

TEST_F(FileTrees, AFolderIsNotCopiedIntoItself) {
  writeFile(folder / "tree/file", "x");
  EXPECT_FALSE(files().copy(folder / "tree", folder / "tree/copy", &error));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(fs::exists(folder / "tree/copy"));
  EXPECT_TRUE(fs::exists(folder / "tree/file"));
}

TEST_F(FileTrees, AFailedCopyLeavesNothing) {
  makeTree(folder / "tree");
  const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = folder / "tree/Contents/socket";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(server);
  EXPECT_FALSE(files().copy(folder / "tree", folder / "copy", &error));
  EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", ENOTSUP, "copy \"" + path + "\": Operation not supported"}));
  EXPECT_FALSE(fs::exists(folder / "copy"));
}

TEST_F(FileTrees, MovingRenames) {
  makeTree(folder / "tree");
  const auto before = facts(folder / "tree");
  EXPECT_TRUE(files().move(folder / "tree", folder / "moved", &error));
  EXPECT_EQ(facts(folder / "moved"), before);
  EXPECT_FALSE(fs::exists(folder / "tree"));
  fs::permissions(folder / "moved/Contents/Resources", fs::perms(0755));
}

TEST_F(FileTrees, NothingIsMovedOverWhatExists) { expectNothingIsMovedOverWhatExists(); }

TEST_F(FileTrees, MovingWhatIsNotThereNamesTheSource) {
  EXPECT_FALSE(files().move(folder / "missing", folder / "new", &error));
  EXPECT_EQ(error.localizedDescription, "move \"" + (folder / "missing") + "\": No such file or directory");
}

TEST_F(Exchanging, GivesEitherThePlaceOfTheOther) { expectExchanged(); }

TEST_F(Exchanging, WithWhatIsNotThereLeavesTheOther) {
  EXPECT_FALSE(files().exchange(folder / "new", folder / "missing", &error));
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_EQ(contentOf(folder / "new/file"), "new");
}

class OtherVolume : public FileTrees {
 protected:
  void SetUp() override {
    if (!anotherVolume(folder.path(), "/dev/shm")) GTEST_SKIP() << "/dev/shm is no volume of its own";
    other = std::make_unique<TemporaryFolder>("/dev/shm");
  }
  std::unique_ptr<TemporaryFolder> other;
};

TEST_F(OtherVolume, ATreeIsMovedThereWhole) {
  makeTree(folder / "tree");
  const auto before = facts(folder / "tree");
  EXPECT_TRUE(files().move(folder / "tree", *other / "tree", &error)) << error.description();
  EXPECT_EQ(facts(*other / "tree"), before);
  EXPECT_FALSE(fs::exists(folder / "tree"));
  fs::permissions(*other / "tree/Contents/Resources", fs::perms(0755));
}

TEST_F(OtherVolume, AFileAndALinkAreMovedThere) {
  writeFile(folder / "file", "x");
  fs::create_symlink("nowhere", folder / "link");
  EXPECT_TRUE(files().move(folder / "file", *other / "file", &error));
  EXPECT_TRUE(files().move(folder / "link", *other / "link", &error)) << error.description();
  EXPECT_EQ(contentOf(*other / "file"), "x");
  EXPECT_EQ(fs::read_symlink(*other / "link"), "nowhere");
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(OtherVolume, NothingIsMovedOverWhatExistsThere) {
  writeFile(folder / "tree/file", "new");
  writeFile(*other / "tree/file", "old");
  EXPECT_FALSE(files().move(folder / "tree", *other / "tree", &error));
  EXPECT_EQ(error.code, EEXIST);
  EXPECT_EQ(contentOf(folder / "tree/file"), "new");
  EXPECT_EQ(contentOf(*other / "tree/file"), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(other->path()), fs::directory_iterator()), 1)
      << "a hidden copy is left";
}

TEST_F(OtherVolume, WhatCannotBeTakenAwayIsNotCopied) {
  writeFile(folder / "closed/tree/file", "x");
  fs::permissions(folder.path(), fs::perms(0755));
  fs::permissions(folder / "closed", fs::perms(0555));
  fs::permissions(other->path(), fs::perms(0777));
  {
    const tks::test::Unprivileged nobody;
    EXPECT_FALSE(files().move(folder / "closed/tree", *other / "tree", &error));
  }
  EXPECT_EQ(error.code, EACCES);
  EXPECT_TRUE(fs::is_empty(other->path()));
  EXPECT_TRUE(fs::exists(folder / "closed/tree/file"));
}

TEST_F(OtherVolume, AFailedCopyLeavesTheSourceAndNothingThere) {
  writeFile(folder / "tree/a", "x");
  ASSERT_EQ(::mkfifo((folder / "tree/fifo").c_str(), 0600), 0);
  writeFile(folder / "tree/secret", "x");
  fs::permissions(folder.path(), fs::perms(0777));
  fs::permissions(folder / "tree", fs::perms(0777));
  fs::permissions(folder / "tree/secret", fs::perms(0000));
  fs::permissions(other->path(), fs::perms(0777));
  {
    const tks::test::Unprivileged nobody;
    EXPECT_FALSE(files().move(folder / "tree", *other / "tree", &error));
  }
  EXPECT_EQ(error.localizedDescription, "copy \"" + (folder / "tree/secret") + "\": Permission denied");
  EXPECT_TRUE(fs::is_empty(other->path()));
  EXPECT_TRUE(fs::exists(folder / "tree/a"));
}

}  // namespace
