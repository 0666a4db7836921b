#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSUtilBase.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/platform.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::contentOf;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

class FileOperations : public ::testing::Test {
 protected:
  std::string shown(const std::string& path) { return TKSILog::removeSensitiveInformation(path); }

  TemporaryFolder folder;
  tks::test::PlayedApplications applications;
  tks::test::FakeClock clock;
  LogRecorder log;
};

TEST_F(FileOperations, RemovingGoesThroughWholeFolders) {
  const std::string path = folder / "A.app";
  writeFile(path + "/Contents/MacOS/A", "x");
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath(path));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Begin to remove file at path: " + shown(path)},
                                       LogLine{2, "Remove file at path: " + shown(path) + " success"}));
}

TEST_F(FileOperations, RemovingWhatIsNotThereSucceeds) {
  const std::string path = folder / "none";
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath(path));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Begin to remove file at path: " + shown(path)},
                                       LogLine{2, "No File exist at path: " + shown(path)}));
}

TEST_F(FileOperations, RemovingNothingFails) {
  EXPECT_FALSE(TKSUtilBase::removeFileAtPath(""));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{8, "In filePath is nil"}));
}

/// Files that refuse what a test names.
class RefusingFiles final : public tks::test::ForwardingFiles {
 public:
  bool refuseChanges = false;
  bool writable = true;
  std::vector<std::string> permitted;

  bool isWritable(std::string_view path) override { return writable && ForwardingFiles::isWritable(path); }
  bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    return refuseChanges ? refuse(error) : ForwardingFiles::createDirectory(path, permissions, error);
  }
  bool remove(std::string_view path, TKSError* error) override {
    return refuseChanges ? refuse(error) : ForwardingFiles::remove(path, error);
  }
  bool copy(std::string_view from, std::string_view to, TKSError* error) override {
    return refuseChanges ? refuse(error) : ForwardingFiles::copy(from, to, error);
  }
  bool move(std::string_view from, std::string_view to, TKSError* error) override {
    return refuseChanges ? refuse(error) : ForwardingFiles::move(from, to, error);
  }
  bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
    permitted.emplace_back(path);
    return ForwardingFiles::setPermissions(path, permissions, error);
  }

 private:
  static bool refuse(TKSError* error) {
    if (error != nullptr) *error = {"D", 7, "refused"};
    return false;
  }
};

class RefusedOperations : public FileOperations {
 protected:
  RefusingFiles files;
  const TKSError refusal{"D", 7, "refused"};
  const std::string text = "Error Domain=D Code=7 \"refused\"";
};

TEST_F(RefusedOperations, ARemovalThatFailsReportsTheFileManagersError) {
  const std::string path = folder / "file";
  writeFile(path, "x");
  files.refuseChanges = true;
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::removeFileAtPath(path, &error));
  EXPECT_EQ(error, refusal);
  EXPECT_EQ(log.lines().back(), (LogLine{8, "Remove file at path: " + shown(path) + " failed " + text + "."}));
  EXPECT_FALSE(TKSUtilBase::removeFileAtPath(path, nullptr));
}

TEST_F(RefusedOperations, WhatIsNotWritableGetsPermissionsFirst) {
  const std::string path = folder / "file";
  writeFile(path, "x");
  files.writable = false;
  EXPECT_TRUE(TKSUtilBase::removeFileAtPath(path));
  EXPECT_THAT(files.permitted, ElementsAre(path));
  EXPECT_TRUE(log.has(4, "Current file: " + shown(path) + " is not writable, begin to add read and write permission"));
}

TEST_F(RefusedOperations, ACopyThatFailsReportsTheFileManagersError) {
  const std::string from = folder / "from";
  writeFile(from, "x");
  files.refuseChanges = true;
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath(from, folder / "to", &error));
  EXPECT_EQ(error, refusal);
  EXPECT_EQ(log.lines().back(), (LogLine{8, "Copy file at path: " + shown(from) + " failed " + text + "."}));
}

TEST_F(RefusedOperations, AParentThatCannotBeMadeEndsTheCopyQuietly) {
  const std::string from = folder / "from";
  const std::string to = folder / "a/b/to";
  writeFile(from, "x");
  files.refuseChanges = true;
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath(from, to));
  EXPECT_EQ(log.lines().back(),
            (LogLine{2, "Copy file at path: " + shown(from) + " to " + shown(to) + " failed:" + text}));
}

TEST_F(RefusedOperations, AMoveThatFailsReportsTheFileManagersError) {
  const std::string from = folder / "from";
  writeFile(from, "x");
  files.refuseChanges = true;
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(from, folder / "to", &error));
  EXPECT_EQ(error, refusal);
  EXPECT_EQ(log.lines().back(), (LogLine{8, "Move file at path: " + shown(from) + " failed " + text + "."}));
}

TEST_F(RefusedOperations, ACleanUpThatFailsSaysWhy) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  files.refuseChanges = true;
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, true));
  EXPECT_EQ(log.lines().back(), (LogLine{8, "Failed to clean up folder: " + shown(path) + ". Error: " + text + "."}));
}

TEST_F(FileOperations, CopyingReplacesTheDestinationAndMakesItsParents) {
  const std::string from = folder / "from";
  const std::string to = folder / "a/b/to";
  writeFile(from, "new");
  writeFile(to, "old");
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(from, to));
  EXPECT_EQ(contentOf(to), "new");
  EXPECT_EQ(log.lines().front(), (LogLine{2, "Begin to copy file at path: " + shown(from)}));
  EXPECT_EQ(log.lines().back(), (LogLine{2, "Copy file at path: " + shown(from) + " to " + shown(to) + " success"}));
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(from, folder / "c/d"));
  EXPECT_EQ(contentOf(folder / "c/d"), "new");
}

TEST_F(FileOperations, MovingTakesTheSourceAway) {
  const std::string from = folder / "from";
  const std::string to = folder / "to";
  writeFile(from, "x");
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(from, to));
  EXPECT_EQ(contentOf(to), "x");
  EXPECT_FALSE(fs::exists(from));
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{2, "Begin to move file at path: " + shown(from)},
                          LogLine{2, "Move file at path: " + shown(from) + " to " + shown(to) + " success"}));
}

TEST_F(FileOperations, MovingOntoSomethingFails) {
  writeFile(folder / "from", "new");
  writeFile(folder / "to", "old");
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(folder / "from", folder / "to", &error));
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_EQ(contentOf(folder / "to"), "old");
}

TEST_F(FileOperations, AMissingSourceCountsAsCopiedAndMoved) {
  const std::string from = folder / "none";
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(from, folder / "to"));
  EXPECT_EQ(log.lines().back(), (LogLine{8, "No File exist at path: " + shown(from)}));
  log.clear();
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(from, folder / "to"));
  EXPECT_EQ(log.lines().back(), (LogLine{8, "No File exist at path: " + shown(from)}));
}

TEST_F(FileOperations, EmptyPathsAreNamed) {
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath("", "/x"));
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath("/x", ""));
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath("", "/x"));
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath("/x", ""));
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath("", true));
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{8, "FromPath is nil"}, LogLine{8, "ToPath is nil"}, LogLine{8, "FromPath is nil"},
                          LogLine{8, "ToPath is nil"}, LogLine{8, "Nil/empty folderPath! Fail to cleanup it."}));
}

TEST_F(FileOperations, CleaningUpWithoutForceStopsAtARunningApplication) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{1001, "", "", path, 1}};
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, false));
  EXPECT_TRUE(fs::exists(path));
  EXPECT_THAT(applications.terminated, IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Try to clean up folder path: " + shown(path) + ". isForced: 0."},
                                       LogLine{4, "Non-forced clean. Abort clean up folder: " + shown(path) +
                                                      "! Because has running app under the folder path."}));
}

TEST_F(FileOperations, CleaningUpByForceEndsWhatRunsThere) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{1000001, "", "", "/elsewhere", 1}, {1000002, "", "", path + "/Contents/B.app", 1}};
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, true));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THAT(applications.terminated, ElementsAre(1000002));
  EXPECT_TRUE(
      log.has(4, "Forced clean! App within the folder path is running! Terminate it firstly! Running app path: " +
                     shown(path + "/Contents/B.app") + "."));
  EXPECT_TRUE(log.has(2, "The terminate request was successfully sent."));
  EXPECT_EQ(log.lines().back(), (LogLine{2, "Succeed to clean up folder: " + shown(path)}));
}

TEST_F(FileOperations, WhatCannotBeEndedIsRemovedAllTheSame) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{1000002, "", "", path, 1}};
  applications.refusing = {1000002};
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, true));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(log.has(8, "The terminate request failed to sent! Get on clean up as in forced case."));
}

TEST_F(FileOperations, ASiblingWithTheSameBeginningCountsAsInside) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{1001, "", "", path + " copy", 1}};
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, false));
}

TEST_F(FileOperations, AFolderThatIsSpelledOtherwiseIsTheSame) {
  writeFile(folder / "place/A.app/x", "x");
  fs::create_directory_symlink("place", folder / "link");
  applications.listed = {{1001, "", "", folder / "place/A.app", 1}};
  for (const char* name : {"link/A.app", "place//A.app", "place/./A.app/", "link/../place", "link"}) {
    EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(folder / name, false)) << name;
  }
  EXPECT_TRUE(fs::exists(folder / "place/A.app/x"));
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(folder / "link//A.app", true));
  EXPECT_THAT(applications.terminated, ElementsAre(1001));
  EXPECT_FALSE(fs::exists(folder / "place/A.app"));
}

TEST_F(FileOperations, ThisProcessIsNeverEndedAndNeverInTheWay) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{::getpid(), "", "", path, 1}};
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, false));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THAT(applications.terminated, IsEmpty());
  EXPECT_TRUE(log.has(2, "Ignore terminate self when clean up, pid: " + std::to_string(::getpid())));
}

TEST_F(FileOperations, CleaningUpWhereNothingRunsNeedsNoForce) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{1001, "", "", "/elsewhere/A.app", 1}};
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, false));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, false)) << "also when there is nothing";
  EXPECT_EQ(log.lines().back(), (LogLine{2, "Succeed to clean up folder: " + shown(path)}));
}

TEST_F(FileOperations, CleaningUpGoesThroughApplicationsInTheirOrder) {
  const std::string path = folder / "A.app";
  writeFile(path + "/x", "x");
  applications.listed = {{::getpid(), "", "", path, 1}, {1000002, "", "", path, 1}, {1000003, "", "", path, 1}};
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(path, false));
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{2, "Try to clean up folder path: " + shown(path) + ". isForced: 0."},
                          LogLine{2, "Ignore terminate self when clean up, pid: " + std::to_string(::getpid())},
                          LogLine{4, "Non-forced clean. Abort clean up folder: " + shown(path) +
                                         "! Because has running app under the folder path."}));
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(path, true));
  EXPECT_THAT(applications.terminated, ElementsAre(1000002, 1000003));
}

TEST_F(FileOperations, CopyingTakesWholeFoldersAndReplacesWholeFolders) {
  writeFile(folder / "from/a/file", "new");
  fs::create_symlink("a/file", folder / "from/link");
  writeFile(folder / "to/old", "old");
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "from", folder / "to"));
  EXPECT_EQ(contentOf(folder / "to/a/file"), "new");
  EXPECT_TRUE(fs::is_symlink(folder / "to/link"));
  EXPECT_FALSE(fs::exists(folder / "to/old"));
  EXPECT_EQ(contentOf(folder / "from/a/file"), "new");
}

TEST_F(FileOperations, CopyingBelowAFileFailsQuietly) {
  writeFile(folder / "from", "new");
  writeFile(folder / "file", "x");
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::copyFileAtPath(folder / "from", folder / "file/to", &error));
  EXPECT_EQ(error.domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(log.lines().back(), (LogLine{2, "Copy file at path: " + shown(folder / "from") + " to " +
                                                shown(folder / "file/to") + " failed:" + error.description()}));
  EXPECT_EQ(contentOf(folder / "file"), "x");
}

TEST_F(FileOperations, MovingMakesNoParent) {
  writeFile(folder / "from", "x");
  TKSError error;
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(folder / "from", folder / "none/to", &error));
  EXPECT_EQ(error.domain, "NSPOSIXErrorDomain");
  EXPECT_FALSE(fs::exists(folder / "none"));
  EXPECT_EQ(contentOf(folder / "from"), "x");
  EXPECT_EQ(log.lines().back(),
            (LogLine{8, "Move file at path: " + shown(folder / "from") + " failed " + error.description() + "."}));
}

TEST_F(FileOperations, MovingTakesWholeFolders) {
  writeFile(folder / "from/a/file", "x");
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(folder / "from", folder / "to"));
  EXPECT_EQ(contentOf(folder / "to/a/file"), "x");
  EXPECT_FALSE(fs::exists(folder / "from"));
}

TEST_F(FileOperations, PathsAreMaskedInAllLines) {
  TKSUtilBase::removeFileAtPath("/Users/jane/a");
  TKSUtilBase::copyFileAtPath("/Users/jane/a", "/Users/jane/b");
  TKSUtilBase::moveFileAtPath("/Users/jane/a", "/Users/jane/b");
  TKSUtilBase::cleanUpFolderPath("/Users/jane/A.app", false);
  for (const LogLine& line : log.lines()) EXPECT_EQ(line.text.find("jane"), std::string::npos) << line;
}

}  // namespace
