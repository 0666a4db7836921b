#include "install/Trust.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/KVRXCodeSignUtil.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "BuildValues.h"
#include "install/MakerRules.h"
#include "platform/platform.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using tks::test::FakeSignatures;
using tks::test::LogLine;
using tks::test::LogRecorder;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kLeaf = "Developer ID Application: Tarvo (" TKS_TEAM_ID ")";
const std::string kIntermediate = "Developer ID Certification Authority";
const std::string kRoot = "Apple Root CA";
constexpr const char* kBundle = "/Applications/Tarvo Kovra Start.app";

class Trust : public ::testing::Test {
 protected:
  Trust() { signatures.signedBy(TKS_TEAM_ID, {kLeaf, kIntermediate, kRoot}); }

  /// The reason why checkTrust refuses; "trusted" when it does not.
  std::string verdict() {
    TKSError error;
    if (TKSUtilBase::checkTrust(kBundle, &error)) {
      EXPECT_EQ(error, TKSError());
      return "trusted";
    }
    EXPECT_EQ(error.domain, "com.tarvo.kovra.codesign");
    EXPECT_EQ(error.code, 0);
    return error.localizedDescription;
  }

  std::string launchVerdict() {
    TKSError error;
    if (TKSUtilBase::checkTrustForLaunch(kBundle, &error)) return "trusted";
    EXPECT_EQ(error.domain, "com.tarvo.kovra.codesign");
    EXPECT_EQ(error.code, 0);
    return error.localizedDescription;
  }

  FakeSignatures signatures;
  /// No process is without any preference.
  tks::test::FakePreferences preferences{{{"AppleLocale", "en_US"}}};
  tks::platform::Replaced<tks::platform::Signatures> replaced{signatures};
  LogRecorder log;
};

TEST_F(Trust, AnIntactBundleOfTheMakerIsTrusted) {
  EXPECT_EQ(verdict(), "trusted");
  EXPECT_THAT(signatures.asked, ElementsAre("create", "validity", "create", "information", "name", "name", "name"));
  EXPECT_THAT(signatures.paths, ElementsAre(kBundle, kBundle));
}

TEST_F(Trust, ABundleThatIsTrustedLeavesTheErrorSlotAlone) {
  const TKSError before{"mine", 7, "untouched"};
  TKSError error = before;
  EXPECT_TRUE(TKSUtilBase::checkTrust(kBundle, &error));
  EXPECT_TRUE(TKSUtilBase::checkTrustForLaunch(kBundle, &error));
  EXPECT_TRUE(KVRXCodeSignUtil::codeSignIsValid(TKSURL::fileURLWithPath(kBundle), &error));
  EXPECT_TRUE(KVRXCodeSignUtil::codeSignBelongToTarvo(TKSURL::fileURLWithPath(kBundle), &error));
  EXPECT_EQ(error, before);
  EXPECT_EQ(error.reason, before.reason);
}

TEST_F(Trust, ARelativePathIsCheckedWhereItLeads) {
  const tks::test::TemporaryFolder folder;
  const tks::test::ScopedWorkingFolder here(folder.path());
  EXPECT_TRUE(TKSUtilBase::checkTrust("a/tmp/x.app", nullptr));
  EXPECT_TRUE(TKSUtilBase::checkTrustForLaunch("a/tmp/x.app", nullptr));
  EXPECT_THAT(signatures.paths, testing::Each(std::filesystem::current_path().string() + "/a/tmp/x.app"));
}

TEST_F(Trust, ABundleThatCannotBeOpenedIsNamedByItsURLAndStatus) {
  signatures.createStatus = -67068;
  EXPECT_EQ(verdict(),
            "Failed to get static code when check CodeSign. Target path: "
            "file:///Applications/Tarvo%20Kovra%20Start.app, return code: -67068");
  EXPECT_THAT(signatures.asked, ElementsAre("create"));
  EXPECT_EQ(launchVerdict(), "No code signature info.");
}

TEST_F(Trust, EachValidityStatusHasItsText) {
  const struct {
    std::int32_t status;
    const char* text;
  } rows[] = {
      {-67062, "Code object is not signed at all."},
      {-67054, "A sealed resource is missing or invalid."},
      {-67050, "Code failed to satisfy specified code requirement(s)."},
      {-67030, "invalid Info.plist (plist or signature have been modified)."},
      {-67061, "Codesign verify failed, error code: -67061."},
      {-2147409622, "Codesign verify failed, error code: -2147409622."},
      {1, "Codesign verify failed, error code: 1."},
  };
  signatures.details = "what the framework says";
  for (const auto& row : rows) {
    signatures.validity = row.status;
    EXPECT_EQ(verdict(), std::string(row.text) + " Internal error details: what the framework says");
  }
}

TEST_F(Trust, ABrokenSignatureNeverReachesTheTeamCheck) {
  signatures.validity = -67062;
  verdict();
  EXPECT_THAT(signatures.asked, ElementsAre("create", "validity"));
}

TEST_F(Trust, LaunchingChecksTheMakerAndNotTheIntegrity) {
  signatures.validity = -67054;
  EXPECT_EQ(launchVerdict(), "trusted");
  EXPECT_THAT(signatures.asked, ElementsAre("create", "information", "name", "name", "name"));
}

TEST_F(Trust, InformationThatCannotBeCopiedIsNoInformation) {
  signatures.informationStatus = -67061;
  EXPECT_EQ(verdict(), "No code signature info.");
}

TEST_F(Trust, AnotherTeamIsNotTheMaker) {
  signatures.signedBy("OTHERTEAM1", {kLeaf, kIntermediate, kRoot});
  EXPECT_EQ(verdict(), "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, TheTeamIsComparedExactly) {
  signatures.signedBy("t4rv0k0vra", {kLeaf, kIntermediate, kRoot});
  EXPECT_EQ(verdict(), "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, AMissingTeamIsReportedAsNotFromTheMaker) {
  signatures.information.erase("teamid");
  EXPECT_EQ(verdict(), "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, ATeamThatIsNoTextIsMissing) {
  signatures.information.set("teamid", 7);
  EXPECT_EQ(verdict(), "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, MissingCertificatesAreReportedAfterAnyTeam) {
  signatures.information.erase("certificates");
  EXPECT_EQ(verdict(), "No certificate info included in code signature info.");
  signatures.information.set("teamid", "OTHERTEAM1");
  EXPECT_EQ(verdict(), "No certificate info included in code signature info.");
  signatures.information.erase("teamid");
  EXPECT_EQ(verdict(), "No certificate info included in code signature info.");
}

TEST_F(Trust, AChainOfTwoNamesBothCertificates) {
  signatures.signedBy(TKS_TEAM_ID, {kLeaf, kRoot});
  EXPECT_EQ(verdict(), "Codesign verify failed, wrong certificate structure.. Certificate common name: " + kLeaf +
                           ". Certificate common name: " + kRoot);
}

TEST_F(Trust, AChainOfFourNamesWhatCanBeRead) {
  signatures.signedBy(TKS_TEAM_ID, {kLeaf, "unreadable", kIntermediate, kRoot});
  signatures.nameStatuses["unreadable"] = -50;
  EXPECT_EQ(verdict(), "Codesign verify failed, wrong certificate structure.. Certificate common name: " + kLeaf +
                           ". Certificate common name: " + kIntermediate + ". Certificate common name: " + kRoot);
}

TEST_F(Trust, AnEmptyChainHasTheWrongStructure) {
  signatures.signedBy(TKS_TEAM_ID, {});
  EXPECT_EQ(verdict(), "Codesign verify failed, wrong certificate structure.");
}

TEST_F(Trust, UnreadableNamesAreReportedFromTheRootToTheLeaf) {
  signatures.nameStatuses = {{kRoot, -1}, {kIntermediate, -2}, {kLeaf, -3}};
  EXPECT_EQ(verdict(), "Copy common names failed: -1, -2, -3");
  signatures.nameStatuses = {{kLeaf, -3}};
  EXPECT_EQ(verdict(), "Copy common names failed: 0, 0, -3");
}

TEST_F(Trust, AWrongNameAtAnyLevelShowsAllThree) {
  const std::vector<std::string> chains[] = {
      {"Developer ID Application: Tarvo (OTHERTEAM1)", kIntermediate, kRoot},
      {kLeaf, "developer id certification authority", kRoot},
      {kLeaf, kIntermediate, "Apple Root CA - G2"},
      {kRoot, kIntermediate, kLeaf},
  };
  for (const auto& chain : chains) {
    signatures.signedBy(TKS_TEAM_ID, chain);
    EXPECT_EQ(verdict(), "Codesign verify failed, topLevel name: " + chain[2] + ", secondLevel name: " + chain[1] +
                             ", thirdLevel name: " + chain[0] + ".");
  }
}

TEST_F(Trust, ANullErrorIsAcceptedEverywhere) {
  const TKSURL url = TKSURL::fileURLWithPath(kBundle);
  EXPECT_TRUE(KVRXCodeSignUtil::codeSignIsValid(url, nullptr));
  EXPECT_TRUE(KVRXCodeSignUtil::codeSignBelongToTarvo(url, nullptr));
  signatures.validity = -67062;
  signatures.information = {};
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignIsValid(url, nullptr));
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignBelongToTarvo(url, nullptr));
  EXPECT_FALSE(TKSUtilBase::checkTrust(kBundle, nullptr));
  EXPECT_FALSE(TKSUtilBase::checkTrustForLaunch(kBundle, nullptr));
  signatures.createStatus = -67068;
  EXPECT_FALSE(TKSUtilBase::checkTrust(kBundle, nullptr));
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignInfo(url, nullptr).has_value());
}

TEST_F(Trust, SigningInformationSaysWhichStepFailed) {
  const TKSURL url = TKSURL::fileURLWithPath(kBundle);
  std::string reason = "untouched";
  EXPECT_EQ(KVRXCodeSignUtil::codeSignInfo(url, &reason), signatures.information);
  EXPECT_EQ(reason, "untouched");
  signatures.informationStatus = -67061;
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignInfo(url, &reason).has_value());
  EXPECT_EQ(reason, "Failed to copy signing information.");
  signatures.createStatus = -67068;
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignInfo(url, &reason).has_value());
  EXPECT_EQ(reason, "Failed to get static code.");
}

TEST_F(Trust, TheCheckForInstallingIsThePlainOneAndThenTheOneInDepth) {
  EXPECT_TRUE(tks::checkTrustForInstalling(kBundle, nullptr));
  EXPECT_THAT(signatures.asked,
              ElementsAre("create", "validity", "installing", "create", "information", "name", "name", "name"));
}

TEST_F(Trust, OfAPackageThatFailsInDepthAndIsAnotherMakersTheMakerIsTold) {
  signatures.installValidity = -67061;
  signatures.information.set("teamid", "OTHERTEAM1");
  TKSError error;
  EXPECT_FALSE(tks::checkTrustForInstalling(kBundle, &error));
  EXPECT_EQ(error.localizedDescription, "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, OfAPackageThatCannotBeOpenedTheCheckForInstallingSaysWhatThePlainOneSays) {
  signatures.createStatus = -67068;
  TKSError plain;
  TKSError error;
  EXPECT_FALSE(KVRXCodeSignUtil::codeSignIsValid(TKSURL::fileURLWithPath(kBundle), &plain));
  EXPECT_FALSE(tks::checkTrustForInstalling(kBundle, &error));
  EXPECT_EQ(error, plain);
  EXPECT_THAT(error.localizedDescription, testing::HasSubstr("return code: -67068"));
  EXPECT_FALSE(tks::checkTrustForInstalling(kBundle, nullptr));
}

TEST_F(Trust, TheCheckForInstallingLooksDeeperThanThePlainOneAndLeavesItItsTexts) {
  signatures.installValidity = -67061;
  signatures.details = "nested code";
  TKSError error;
  EXPECT_FALSE(tks::checkTrustForInstalling(kBundle, &error));
  EXPECT_EQ(error.localizedDescription,
            "Codesign verify failed, error code: -67061. Internal error details: nested code");

  signatures.validity = -67062;
  signatures.asked.clear();
  EXPECT_FALSE(tks::checkTrustForInstalling(kBundle, &error));
  EXPECT_THAT(signatures.asked, ElementsAre("create", "validity"));
  EXPECT_THAT(error.localizedDescription, testing::StartsWith("Code object is not signed at all."));
}

TEST_F(Trust, TheStrictRulesAskForThePinnedRootAndTheTeamsCertificate) {
  tks::MakerRules rules = tks::builtInMakerRules();
  const TKSURL url = TKSURL::fileURLWithPath(kBundle);
  rules.strict = false;
  EXPECT_TRUE(tks::signatureSatisfies(rules, url, nullptr));
  EXPECT_THAT(signatures.asked, ElementsAre("create", "information", "name", "name", "name"));

  rules.strict = true;
  rules.pinnedRootSHA256 = "00ff";
  EXPECT_TRUE(tks::signatureSatisfies(rules, url, nullptr));
  EXPECT_EQ(signatures.askedRoot, "00ff");

  TKSError error;
  signatures.unit = "OTHERTEAM1";
  EXPECT_FALSE(tks::signatureSatisfies(rules, url, &error));
  EXPECT_EQ(error.localizedDescription, "Codesign verify failed, the signing certificate is not the team's.");
  signatures.unit = rules.team;
  signatures.unitStatus = -50;
  EXPECT_FALSE(tks::signatureSatisfies(rules, url, &error));

  signatures.unitStatus = 0;
  signatures.leads = false;
  EXPECT_FALSE(tks::signatureSatisfies(rules, url, &error));
  EXPECT_EQ(error.localizedDescription, "Codesign verify failed, the certificates do not lead to the pinned root.");
}

TEST_F(Trust, TheStrictRulesKeepTheTextsOfThePlainOnes) {
  tks::MakerRules rules = tks::builtInMakerRules();
  rules.strict = true;
  signatures.signedBy("OTHERTEAM1", {kLeaf, kIntermediate, kRoot});
  TKSError error;
  EXPECT_FALSE(tks::signatureSatisfies(rules, TKSURL::fileURLWithPath(kBundle), &error));
  EXPECT_EQ(error.localizedDescription, "Codesign verify failed, not from Tarvo.");
}

TEST_F(Trust, TestModeAlwaysSaysThatItWasAskedFor) {
  EXPECT_FALSE(TKSUtilBase::isTestModeTKS());
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Is INSIDER package."}));
}

TEST_F(Trust, ALabDeviceIsInTestMode) {
  preferences.values.set("IsLabDevice", true);
  EXPECT_EQ(tks::isTestMode(true), true);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{4, "Is Lab Device."}));
}

TEST_F(Trust, ALibraryBuiltWithoutTestModeLogsTheSameAndHasNone) {
  preferences.values.set("IsLabDevice", true);
  EXPECT_EQ(tks::isTestMode(false), false);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{4, "Is Lab Device."}));
}

TEST_F(Trust, ALabDevicePreferenceThatIsNoNumberDoesNotCount) {
  preferences.values.set("IsLabDevice", "1");
  EXPECT_FALSE(TKSUtilBase::isTestModeTKS());
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{4, "Type incorrect (1) for key: IsLabDevice"}));
}

TEST_F(Trust, TestModeLaunchesUnsignedBundlesAndStillChecksWhatIsInstalled) {
  preferences.values.set("IsLabDevice", 1);
  signatures.validity = -67062;
  signatures.information = {};
  EXPECT_EQ(TKSUtilBase::checkTrustForLaunch(kBundle, nullptr), TKS_ALLOW_TEST_MODE != 0);
  if (TKS_ALLOW_TEST_MODE != 0) {
    EXPECT_THAT(signatures.asked, IsEmpty());
    EXPECT_THAT(log.lines(),
                ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{4, "Is Lab Device."},
                            LogLine{4, "Is TEST Mode. Ignore trust check. More info: " TKS_TEST_MODE_HELP_URL}));
  }
  EXPECT_FALSE(TKSUtilBase::checkTrust(kBundle, nullptr));
}

TEST_F(Trust, WithoutTestModeALaunchOfAnUnsignedBundleIsRefused) {
  signatures.information = {};
  signatures.information.set("main-executable", "file:///Applications/A.app/Contents/MacOS/A");
  EXPECT_EQ(launchVerdict(), "No certificate info included in code signature info.");
}

}  // namespace
