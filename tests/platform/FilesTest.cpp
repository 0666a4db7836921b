#include "platform/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Unprivileged.h"

// What every implementation of the contract promises. On macOS these are POSIX calls; renamex_np moves and exchanges in
// one step on APFS, and the file manager reads attributes. On most of its volumes names that differ in case alone are
// one, and they come back as they were written.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::contentOf;
using tks::test::writeFile;

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::span<const std::uint8_t> bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string text(const std::optional<TKSData>& data) {
  return data ? std::string(data->begin(), data->end()) : "nothing";
}

unsigned modeOf(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

class Files : public ::testing::Test {
 protected:
  std::vector<std::string> names(const std::string& path) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(path)) found.push_back(entry.path().filename());
    return found;
  }

  void expectError(std::int64_t code, const std::string& description) {
    EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", code, description}));
  }

  tks::test::TemporaryFolder folder;
  TKSError error;
};

TEST_F(Files, ExistenceIsAskedOfWhatALinkPointsTo) {
  writeFile(folder / "file", "x");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  EXPECT_TRUE(files().exists(folder.path()));
  EXPECT_TRUE(files().exists(folder / "link"));
  EXPECT_FALSE(files().exists(folder / "dangling"));
  EXPECT_FALSE(files().exists(folder / "missing"));
  EXPECT_FALSE(files().exists(""));
}

TEST_F(Files, OnlyAFolderOrALinkToOneIsADirectory) {
  writeFile(folder / "file", "x");
  fs::create_directory_symlink(folder.path(), folder / "link");
  EXPECT_TRUE(files().isDirectory(folder.path()));
  EXPECT_TRUE(files().isDirectory(folder / "link"));
  EXPECT_FALSE(files().isDirectory(folder / "file"));
  EXPECT_FALSE(files().isDirectory(folder / "missing"));
}

TEST_F(Files, AnExecutableFileIsAPlainFileWithTheRight) {
  writeFile(folder / "tool", "x");
  writeFile(folder / "text", "x");
  fs::permissions(folder / "tool", fs::perms(0755));
  fs::permissions(folder / "text", fs::perms(0644));
  fs::create_symlink("tool", folder / "link");
  EXPECT_TRUE(files().isExecutableFile(folder / "tool"));
  EXPECT_TRUE(files().isExecutableFile(folder / "link"));
  EXPECT_FALSE(files().isExecutableFile(folder / "text"));
  EXPECT_FALSE(files().isExecutableFile(folder.path()))
      << "a folder has the right to be searched, which is another one";
  EXPECT_FALSE(files().isExecutableFile(folder / "missing"));
}

TEST_F(Files, WritabilityIsThatOfThisUser) {
  writeFile(folder / "open", "x");
  writeFile(folder / "closed", "x");
  fs::permissions(folder.path(), fs::perms(0755));
  fs::permissions(folder / "open", fs::perms(0666));
  fs::permissions(folder / "closed", fs::perms(0444));
  const tks::test::Unprivileged nobody;
  EXPECT_TRUE(files().isWritable(folder / "open"));
  EXPECT_FALSE(files().isWritable(folder / "closed"));
  EXPECT_FALSE(files().isWritable(folder / "missing"));
}

TEST_F(Files, ListingGivesTheNamesWithoutTheTwoDots) {
  writeFile(folder / ".hidden", "x");
  writeFile(folder / "sub/inner", "x");
  fs::create_symlink("nowhere", folder / "dangling");
  EXPECT_THAT(files().list(folder.path(), &error).value(), UnorderedElementsAre(".hidden", "sub", "dangling"));
  EXPECT_EQ(error, TKSError());
}

TEST_F(Files, ListingWhatIsNoFolderNamesTheReason) {
  const std::string path = folder / "missing";
  EXPECT_FALSE(files().list(path, &error));
  expectError(ENOENT, "list \"" + path + "\": No such file or directory");
  writeFile(path, "x");
  EXPECT_FALSE(files().list(path, &error));
  expectError(ENOTDIR, "list \"" + path + "\": Not a directory");
  EXPECT_FALSE(files().list(path, nullptr));
}

TEST_F(Files, AFolderIsMadeWithAllFoldersAboveIt) {
  EXPECT_TRUE(files().createDirectory(folder / "a/b/c", 0700, &error));
  EXPECT_EQ(modeOf(folder / "a"), 0700u);
  EXPECT_EQ(modeOf(folder / "a/b/c"), 0700u);
  EXPECT_TRUE(files().createDirectory(folder / "a/b/c/", 0755, &error)) << "it is there already";
  EXPECT_EQ(modeOf(folder / "a/b/c"), 0700u);
  EXPECT_TRUE(files().createDirectory(folder / "a//d/", 0700, &error));
  EXPECT_EQ(error, TKSError());
}

TEST_F(Files, AFolderIsNotMadeWhereAFileStands) {
  writeFile(folder / "file", "x");
  EXPECT_FALSE(files().createDirectory(folder / "file", 0755, &error));
  expectError(EEXIST, "create the folder \"" + (folder / "file") + "\": File exists");
  EXPECT_FALSE(files().createDirectory(folder / "file/below", 0755, &error));
  EXPECT_EQ(error.code, ENOTDIR);
  EXPECT_FALSE(files().createDirectory("", 0755, &error));
  EXPECT_EQ(error.code, ENOENT);
}

TEST_F(Files, APrivateFolderIsMadeWithAllFoldersAboveIt) {
  EXPECT_TRUE(files().usePrivateDirectory(folder / "a/b", &error)) << error.description();
  EXPECT_EQ(modeOf(folder / "a/b"), 0700u);
}

TEST_F(Files, AFolderOfOnesOwnIsClosedToOthersAndKeepsWhatIsInIt) {
  writeFile(folder / "a/file", "x");
  ASSERT_EQ(::chmod((folder / "a").c_str(), 0777), 0);
  EXPECT_TRUE(files().usePrivateDirectory(folder / "a/", &error)) << error.description();
  EXPECT_EQ(modeOf(folder / "a"), 0700u);
  EXPECT_EQ(contentOf(folder / "a/file"), "x");
}

TEST_F(Files, AFolderOfAnotherUserIsNotPrivate) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  fs::create_directory(folder / "a");
  ASSERT_EQ(::chown((folder / "a").c_str(), 65534, 65534), 0);
  EXPECT_FALSE(files().usePrivateDirectory(folder / "a", &error));
  expectError(EPERM, "use the folder of another user \"" + (folder / "a") + "\": Operation not permitted");
}

TEST_F(Files, ALinkToAFolderIsNotPrivate) {
  fs::create_directory(folder / "real");
  fs::create_directory_symlink("real", folder / "link");
  EXPECT_FALSE(files().usePrivateDirectory(folder / "link", &error));
  EXPECT_FALSE(files().usePrivateDirectory(folder / "link/", &error));
  EXPECT_EQ(modeOf(folder / "real"), 0755u);
  writeFile(folder / "file", "x");
  EXPECT_FALSE(files().usePrivateDirectory(folder / "file", &error));
}

TEST_F(Files, AFileIsMadeOnlyWhereNothingStands) {
  EXPECT_TRUE(files().createFile(folder / "new", 0600, &error));
  EXPECT_EQ(modeOf(folder / "new"), 0600u);
  EXPECT_EQ(contentOf(folder / "new"), "");
  EXPECT_FALSE(files().createFile(folder / "new", 0600, &error));
  expectError(EEXIST, "create \"" + (folder / "new") + "\": File exists");
  fs::create_symlink(folder / "elsewhere", folder / "link");
  EXPECT_FALSE(files().createFile(folder / "link", 0600, &error));
  EXPECT_FALSE(fs::exists(folder / "elsewhere"));
}

TEST_F(Files, ReadingGivesTheWholeContent) {
  const std::string content = std::string(300000, 'a') + '\0' + "end";
  writeFile(folder / "file", content);
  EXPECT_EQ(text(files().read(folder / "file", 1 << 20, &error)), content);
  EXPECT_EQ(text(files().read(folder / "file", content.size(), &error)), content);
  writeFile(folder / "empty", "");
  EXPECT_EQ(text(files().read(folder / "empty", 0, &error)), "");
  EXPECT_EQ(error, TKSError());
}

TEST_F(Files, ReadingBeyondTheLimitIsAnError) {
  writeFile(folder / "file", "12345");
  EXPECT_FALSE(files().read(folder / "file", 4, &error));
  expectError(EFBIG, "read \"" + (folder / "file") + "\": File too large");
}

TEST_F(Files, ReadingWhatIsNoRegularFileFailsAtOnce) {
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(files().read(folder / "fifo", 100, &error));
  expectError(EINVAL, "read \"" + (folder / "fifo") + "\": Invalid argument");
  EXPECT_FALSE(files().read(folder.path(), 100, &error));
  EXPECT_EQ(error.code, EISDIR);
  EXPECT_FALSE(files().read("/dev/zero", 100, &error));
  EXPECT_FALSE(files().read(folder / "missing", 100, &error));
  expectError(ENOENT, "open \"" + (folder / "missing") + "\": No such file or directory");
}

TEST_F(Files, WritingReplacesTheContentAndKeepsThePermissions) {
  EXPECT_TRUE(files().writeAtomically(folder / "file", bytes("old"), &error));
  EXPECT_EQ(contentOf(folder / "file"), "old");
  fs::permissions(folder / "file", fs::perms(0640));
  EXPECT_TRUE(files().writeAtomically(folder / "file", bytes("new content"), &error));
  EXPECT_EQ(contentOf(folder / "file"), "new content");
  EXPECT_EQ(modeOf(folder / "file"), 0640u);
  EXPECT_THAT(names(folder.path()), UnorderedElementsAre("file"));
}

TEST_F(Files, ANewFileGetsThePermissionsThatTheUmaskLeaves) {
  const mode_t before = ::umask(027);
  EXPECT_TRUE(files().writeAtomically(folder / "file", bytes("x"), &error));
  ::umask(before);
  EXPECT_EQ(modeOf(folder / "file"), 0640u);
}

TEST_F(Files, WritingRemovesWhatEarlierWritersOfTheFileLeft) {
  constexpr const char* kLeft[] = {".list.999999999-3.tmp", ".list.999999998-17.tmp"};
  const std::string kept[] = {".list." + std::to_string(::getppid()) + "-1.tmp",
                              ".list." + std::to_string(::getpid()) + "-1.tmp",
                              ".other.999999999-1.tmp",
                              ".list.999999999-.tmp",
                              ".list.999999999-1x.tmp",
                              ".list.x-1.tmp",
                              "list.999999999-1.tmp",
                              ".list.999999999-1",
                              ".list2.999999999-1.tmp"};
  for (const char* name : kLeft) writeFile(folder / name, "half");
  for (const std::string& name : kept) writeFile(folder / name, "x");
  fs::create_directory(folder / ".list.999999999-9.tmp");
  // Another machine's writer that shares the folder.
  writeFile(folder / ".list.999999997-1.tmp", "being written");
  const int other = ::open((folder / ".list.999999997-1.tmp").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(other, LOCK_EX), 0);
  EXPECT_TRUE(files().writeAtomically(folder / "list", bytes("new"), &error));
  ::close(other);
  for (const char* name : kLeft) EXPECT_FALSE(fs::exists(folder / name)) << name;
  for (const std::string& name : kept) EXPECT_TRUE(fs::exists(folder / name)) << name;
  EXPECT_TRUE(fs::exists(folder / ".list.999999999-9.tmp")) << "no writer makes a folder";
  EXPECT_TRUE(fs::exists(folder / ".list.999999997-1.tmp"));
  EXPECT_EQ(contentOf(folder / "list"), "new");
}

TEST_F(Files, WritingOverALinkReplacesTheLinkAndNotWhatItPointsTo) {
  writeFile(folder / "target", "precious");
  fs::create_symlink("target", folder / "link");
  EXPECT_TRUE(files().writeAtomically(folder / "link", bytes("x"), &error));
  EXPECT_EQ(contentOf(folder / "target"), "precious");
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(contentOf(folder / "link"), "x");
}

TEST_F(Files, AFailedWriteLeavesNothingBehind) {
  EXPECT_FALSE(files().writeAtomically(folder / "missing/file", bytes("x"), &error));
  EXPECT_EQ(error.code, ENOENT);
  fs::create_directories(folder / "sub/inner");
  EXPECT_FALSE(files().writeAtomically(folder / "sub", bytes("x"), &error));
  EXPECT_EQ(error.code, EISDIR);
  EXPECT_THAT(names(folder.path()), UnorderedElementsAre("sub"));
}

TEST_F(Files, AVeryLongNameCanBeWrittenToo) {
  const std::string path = folder / std::string(255, 'n');
  EXPECT_TRUE(files().writeAtomically(path, bytes("x"), &error)) << error.description();
  EXPECT_EQ(contentOf(path), "x");
}

TEST_F(Files, AWriterThatIsKilledLeavesOneContentOrTheOther) {
  const std::string path = folder / "file";
  const std::string first(100000, 'a');
  const std::string second(200000, 'b');
  writeFile(path, first);
  for (int round = 0; round < 20; ++round) {
    const pid_t writer = ::fork();
    if (writer == 0) {
      for (int i = 0;; ++i) files().writeAtomically(path, bytes(i % 2 == 0 ? second : first), nullptr);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(round));
    ::kill(writer, SIGKILL);
    ::waitpid(writer, nullptr, 0);
    const std::string content = contentOf(path);
    ASSERT_TRUE(content == first || content == second) << content.size() << " bytes";
  }
}

TEST_F(Files, AFullDiskLeavesTheOldContentAndNothingBesideIt) {
  const tks::test::SmallVolume volume("64k");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  const std::string path = volume / "file";
  ASSERT_TRUE(files().writeAtomically(path, bytes("old"), &error));
  EXPECT_FALSE(files().writeAtomically(path, bytes(std::string(100'000, 'x')), &error));
  expectError(ENOSPC, "write \"" + path + "\": No space left on device");
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_THAT(names(volume.path()), UnorderedElementsAre("file"));
}

TEST_F(Files, AttributesAreThoseOfALinkItself) {
  writeFile(folder / "file", "x");
  fs::permissions(folder / "file", fs::perms(04751));
  fs::create_symlink("file", folder / "link");
  EXPECT_EQ(files().attributes(folder / "file", &error)->permissions, 04751u);
  struct stat link {};
  ASSERT_EQ(::lstat((folder / "link").c_str(), &link), 0);
  EXPECT_EQ(files().attributes(folder / "link", &error)->permissions, link.st_mode & 07777u);
  EXPECT_FALSE(files().attributes(folder / "missing", &error));
  expectError(ENOENT, "read the attributes of \"" + (folder / "missing") + "\": No such file or directory");
}

TEST_F(Files, PermissionsAreSetOnWhatALinkPointsTo) {
  writeFile(folder / "file", "x");
  fs::create_symlink("file", folder / "link");
  EXPECT_TRUE(files().setPermissions(folder / "link", 0700, &error));
  EXPECT_EQ(modeOf(folder / "file"), 0700u);
  EXPECT_FALSE(files().setPermissions(folder / "missing", 0700, &error));
  expectError(ENOENT, "set the permissions of \"" + (folder / "missing") + "\": No such file or directory");
}

TEST_F(Files, AVolumeTellsItsSpace) {
  const auto space = files().volumeSpace(folder.path(), &error);
  ASSERT_TRUE(space);
  EXPECT_GT(space->totalBytes, 0u);
  EXPECT_LE(space->freeBytes, space->totalBytes);
  EXPECT_TRUE(files().volumeSpace(folder / "missing", &error)) << "it would lie on the volume of the folder above";
  EXPECT_FALSE(files().volumeSpace(folder / "missing/below", &error));
  expectError(ENOENT, "read the free space of \"" + (folder / "missing/below") + "\": No such file or directory");
}

TEST_F(Files, NoCallLeavesADescriptorOpen) {
  writeFile(folder / "file", "x");
  const std::set<int> before = tks::test::openDescriptors();
  files().list(folder.path(), nullptr);
  files().list(folder / "missing", nullptr);
  files().createFile(folder / "new", 0600, nullptr);
  files().read(folder / "file", 100, nullptr);
  files().read(folder / "file", 0, nullptr);
  files().writeAtomically(folder / "file", bytes("y"), nullptr);
  files().writeAtomically(folder / "missing/file", bytes("y"), nullptr);
  files().copy(folder / "file", folder / "copy", nullptr);
  files().copy(folder / "file", folder / "copy", nullptr);
  files().move(folder / "copy", folder / "moved", nullptr);
  files().attributes(folder / "file", nullptr);
  files().remove(folder.path() + "/moved", nullptr);
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

TEST_F(Files, ReasonsAreInEnglishWhateverTheLocale) {
  EXPECT_FALSE(files().remove(folder / "missing", &error));
  EXPECT_EQ(error.description(), "Error Domain=NSPOSIXErrorDomain Code=2 \"remove \"" + (folder / "missing") +
                                     "\": No such file or directory\"");
}

}  // namespace
