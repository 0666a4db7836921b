#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "platform/posix/posix_error.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises. Both systems lock by flock, whose locks belong to the open file:
// on macOS too, for folders as for files, on APFS and HFS+; a volume without locks (some of the network) says so by an
// error.

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using tks::platform::files;
using tks::test::writeFile;

/// Holds the lock of its first argument until the file of its second one is there.
int holdLock(const tks::test::Arguments& arguments) {
  const auto lock = files().lock(arguments[0], seconds(30), nullptr);
  if (!lock) return 1;
  writeFile(arguments[1] + ".held", "x");
  return tks::test::waitUntil([&] { return fs::exists(arguments[1]); }, seconds(60)) ? 0 : 2;
}
const tks::test::ChildRole role("hold-lock", holdLock);

class FileLocks : public ::testing::Test {
 protected:
  tks::test::ChildProcess anotherHolder(const std::string& path) {
    auto holder = tks::test::ChildProcess::inRole("hold-lock", {path, folder / "end"});
    EXPECT_TRUE(tks::test::waitUntil([&] { return fs::exists(folder / "end.held"); }, seconds(30)));
    return holder;
  }
  tks::test::TemporaryFolder folder;
  TKSError error;
};

TEST_F(FileLocks, KeepAnotherPartOfThisProcessOut) {
  const std::string path = folder / "lock";
  auto first = files().lock(path, seconds(30), &error);
  ASSERT_TRUE(first) << error.description();
  std::thread([&] { EXPECT_FALSE(files().lock(path, milliseconds(0), &error)); }).join();
  EXPECT_EQ(error.localizedDescription, "lock \"" + path + "\": " + tks::posix::reasonText(ETIMEDOUT));
  first.reset();
  EXPECT_TRUE(files().lock(path, milliseconds(0), &error));
}

TEST_F(FileLocks, AreRefusedAtOnceToTheThreadThatHoldsThem) {
  fs::create_directory(folder / "place");
  auto first = files().lock(folder / "place", seconds(30), &error);
  ASSERT_TRUE(first) << error.description();
  // Waiting for itself would last an hour.
  EXPECT_FALSE(files().lock(folder / "place/../place", std::chrono::hours(1), &error));
  EXPECT_EQ(error.code, EDEADLK);
  EXPECT_EQ(error.reason, TKSErrorReason::busy);
  first.reset();
  EXPECT_TRUE(files().lock(folder / "place", milliseconds(0), &error));
}

TEST_F(FileLocks, KeepAnotherProcessOutUntilItGoes) {
  const std::string path = folder / "lock";
  auto holder = anotherHolder(path);
  EXPECT_FALSE(files().lock(path, milliseconds(50), &error));
  writeFile(folder / "end", "x");
  EXPECT_TRUE(files().lock(path, seconds(30), &error)) << error.description();
  EXPECT_EQ(holder.wait(), 0);
}

TEST_F(FileLocks, OfAProcessThatWasKilledAreFree) {
  const std::string path = folder / "lock";
  { const auto killed = anotherHolder(path); }
  EXPECT_TRUE(files().lock(path, seconds(30), &error)) << error.description();
}

TEST_F(FileLocks, AreFreeOnceTheyAreGoneAlsoWhereAForkedProcessStillHasTheFileOpen) {
  const std::string path = folder / "lock";
  auto held = files().lock(path, seconds(30), &error);
  ASSERT_TRUE(held) << error.description();
  const pid_t forked = ::fork();
  if (forked == 0) {
    ::pause();
    ::_exit(0);
  }
  ASSERT_GT(forked, 0);
  held.reset();
  EXPECT_TRUE(files().lock(path, milliseconds(0), &error)) << error.description();
  ::kill(forked, SIGKILL);
  ::waitpid(forked, nullptr, 0);
}

TEST_F(FileLocks, NeverStandInThePlaceOfAStandardHandle) {
  TKS_IN_FRESH_PROCESS();
  for (const int handle : {STDIN_FILENO, STDOUT_FILENO}) ::close(handle);
  const auto held = files().lock(folder / "lock", seconds(30), &error);
  EXPECT_TRUE(held) << error.description();
  for (const int handle : {STDIN_FILENO, STDOUT_FILENO}) EXPECT_EQ(::fcntl(handle, F_GETFD), -1) << handle;
}

TEST_F(FileLocks, OfAFolderLeaveNothingInIt) {
  fs::create_directory(folder / "place");
  const auto held = files().lock(folder / "place", seconds(30), &error);
  ASSERT_TRUE(held) << error.description();
  EXPECT_FALSE(files().lock(folder / "place", milliseconds(0), &error));
  EXPECT_TRUE(fs::is_empty(folder / "place"));
}

TEST_F(FileLocks, OfAFolderAreToBeHadThroughALink) {
  fs::create_directory(folder / "place");
  fs::create_directory_symlink("place", folder / "link");
  const auto held = files().lock(folder / "link", seconds(30), &error);
  ASSERT_TRUE(held) << error.description();
  EXPECT_FALSE(files().lock(folder / "place", milliseconds(0), &error));
}

TEST_F(FileLocks, FollowNoLinkToAFile) {
  writeFile(folder / "file", "x");
  fs::create_symlink("file", folder / "link");
  EXPECT_FALSE(files().lock(folder / "link", milliseconds(0), &error));
}

TEST_F(FileLocks, InAFolderThatIsMissingAreAnError) {
  EXPECT_FALSE(files().lock(folder / "none/lock", milliseconds(0), &error));
  EXPECT_EQ(error.localizedDescription, "lock \"" + (folder / "none/lock") + "\": No such file or directory");
}

TEST_F(FileLocks, OfAPathWithANulAreAnError) {
  const std::string path = folder / "lock";
  EXPECT_FALSE(files().lock(path + std::string("\0more", 5), milliseconds(0), &error));
  EXPECT_EQ(error.code, EINVAL);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(FileLocks, AreHeldByOneOfManyThreads) {
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5; ++round) {
        const auto lock = files().lock(folder / "lock", seconds(60), nullptr);
        if (!lock) continue;
        const int now = ++inside;
        if (now > most) most = now;
        std::this_thread::yield();
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(most, 1);
}

}  // namespace
