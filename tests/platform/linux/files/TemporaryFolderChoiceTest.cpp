#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

// Which folder is taken for temporary files, and which is not trusted.

namespace {

using namespace tks::test;
namespace fs = std::filesystem;

/// A user that the machine does not know; another one in each test program that runs at the same time.
uid_t stranger() { return 100000 + static_cast<uid_t>(::getpid()); }

int printTemporaryFolder(const Arguments& arguments) {
  // As another user when told so; only root can.
  const uid_t user = arguments.empty() ? ::geteuid() : static_cast<uid_t>(std::stoul(arguments.front()));
  if (user != ::geteuid() && (::setgid(user) != 0 || ::setuid(user) != 0)) return 3;
  std::cout << tks::platform::knownFolders().temporary();
  return 0;
}
const ChildRole kPrint("print-temporary-folder", printTemporaryFolder);

class TemporaryFolderChoice : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(named_);
    fs::permissions(named_, fs::perms::owner_all);
  }

  /// The folder that a process takes with this TMPDIR.
  static std::string chosen(const std::string& variable) {
    ChildProcess child = ChildProcess::inRole("print-temporary-folder", {}, {variable});
    EXPECT_EQ(child.wait(), 0);
    return child.output();
  }
  static std::string chosenByStranger() {
    ChildProcess child = ChildProcess::inRole("print-temporary-folder", {std::to_string(stranger())}, {"TMPDIR"});
    EXPECT_EQ(child.wait(), 0);
    return child.output();
  }

  TemporaryFolder folder_;
  std::string named_ = folder_ / "named";
  std::string own_ = "/tmp/tksinterface-" + std::to_string(::geteuid());
};

TEST_F(TemporaryFolderChoice, APrivateFolderOfTheEnvironmentIsTaken) {
  EXPECT_EQ(chosen("TMPDIR=" + named_), named_);
  EXPECT_EQ(chosen("TMPDIR=" + named_ + "/"), named_);
  fs::permissions(named_, fs::perms(0755));
  EXPECT_EQ(chosen("TMPDIR=" + named_), named_);
}

TEST_F(TemporaryFolderChoice, ALinkOfTheEnvironmentIsResolvedOnce) {
  fs::create_directory_symlink(named_, folder_ / "link");
  EXPECT_EQ(chosen("TMPDIR=" + (folder_ / "link")), named_);
}

TEST_F(TemporaryFolderChoice, AFolderThatOthersCanWriteToIsNotTaken) {
  for (const auto permissions : {0770, 0707, 01777}) {
    fs::permissions(named_, fs::perms(permissions));
    EXPECT_EQ(chosen("TMPDIR=" + named_), own_);
  }
}

TEST_F(TemporaryFolderChoice, WhatIsNoAbsolutePathOfAFolderIsNotTaken) {
  writeFile(folder_ / "file", "");
  for (const std::string& value :
       {std::string(), std::string("."), std::string("relative"), folder_ / "missing", folder_ / "file"}) {
    EXPECT_EQ(chosen("TMPDIR=" + value), own_) << value;
  }
  EXPECT_EQ(chosen("TMPDIR"), own_);
}

TEST_F(TemporaryFolderChoice, AFolderOfAnotherUserIsNotTaken) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  ASSERT_EQ(::chown(named_.c_str(), stranger(), stranger()), 0);
  EXPECT_EQ(chosen("TMPDIR=" + named_), own_);
}

/// The folder of a user that the machine has no other use for, so that it can be prepared as an attacker would.
class PreparedOwnFolder : public TemporaryFolderChoice {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can play another user";
    TemporaryFolderChoice::SetUp();
  }
  void TearDown() override { fs::remove_all(prepared_); }

  std::string prepared_ = "/tmp/tksinterface-" + std::to_string(stranger());
};

TEST_F(PreparedOwnFolder, IsMadePrivate) {
  EXPECT_EQ(chosenByStranger(), prepared_);
  struct stat status {};
  ASSERT_EQ(::lstat(prepared_.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, stranger());
  EXPECT_EQ(status.st_mode & 07777, mode_t{0700});
  EXPECT_EQ(chosenByStranger(), prepared_);
}

TEST_F(PreparedOwnFolder, IsClosedToOthersWhenTheyCouldReadIt) {
  fs::create_directory(prepared_);
  ASSERT_EQ(::chown(prepared_.c_str(), stranger(), stranger()), 0);
  fs::permissions(prepared_, fs::perms(0755));
  EXPECT_EQ(chosenByStranger(), prepared_);
  EXPECT_EQ(fs::status(prepared_).permissions(), fs::perms(0700));
}

TEST_F(PreparedOwnFolder, IsRefusedWhenItIsForeign) {
  fs::create_directory(prepared_);
  EXPECT_EQ(chosenByStranger(), "");
}

TEST_F(PreparedOwnFolder, IsRefusedWhenItIsALink) {
  ASSERT_EQ(::chown(named_.c_str(), stranger(), stranger()), 0);
  fs::permissions(folder_.path(), fs::perms(0755));
  fs::create_directory_symlink(named_, prepared_);
  ASSERT_EQ(::lchown(prepared_.c_str(), stranger(), stranger()), 0);
  EXPECT_EQ(chosenByStranger(), "");
}

TEST_F(PreparedOwnFolder, IsRefusedWhenOthersCanWriteToIt) {
  fs::create_directory(prepared_);
  ASSERT_EQ(::chown(prepared_.c_str(), stranger(), stranger()), 0);
  fs::permissions(prepared_, fs::perms(0777));
  EXPECT_EQ(chosenByStranger(), "");
}

TEST_F(PreparedOwnFolder, IsRefusedWhenItIsAFile) {
  writeFile(prepared_, "");
  ASSERT_EQ(::chown(prepared_.c_str(), stranger(), stranger()), 0);
  EXPECT_EQ(chosenByStranger(), "");
}

}  // namespace
