#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace tks::test;
namespace fs = std::filesystem;

struct FolderCase {
  std::string (*operation)();
  const char* path;
};

const FolderCase kFolders[] = {
    {TKSUtilBase::getRealHomeDirectory, ""},
    {TKSUtilBase::getUserLibraryDirectory, "/Library"},
    {TKSUtilBase::getUserPreferenceDirectory, "/Library/Preferences"},
    {TKSUtilBase::getApplicationSupportDirectory, "/Library/Application Support"},
    {TKSUtilBase::getUserLogsDirectory, "/Library/Logs"},
    {TKSUtilBase::getKovraFolderPath, "/Library/Application Support/Kovra Folder"},
    {TKSUtilBase::getStandardTKSPath, "/Library/Application Support/Kovra Folder/Add-ons/Tarvo Kovra Start.app"},
    {TKSUtilBase::getKovraDataPath, "/Library/Application Support/Kovra Meetings"},
    {TKSUtilBase::getKovraAppDataPath, "/Library/Application Support/Kovra Meetings/AppData"},
    {TKSUtilBase::getClientVersionsPlistPath,
     "/Library/Application Support/Kovra Meetings/AppData/ClientVersions.plist"},
    {TKSUtilBase::getCommonDataPlistPath, "/Library/Application Support/Kovra Meetings/AppData/ClientVersions.plist"},
    {TKSUtilBase::getFeatureDataPlistPath, "/Library/Application Support/Kovra Meetings/AppData/FeatureData.plist"},
    {TKSUtilBase::getKovraReportsPath, "/Library/Application Support/Kovra Meetings/Reports"},
    {TKSUtilBase::getKovraIniCachePath, "/Library/Application Support/Kovra Meetings/IniCache"},
    {TKSUtilBase::getKovraParamsPathForFM, "/Library/Application Support/Kovra Meetings/Params"},
    {TKSUtilBase::getKovraDownloadsPath, "/Library/Application Support/Kovra Meetings/Downloads"},
    {TKSUtilBase::getKovraLogsPath, "/Library/Logs/Kovra Meetings"},
};

TEST(Folders, EachStandsAtItsPlaceBelowTheRealHomeAndNothingIsMade) {
  FakeHome home;
  for (const FolderCase& folder : kFolders) EXPECT_EQ(folder.operation(), home.realHome() + folder.path);
  EXPECT_TRUE(fs::is_empty(home.realHome()));
}

TEST(Folders, AreComputedAtEachCall) {
  std::string before;
  {
    const FakeHome first;
    before = TKSUtilBase::getStandardTKSPath();
  }
  const FakeHome second;
  EXPECT_NE(TKSUtilBase::getStandardTKSPath(), before);
}

TEST(Folders, TheRealHomeIsThatOfThePasswordEntry) {
  const passwd* entry = ::getpwuid(::getuid());
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(fs::path(TKSUtilBase::getRealHomeDirectory()), fs::path(entry->pw_dir));
}

TEST(Folders, AHomeAtTheRootGivesNoDoubleSlash) {
  const FakeHome home("/");
  EXPECT_EQ(TKSUtilBase::getUserLibraryDirectory(), "/Library");
}

// The temporary folder.

class TemporaryFolderPath : public testing::Test {
 protected:
  FakeHome home_;
  FakeHostProcess host_;
  LogRecorder log_;
};

TEST_F(TemporaryFolderPath, IsMadeForTheHostsBundle) {
  host_.bundleIdentifier = "com.example.host";
  const std::string path = TKSUtilBase::getTempFolderPath();
  EXPECT_EQ(path, home_.temporary() + "/com.example.host");
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0700));
  EXPECT_EQ(TKSUtilBase::getTempFolderPath(), path);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TemporaryFolderPath, IsMadeWithTheFoldersAbove) {
  host_.bundleIdentifier = "com.example.host";
  home_.setTemporary(home_ / "a/b");
  EXPECT_TRUE(fs::is_directory(TKSUtilBase::getTempFolderPath()));
}

TEST_F(TemporaryFolderPath, IsTheTemporaryDirectoryItselfForAHostWithoutAnIdentifier) {
  EXPECT_EQ(TKSUtilBase::getTempFolderPath(), home_.temporary());
  host_.bundleIdentifier = "";
  EXPECT_EQ(TKSUtilBase::getTempFolderPath(), home_.temporary());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TemporaryFolderPath, IsAnsweredAllTheSameWhenItCannotBeMade) {
  writeFile(home_ / "file", "");
  home_.setTemporary(home_ / "file");
  host_.bundleIdentifier = "com.example.host";
  EXPECT_EQ(TKSUtilBase::getTempFolderPath(), home_ / "file/com.example.host");
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors.front().starts_with("Create temp folder failed: Error Domain=")) << errors.front();
}

TEST_F(TemporaryFolderPath, IsEmptyAndReportedWhenNoFolderCanBeTrusted) {
  home_.setTemporary("");
  host_.bundleIdentifier = "com.example.host";
  EXPECT_EQ(TKSUtilBase::getTempFolderPath(), "");
  EXPECT_EQ(log_.texts(8).size(), 1u);
}

// Meeting clients.

class MeetingClients : public testing::Test {
 protected:
  std::string inKovraFolder(const std::string& name) {
    return home_ / ("Library/Application Support/Kovra Folder/" + name);
  }
  void makeClient(const std::string& name) { fs::create_directories(inKovraFolder(name) + "/Forum.app"); }
  void makeFolder(const std::string& name) { fs::create_directories(inKovraFolder(name)); }

  FakeHome home_;
  LogRecorder log_;
};

TEST_F(MeetingClients, AreSortedByTheNumbersOfTheirVersionsNewestFirst) {
  for (const char* name : {"FM_44.9", "FM_44.10", "FM_4.100", "FM_44.6.0.29928", "FM_44.6.0.3"}) makeClient(name);
  EXPECT_THAT(TKSUtilBase::sortedLocalFMFolders().value(),
              ElementsAre("FM_44.10", "FM_44.9", "FM_44.6.0.29928", "FM_44.6.0.3", "FM_4.100"));
  EXPECT_THAT(TKSUtilBase::sortedLocalFMVersions().value(),
              ElementsAre("44.10", "44.9", "44.6.0.29928", "44.6.0.3", "4.100"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MeetingClients, OnlyVersionFoldersWithTheApplicationCount) {
  makeClient("FM_");
  makeClient("OLDFM_44.1");
  makeClient("FM_beta_44.2");
  makeClient("FM_44.3_");
  makeClient("X_44.4");
  makeClient("fm_44.5");
  makeFolder("FM_44.6");
  writeFile(inKovraFolder("FM_44.7"), "");
  EXPECT_THAT(TKSUtilBase::sortedLocalFMFolders().value(), ElementsAre("FM_beta_44.2", "OLDFM_44.1"));
  EXPECT_THAT(TKSUtilBase::sortedLocalFMVersions().value(), ElementsAre("44.2", "44.1"));
}

TEST_F(MeetingClients, ThatTheApplicationIsThereIsAllThatCounts) {
  makeFolder("FM_44.1");
  writeFile(inKovraFolder("FM_44.1/Forum.app"), "a plain file");
  makeFolder("FM_44.2");
  fs::create_symlink("nowhere", inKovraFolder("FM_44.2/Forum.app"));
  EXPECT_THAT(TKSUtilBase::sortedLocalFMFolders().value(), ElementsAre("FM_44.1"));
  EXPECT_EQ(TKSUtilBase::getClientBuildVersionOfFMPath(inKovraFolder("FM_44.1/Forum.app")), "44.1");
}

TEST_F(MeetingClients, AnEmptyFolderHasNone) {
  makeFolder("");
  EXPECT_THAT(TKSUtilBase::sortedLocalFMFolders().value(), IsEmpty());
  EXPECT_THAT(TKSUtilBase::sortedLocalFMVersions().value(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MeetingClients, AFolderThatCannotBeListedIsReported) {
  EXPECT_EQ(TKSUtilBase::sortedLocalFMFolders(), std::nullopt);
  EXPECT_EQ(TKSUtilBase::sortedLocalFMVersions(), std::nullopt);
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_EQ(errors.size(), 2u);
  for (const std::string& error : errors) {
    EXPECT_TRUE(error.starts_with("Get kovra folder content failed: Error Domain=")) << error;
  }
}

TEST_F(MeetingClients, AreFoundByVersionWhateverTheFolderHolds) {
  makeFolder("FM_44.1");
  makeFolder("X_44.2");
  makeFolder("44.3");
  writeFile(inKovraFolder("FM_44.4"), "");
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.1"), inKovraFolder("FM_44.1/Forum.app"));
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.2"), inKovraFolder("X_44.2/Forum.app"));
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.3"), inKovraFolder("44.3/Forum.app"));
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.4"), inKovraFolder("FM_44.4/Forum.app"));
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.10"), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MeetingClients, TheFirstFolderInListingOrderWins) {
  makeFolder("A_44.1");
  makeFolder("B_44.1");
  const std::vector<std::string> names = tks::platform::files().list(inKovraFolder(""), nullptr).value();
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.1"), inKovraFolder(names.front() + "/Forum.app"));
}

TEST_F(MeetingClients, FindingOneInAMissingFolderIsNothingWithoutALine) {
  EXPECT_EQ(TKSUtilBase::forumPathWithVersion("44.1"), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MeetingClients, TheBuildVersionComesFromTheApplicationOrTheFoldersName) {
  struct Case {
    std::string path;
    std::string version;
  };
  makeClient("FM_44.1");
  const std::string declared = inKovraFolder("FM_44.2/Forum.app");
  fs::create_directories(declared + "/Contents");
  ASSERT_TRUE(tks::platform::propertyLists().writeDictionary({{"ClientBuildVersion", "44.2.0.7"}},
                                                             declared + "/Contents/Info.plist", nullptr));
  const std::string blank = inKovraFolder("FM_44.3/Forum.app");
  fs::create_directories(blank + "/Contents");
  ASSERT_TRUE(tks::platform::propertyLists().writeDictionary({{"ClientBuildVersion", ""}},
                                                             blank + "/Contents/Info.plist", nullptr));
  const Case cases[] = {{inKovraFolder("FM_44.1/Forum.app"), "44.1"},
                        {inKovraFolder("FM_44.1/Forum.app/"), "44.1"},
                        {declared, "44.2.0.7"},
                        {blank, "44.3"},
                        {"/a/FM_44.1/Forum.app", "44.1"},
                        {"/a/FM_beta_44.1/Forum.app", "44.1"},
                        {"/a/FM_/Forum.app", ""},
                        {"/a/Apps/Forum.app", ""},
                        {"/a_b/Apps/Forum.app", ""},
                        {"Forum.app", ""},
                        {"/Forum.app", ""},
                        {"/", ""},
                        {"", ""}};
  for (const Case& one : cases)
    EXPECT_EQ(TKSUtilBase::getClientBuildVersionOfFMPath(one.path), one.version) << one.path;
}

}  // namespace
