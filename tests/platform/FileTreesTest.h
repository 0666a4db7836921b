#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <set>

#include <tksinterface/TKSError.h>

#include "platform/files.h"
#include "platform/platform.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// What the tests of moving, exchanging and removing share, those of one system's own ways included.

namespace tks::test {

class FileTrees : public ::testing::Test {
 protected:
  void TearDown() override {
    if (std::filesystem::exists(folder / "tree/Contents/Resources")) {
      std::filesystem::permissions(folder / "tree/Contents/Resources", std::filesystem::perms(0755));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
  }
  void expectNothingIsMovedOverWhatExists() {
    writeFile(folder / "file", "new");
    writeFile(folder / "there", "old");
    std::filesystem::create_directory(folder / "emptyFolder");
    std::filesystem::create_directory(folder / "otherFolder");
    EXPECT_FALSE(platform::files().move(folder / "file", folder / "there", &error));
    EXPECT_EQ(error, (TKSError{"NSPOSIXErrorDomain", EEXIST, "move to \"" + (folder / "there") + "\": File exists"}));
    EXPECT_FALSE(platform::files().move(folder / "otherFolder", folder / "emptyFolder", &error));
    EXPECT_EQ(error.code, EEXIST);
    EXPECT_EQ(contentOf(folder / "there"), "old");
    EXPECT_EQ(contentOf(folder / "file"), "new");
  }

  TemporaryFolder folder;
  TKSError error;
  const std::set<int> descriptors = openDescriptors();
};

class Exchanging : public FileTrees {
 protected:
  void SetUp() override {
    writeFile(folder / "new/file", "new");
    writeFile(folder / "old/file", "old");
  }
  void expectExchanged() {
    EXPECT_TRUE(platform::files().exchange(folder / "new", folder / "old/", &error)) << error.description();
    EXPECT_EQ(contentOf(folder / "new/file"), "old");
    EXPECT_EQ(contentOf(folder / "old/file"), "new");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator()),
              2);
  }
};

}  // namespace tks::test
