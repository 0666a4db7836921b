#include <tksinterface/TKSIAppManager.h>

#include <gmock/gmock.h>

#include <string>

#include <tksinterface/TKSConstants.h>

#include "platform/backend.h"
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/FakeTools.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ZipWriter.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::FakeTools;
using tks::test::FakeWorld;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::writeFile;

std::string information(const std::string& content) { return "<plist><dict>" + content + "</dict></plist>"; }

std::string version(const std::string& text) {
  return information("<key>CFBundleVersion</key><string>" + text + "</string>");
}

class AppManager : public testing::Test {
 protected:
  /// A launcher of this version at the standard place.
  void install(const std::string& text) {
    writeFile(manager_.TKSAppPath + "/Contents/Info.plist", version(text));
    log_.clear();
  }
  std::string zip() {
    writeFile(world_.folder / "backup.zip", "");
    return world_.folder / "backup.zip";
  }

  FakeWorld world_;
  LogRecorder log_;
  TKSIAppManager manager_;
};

TEST_F(AppManager, BeginsUnconnectedWithTheStandardLauncher) {
  const std::string path = world_.home / "Library/Application Support/Kovra Folder/Add-ons/Tarvo Kovra Start.app";
  EXPECT_EQ(manager_.launchedTKSPid, 0);
  EXPECT_EQ(manager_.connectedTKSPid, 0);
  EXPECT_EQ(manager_.TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_EQ(manager_.backupTKSAppPath, "");
  EXPECT_EQ(manager_.backupTKSZipPath, std::nullopt);
  EXPECT_EQ(manager_.backupTKSVersion, "");
  EXPECT_EQ(manager_.TKSAppPath, path);
  EXPECT_EQ(manager_.TKSExePath, path + "/Contents/MacOS/Tarvo Kovra Start");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

// Refreshing the installed launcher.

TEST_F(AppManager, RefreshWithoutAnArchiveFails) {
  manager_.backupTKSVersion = " 4.1 ";
  EXPECT_FALSE(manager_.updateDefaultTKS());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "-[TKSIAppManager updateDefaultTKS:backupZipPath:]"},
                          LogLine{8,
                                  "Param incorrect when check default TKS version: backupVersion:  4.1 , zipPath: "
                                  "(null)"}));
}

TEST_F(AppManager, RefreshWithoutAVersionFails) {
  for (const char* none : {"", "  ", " \t\r\n"}) {
    log_.clear();
    EXPECT_FALSE(manager_.updateDefaultTKS(none, "/a.zip"));
    EXPECT_EQ(log_.lines().back(), (LogLine{8, "Param incorrect when check default TKS version: backupVersion: " +
                                                   std::string(none) + ", zipPath: /a.zip"}));
  }
}

TEST_F(AppManager, RefreshFromAMissingArchiveFails) {
  EXPECT_FALSE(manager_.updateDefaultTKS("4.1", "/nowhere/a.zip"));
  EXPECT_EQ(log_.lines().back(), (LogLine{8, "Zip path not exists: /nowhere/a.zip"}));
}

TEST_F(AppManager, EmptyArchivePathCountsAsGiven) {
  EXPECT_FALSE(manager_.updateDefaultTKS("4.1", ""));
  EXPECT_EQ(log_.lines().back(), (LogLine{8, "Zip path not exists: "}));
}

TEST_F(AppManager, ArchivePathIsMaskedInTheLine) {
  manager_.updateDefaultTKS("4.1", "/Users/jane/a.zip");
  EXPECT_EQ(log_.lines().back().text,
            "Zip path not exists: " + TKSILog::removeSensitiveInformation("/Users/jane/a.zip"));
}

TEST_F(AppManager, LauncherThatIsNotOlderStays) {
  install("4.1.2");
  EXPECT_TRUE(manager_.updateDefaultTKS("  4.1.2\n", zip()));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "-[TKSIAppManager updateDefaultTKS:backupZipPath:]"},
                                        LogLine{2, "Backup TKS version: 4.1.2"}, LogLine{2, "Bundle version: 4.1.2"},
                                        LogLine{2, "Default TKS version: 4.1.2"},
                                        LogLine{2, "Backup version not newer. Use default version directly."}));
}

TEST_F(AppManager, NewerArchiveThatCannotBeInstalledIsAFailure) {
  install("4.1.2");
  manager_.backupTKSVersion = "4.1.3";
  manager_.backupTKSZipPath = zip();
  EXPECT_FALSE(manager_.updateDefaultTKS()) << "the archive is empty";
  EXPECT_TRUE(log_.has(4, "Backup version newer. Go to copy and replace with backup TKS."));
  EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "4.1.2");
}

TEST_F(AppManager, LauncherOfANewerArchiveTakesItsPlaceUnderTheTrimmedVersion) {
  FakeTools tools(tks::platform::backend<tks::platform::SystemTools>());
  tools.play(tks::platform::Tool::spctl, [](const tks::platform::ToolRequest& request) {
    return FakeTools::printed(request.arguments.back() + ": accepted\n");
  });
  tks::test::FakeSignatures signatures;
  signatures.signedBy(TKSTarvoCodeSignTeamID,
                      {std::string(kTarvoCertificate), "Developer ID Certification Authority", "Apple Root CA"});
  const tks::platform::Replaced<tks::platform::Signatures> replaced(signatures);
  const std::string archive = world_.folder / "backup.zip";
  writeFile(archive,
            tks::test::zipOf({{"Tarvo Kovra Start.app/Contents/Info.plist", version("4.1.10")},
                              {"Tarvo Kovra Start.app/Contents/MacOS/Tarvo Kovra Start", "#!/bin/false\n", 0100755}}));
  install("4.1.2");
  EXPECT_TRUE(manager_.updateDefaultTKS(" 4.1.10\n", archive));
  EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "4.1.10");
  log_.clear();
  EXPECT_TRUE(manager_.updateDefaultTKS(" 4.1.10\n", archive));
  EXPECT_TRUE(log_.has(2, "Backup version not newer. Use default version directly."));

  manager_.TKSAppPath = world_.folder / "elsewhere/Tarvo Kovra Start.app";
  EXPECT_TRUE(manager_.updateDefaultTKS("4.1.10", archive)) << "there is none yet";
  EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "4.1.10");
}

TEST_F(AppManager, MissingLauncherIsAlwaysOlder) {
  EXPECT_TRUE(manager_.isBackupVersionNewer("0.1"));
  const std::string path = TKSILog::removeSensitiveInformation(manager_.TKSAppPath);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Bundle not exists with path: " + path},
                                        LogLine{2, "Default TKS bundle not exists with path: " + path}));
}

TEST_F(AppManager, LauncherWithoutAVersionIsAlwaysOlder) {
  writeFile(manager_.TKSAppPath + "/Contents/Info.plist", "garbage");
  EXPECT_TRUE(manager_.isBackupVersionNewer("0.1"));
}

TEST_F(AppManager, VersionsAreComparedNumberByNumber) {
  install("44.9.1");
  EXPECT_TRUE(manager_.isBackupVersionNewer("44.10.0"));
  EXPECT_FALSE(manager_.isBackupVersionNewer("44.8.9"));
  EXPECT_TRUE(manager_.isBackupVersionNewer("1", world_.folder / "none.app"));
}

// Version of a bundle.

TEST_F(AppManager, BundleVersionIsReadFromTheFileFirst) {
  install("4.2");
  world_.bundles.declared[manager_.TKSAppPath] = {.path = manager_.TKSAppPath,
                                                  .executablePath = "",
                                                  .builtInPlugInsPath = "",
                                                  .infoDictionary = {{"CFBundleVersion", "4.1"}}};
  EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "4.2");
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Bundle version: 4.2"}));
}

TEST_F(AppManager, BundleVersionThatTheFileLacksComesFromTheBundle) {
  for (const std::string& content : {information(""), version(""), std::string("garbage")}) {
    writeFile(manager_.TKSAppPath + "/Contents/Info.plist", content);
    world_.bundles.declared[manager_.TKSAppPath] = {.path = manager_.TKSAppPath,
                                                    .executablePath = "",
                                                    .builtInPlugInsPath = "",
                                                    .infoDictionary = {{"CFBundleVersion", "4.1"}}};
    EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "4.1") << content;
  }
}

TEST_F(AppManager, BundleVersionWrittenAsANumberIsItsText) {
  writeFile(manager_.TKSAppPath + "/Contents/Info.plist",
            information("<key>CFBundleVersion</key><integer>44</integer>"));
  EXPECT_EQ(manager_.getBundleVersion(manager_.TKSAppPath), "44");
}

TEST_F(AppManager, BundleWithoutAVersionHasNone) {
  writeFile(world_.folder / "A.app/Contents/Info.plist", information(""));
  EXPECT_EQ(manager_.getBundleVersion(world_.folder / "A.app"), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Bundle version: (null)"}));
}

TEST_F(AppManager, PlainFileIsNoBundle) {
  writeFile(world_.folder / "A.app", "");
  EXPECT_EQ(manager_.getBundleVersion(world_.folder / "A.app"), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Bundle not exists with path: " + (world_.folder / "A.app")}));
}

// Status.

struct StatusChange {
  std::int32_t status;
  std::int32_t launchedAfter;
  std::int32_t connectedAfter;
  std::vector<LogLine> lines;
};

class AppManagerStatus : public AppManager, public testing::WithParamInterface<StatusChange> {};

TEST_P(AppManagerStatus, MovesTheIdentifiersAndTellsIt) {
  manager_.launchedTKSPid = 11;
  manager_.connectedTKSPid = 22;
  manager_.handleStatusChange(GetParam().status);
  EXPECT_EQ(manager_.TKSAppStatus, GetParam().status);
  EXPECT_EQ(manager_.launchedTKSPid, GetParam().launchedAfter);
  EXPECT_EQ(manager_.connectedTKSPid, GetParam().connectedAfter);
  EXPECT_EQ(log_.lines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Each, AppManagerStatus,
    testing::Values(StatusChange{1, 11, 0, {{2, "Switch TKS app status to: UNCONNECTED"}}},
                    StatusChange{2, 11, 22, {{2, "Switch TKS app status to: STARTING"}}},
                    StatusChange{
                        3, 0, 11, {{2, "Switch TKS app status to: CONNECTED"}, {2, "Connected to TKS with pid: 11"}}},
                    StatusChange{4, 11, 22, {{2, "Switch TKS app status to: LAUNCHING"}}}, StatusChange{0, 11, 22, {}},
                    StatusChange{5, 11, 22, {}}, StatusChange{-7, 11, 22, {}}),
    [](const auto& tested) {
      return tested.param.status < 0 ? "Negative" : "Status" + std::to_string(tested.param.status);
    });

TEST_F(AppManager, AnotherAnswerToAHelloLeavesNoIdentifier) {
  manager_.connectedTKSPid = 22;
  manager_.handleStatusChange(TKSI_APP_STATUS_CONNECTED);
  EXPECT_EQ(manager_.connectedTKSPid, 0);
  EXPECT_TRUE(log_.has(2, "Connected to TKS with pid: 0"));
}

// Recorded sites.

class RecordedSites : public AppManager {
 protected:
  std::optional<TKSDictionary> of(const std::string& content) {
    writeFile(path_, information(content));
    return manager_.getRecordedSites(path_);
  }
  static std::string record(const std::string& domain, const std::string& time) {
    return "<dict><key>SiteDomain</key><string>" + domain + "</string>" +
           (time.empty() ? "" : "<key>LastLaunchTime</key><real>" + time + "</real>") + "</dict>";
  }
  static std::string versions(const std::string& content) { return "<key>Versions</key><dict>" + content + "</dict>"; }
  static std::string list(const std::string& key, const std::string& content) {
    return "<key>" + key + "</key><array>" + content + "</array>";
  }

  const std::string path_ = world_.folder / "sites.plist";
};

TEST_F(RecordedSites, KeepTheLatestTimeOfEachDomain) {
  EXPECT_EQ(of(versions(list("44.1", record("a.example", "10.0") + record("b.example", "5.5")) +
                        list("44.2", record("a.example", "20.0")) + list("44.3", record("a.example", "15.0")))),
            (TKSDictionary{{"a.example", 20.0}, {"b.example", 5.5}}));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Collect for version key: 44.1"}, LogLine{2, "Collect for version key: 44.2"},
                          LogLine{2, "Collect for version key: 44.3"}));
}

TEST_F(RecordedSites, OfEqualTimesKeepTheFirst) {
  TKSDictionary sites;
  manager_.collectSitesFrom({TKSDictionary{{"SiteDomain", "a.example"}, {"LastLaunchTime", 10}},
                             TKSDictionary{{"SiteDomain", "a.example"}, {"LastLaunchTime", 10.0}}},
                            sites);
  EXPECT_TRUE(sites["a.example"].isInteger());
}

TEST_F(RecordedSites, WithoutATimeCountAsOld) {
  EXPECT_EQ(of(versions(list("44.1", record("a.example", "") + record("b.example", "1.0")) +
                        list("44.2", record("a.example", "0.5") + record("b.example", "")))),
            (TKSDictionary{{"a.example", 0.5}, {"b.example", 1.0}}));
  EXPECT_TRUE(log_.has(2,
                       "No last launch time for site: a.example, use default value 0.0, -[TKSIAppManager "
                       "collectSitesFrom:toDict:]_block_invoke"));
}

TEST_F(RecordedSites, WithoutATimeAloneAreZero) {
  EXPECT_EQ(of(versions(list("44.1", record("a.example", "")))), (TKSDictionary{{"a.example", 0.0}}));
}

TEST_F(RecordedSites, SkipWhatIsNoRecord) {
  EXPECT_EQ(of(versions(list("44.1", "<string>odd</string><dict/>" + record("", "1") + record("a.example", "1")))),
            (TKSDictionary{{"a.example", 1.0}}));
  const std::string step = "-[TKSIAppManager collectSitesFrom:toDict:]_block_invoke";
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Collect for version key: 44.1"}, LogLine{4, "Not a dictionary: odd, " + step},
                          LogLine{2, "No site domain, " + step}, LogLine{2, "No site domain, " + step}));
}

TEST_F(RecordedSites, SkipVersionsThatAreNoLists) {
  EXPECT_EQ(of(versions("<key>44.1</key><string>odd</string>")), std::nullopt);
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{4, "Not an array: odd, -[TKSIAppManager getRecordedSites:]_block_invoke"}));
}

TEST_F(RecordedSites, OfAFileWithoutAnyAreNone) {
  EXPECT_EQ(of("<key>Other</key><string>x</string>"), std::nullopt);
  EXPECT_EQ(of("<key>Versions</key><string>x</string>"), std::nullopt);
  EXPECT_EQ(of(versions(list("44.1", ""))), std::nullopt);
}

TEST_F(RecordedSites, OfAFileThatCannotBeReadAreNone) {
  EXPECT_EQ(of(""), std::nullopt);
  EXPECT_EQ(log_.lines().back(),
            (LogLine{4, "Fail to get plist dict with path: " + path_ + ", -[TKSIAppManager getRecordedSites:]"}));
  log_.clear();
  EXPECT_EQ(manager_.getRecordedSites("/Users/jane/none.plist"), std::nullopt);
  EXPECT_EQ(
      log_.lines().back(),
      (LogLine{4, "Fail to get plist dict with path: " + TKSILog::removeSensitiveInformation("/Users/jane/none.plist") +
                      ", -[TKSIAppManager getRecordedSites:]"}));
}

TEST_F(RecordedSites, ComeFromTheStandardFile) {
  writeFile(world_.home / "Library/Application Support/Kovra Meetings/AppData/ClientVersions.plist",
            information(versions(list("44.1", record("a.example", "3.25")))));
  EXPECT_EQ(manager_.getRecordedSites(), (TKSDictionary{{"a.example", 3.25}}));
}

}  // namespace
