#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises. On macOS the temporary folder is the user's own in /var/folders,
// and the home is the account's, also in a sandbox.

namespace {

using namespace tks::test;

tks::platform::KnownFolders& folders() { return tks::platform::knownFolders(); }

int printFolders(const Arguments&) {
  std::cout << folders().realHome() << "\n" << folders().temporary() << "\n" << folders().documents() << "\n";
  return 0;
}
const ChildRole kPrint("print-folders", printFolders);

TEST(KnownFolders, TheRealHomeIsThatOfThePasswordEntry) {
  const passwd* entry = ::getpwuid(::getuid());
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(std::filesystem::path(folders().realHome()), std::filesystem::path(entry->pw_dir));
  EXPECT_TRUE(folders().realHome().starts_with('/'));
  EXPECT_FALSE(folders().realHome().ends_with('/') && folders().realHome().size() > 1);
}

TEST(KnownFolders, TheRealHomeIsNeverThatOfTheEnvironment) {
  for (const char* home : {"HOME=/elsewhere", "HOME=", "HOME"}) {
    ChildProcess child = ChildProcess::inRole("print-folders", {}, {home});
    ASSERT_EQ(child.wait(), 0);
    EXPECT_TRUE(child.output().starts_with(folders().realHome() + "\n")) << child.output();
    EXPECT_EQ(child.output().find("elsewhere"), std::string::npos);
  }
}

TEST(KnownFolders, TheDocumentsLieInTheRealHome) {
  EXPECT_TRUE(folders().documents().starts_with(folders().realHome() + "/"));
}

TEST(KnownFolders, NobodyElseCanWriteToTheTemporaryFolder) {
  const std::string folder = folders().temporary();
  ASSERT_TRUE(folder.starts_with('/'));
  EXPECT_FALSE(folder.ends_with('/'));
  struct stat status {};
  ASSERT_EQ(::lstat(folder.c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_uid, ::geteuid());
  EXPECT_EQ(status.st_mode & 022, mode_t{0});
}

}  // namespace
