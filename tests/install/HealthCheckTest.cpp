#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>
#include <tksinterface/TKSUtilBaseHelper.h>

#include <filesystem>

#include "platform/platform.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/FakeTools.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::platform::Tool;
using tks::test::FakeTools;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::TemporaryFolder;

class HealthCheck : public ::testing::Test {
 protected:
  HealthCheck() {
    std::filesystem::create_directory(app);
    tools.play(Tool::spctl, [this](const auto&) {
      tks::platform::ToolResult result = fate;
      result.output = assessment;
      return result;
    });
    tools.playOthers(
        [this](const auto&) { return noFingerprint ? FakeTools::unstarted() : FakeTools::printed(fingerprint); });
  }

  std::string origin() const { return "origin=" + std::string(kTarvoCertificate) + "\n"; }

  TemporaryFolder folder;
  /// Of a length that masking leaves alone.
  std::string app = folder / "A.app";
  std::string shown = TKSILog::removeSensitiveInformation(app);
  /// What the tool of the assessment prints, and how it fares.
  std::string assessment;
  tks::platform::ToolResult fate = FakeTools::printed("");
  /// What the tool of the fingerprint prints, unless it is missing.
  std::string fingerprint = "1111  -\n";
  bool noFingerprint = false;
  FakeTools tools;
  /// No process is without any preference.
  tks::test::FakePreferences preferences{{{"AppleLocale", "en_US"}}};
  LogRecorder log;
};

TEST_F(HealthCheck, ANameThatLooksLikeAnOptionReachesNoToolAsOne) {
  const tks::test::ScopedWorkingFolder here(folder.path());
  std::filesystem::create_directory("-x.app");
  assessment = "./-x.app: accepted\nsource=Notarized Developer ID\n";
  EXPECT_FALSE(TKSUtilBase::isBrokenApp("-x.app"));
  ASSERT_EQ(tools.requests.size(), 2u);
  for (const auto& request : tools.requests) EXPECT_EQ(request.arguments.back(), "./-x.app");
}

TEST_F(HealthCheck, AMissingBundleIsBrokenWithoutAsking) {
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(folder / "None.app"));
  EXPECT_THAT(tools.requests, IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "App doesn't exist. Consider it broken."}));
}

TEST_F(HealthCheck, InTestModeEverythingIsHealthyAndNothingIsRecorded) {
  preferences.values.set("IsLabDevice", true);
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_THAT(tools.requests, IsEmpty());
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{4, "Is Lab Device."},
                                       LogLine{4, "Is TEST Mode. Ignore app broken check."}));
}

TEST_F(HealthCheck, AnAcceptedAppIsHealthyAndIsNotAssessedAgainWhileItsFingerprintHolds) {
  assessment = app + ": accepted\nsource=Notarized Developer ID\n";
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app), "1111  -");
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          LogLine{4, "Is INSIDER package."}, LogLine{2, "Verify app's broken status, begin."},
          LogLine{2, "No recorded hashValue or dismatched. Continue checking broken status with spctl."},
          LogLine{2, "Verify app's broken status, end. Broken status:0.[0:healthy, 1:broken] for app: " + shown + "."},
          LogLine{2, "Succeed to record hashValue:1111  - for healthy app: " + shown + "."}));

  log.clear();
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(tools.runs(Tool::spctl), 1u);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{2, "Verify app's broken status, begin."},
                          LogLine{2, "Has recorded hashValue:1111  - with app:" + shown + ". Check with it."},
                          LogLine{2,
                                  "Verify app's broken status, end. Matched hashValue. Broken status:0 [0:healthy, "
                                  "1:broken] for app:" +
                                      shown + "."}));
}

TEST_F(HealthCheck, AnotherFingerprintLeadsToAnotherAssessment) {
  assessment = app + ": accepted\n";
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  fingerprint = "2222  -\n";
  log.clear();
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(tools.runs(Tool::spctl), 2u);
  EXPECT_TRUE(
      log.has(4, "Dismatched hashValue, need further check. RecordedHashValue:1111  -, currentHashValue:2222  -."));
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app), "2222  -");
}

TEST_F(HealthCheck, AcceptedCountsInAnyLetterCase) {
  assessment = app + ": ACCEPTED\n";
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
}

TEST_F(HealthCheck, TheMakersNotarizedAppIsHealthyThoughNotAccepted) {
  assessment = app + ": rejected\nsource=Notarized Developer ID\n" + origin();
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Verify result not accepted, go further check"));
  EXPECT_TRUE(log.has(4, "Further verify result: 0, 1, 1"));
}

TEST_F(HealthCheck, OneMarkAloneIsNotEnough) {
  assessment = app + ": rejected\nsource=Notarized Developer ID\n";
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 1, 0"));
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  log.clear();
  assessment = app + ": rejected\nsource=Unnotarized\n" + origin();
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 0, 1"));
}

TEST_F(HealthCheck, ALineWithBothMarksCountsForTheFirstAlone) {
  assessment = app + ": rejected\nNotarized Developer ID " + origin();
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 1, 0"));
}

TEST_F(HealthCheck, MarksAreCaseSensitive) {
  assessment = app + ": rejected\nsource=notarized developer id\n" + origin();
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 0, 1"));
}

TEST_F(HealthCheck, ASilentToolMakesTheAppBroken) {
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 0, 0"));
  EXPECT_TRUE(log.has(8, "Broken details: "));
}

TEST_F(HealthCheck, DetailsOfABrokenAppAreMasked) {
  assessment = app + ": a sealed resource is missing\nfile added: /Users/jane/secret\n";
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  const std::string masked = TKSILog::removeSensitiveInformation(assessment);
  ASSERT_THAT(masked, testing::Not(testing::HasSubstr("jane")));
  EXPECT_THAT(log.texts(8), ElementsAre("Broken details: " + masked));
}

TEST_F(HealthCheck, WithoutAVerdictNothingIsBrokenAndNothingIsRecorded) {
  const tks::platform::ToolResult missing = FakeTools::unstarted();
  tks::platform::ToolResult hanging{
      .started = true, .output = "", .exitCode = -1, .error = {"NSPOSIXErrorDomain", 110, "timed out"}};
  hanging.cutShort = true;
  for (const tks::platform::ToolResult& one : {missing, hanging}) {
    fate = one;
    // What it had printed until then is no verdict, not even a good one.
    for (const std::string& printed : {std::string(), app + ": accepted\n", app + ": rejected\n"}) {
      assessment = printed;
      log.clear();
      EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
      EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
      EXPECT_THAT(log.lines(),
                  ElementsAre(LogLine{4, "Is INSIDER package."}, LogLine{2, "Verify app's broken status, begin."},
                              LogLine{2,
                                      "No recorded hashValue or dismatched. Continue checking broken status with "
                                      "spctl."},
                              LogLine{8, "No verdict of spctl, consider the app as not broken: " + shown +
                                             ". Reason: " + fate.error.description()}));
    }
  }
}

TEST_F(HealthCheck, AToolThatCouldNotLookHasGivenNoVerdict) {
  fate.exitCode = 75;
  assessment = app + ": Too many open files\n";
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_THAT(log.texts(8), ElementsAre("No verdict of spctl, consider the app as not broken: " + shown +
                                        ". Reason: " + shown + ": Too many open files\n"));
}

TEST_F(HealthCheck, AnEarlierFingerprintIsKeptWhateverALaterAssessmentSays) {
  assessment = app + ": accepted\n";
  ASSERT_FALSE(TKSUtilBase::isBrokenApp(app));
  fingerprint = "2222  -\n";
  assessment = app + ": rejected\n";
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app), "1111  -");
  fate = FakeTools::unstarted();
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app), "1111  -");
  // As it was found healthy: nobody asks again.
  fingerprint = "1111  -\n";
  const std::size_t before = tools.runs(Tool::spctl);
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_EQ(tools.runs(Tool::spctl), before);
}

TEST_F(HealthCheck, AMissingToolForFingerprintsIsNamedAndTheVerdictCounts) {
  assessment = app + ": accepted\n";
  noFingerprint = true;
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(app));
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_THAT(log.texts(8), ElementsAre("System tool failed: " + FakeTools::unstarted().error.description()));
  EXPECT_TRUE(log.has(4, "Nil/empty hashValue! Fail to set hash value."));
}

TEST_F(HealthCheck, OutputThatIsNoTextSaysNothing) {
  assessment = app + ": accepted\n\xff\xfe";
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(app));
}

TEST_F(HealthCheck, WordsThatThePathEchoesDoNotCount) {
  const std::string lying = folder / ("B: accepted Notarized Developer ID " + std::string(kTarvoCertificate) + ".app");
  std::filesystem::create_directory(lying);
  assessment = lying + ": rejected\nfile added: " + lying + "/Contents/Notarized Developer ID\nsee " + lying + "/" +
               std::string(kTarvoCertificate) + "\n" + "note: " + lying + ": accepted\n";
  EXPECT_TRUE(TKSUtilBase::isBrokenApp(lying));
  EXPECT_TRUE(log.has(4, "Further verify result: 1, 0, 0"));
}

TEST_F(HealthCheck, TheToolsAreAskedWithTheirArguments) {
  assessment = app + ": accepted\n";
  TKSUtilBase::isBrokenApp(app);
  ASSERT_EQ(tools.requests.size(), 2u);
  EXPECT_THAT(tools.requests[0].arguments, ElementsAre("-a", "-vvv", app));
  EXPECT_TRUE(tools.requests[0].collectStandardError);
  EXPECT_EQ(tools.requests[1].tool, Tool::lsof);
  EXPECT_THAT(tools.requests[1].arguments, ElementsAre("-g", "-o", "-R", app));
  EXPECT_EQ(tools.requests[1].pipedInto, Tool::shasum);
}

TEST_F(HealthCheck, AMissingAppHasNoFingerprint) {
  const std::string none = folder / "None.app";
  EXPECT_EQ(TKSUtilBase::hashFilePropertiesWithAppPath(none), std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "App doesn't exist. Nil hash of file properties with app:" +
                                                      TKSILog::removeSensitiveInformation(none) + "."}));
}

TEST_F(HealthCheck, FingerprintsOfNoPathOrNoValueAreNotRecorded) {
  TKSUtilBaseHelper::setHashValueOfAppPath("");
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(""), std::nullopt);
  fingerprint = " \n";
  TKSUtilBaseHelper::setHashValueOfAppPath(app);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Nil/empty appPath! Fail to set hash value."},
                                       LogLine{4, "Nil/empty appPath! Fail to get hash value."},
                                       LogLine{4, "Nil/empty hashValue! Fail to set hash value."}));
  EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
}

TEST_F(HealthCheck, RecordedFingerprintsStandInTheDictionaryUnderTheirPath) {
  TKSUtilBaseHelper::setHashValueOfAppPath(app);
  EXPECT_TRUE(TKSUtilBaseHelper::hasHashValueWithAppPath(app));
  EXPECT_EQ(TKSUtilBaseHelper::sharedInstance().appHashDict().at(app), "1111  -");
  EXPECT_EQ(TKSUtilBaseHelper::getHashValueOfAppPath(app + "/"), std::nullopt);
}

TEST_F(HealthCheck, AnAppThatWasNeverUsedWillShowTheDialog) {
  EXPECT_FALSE(TKSUtilBase::appHaveBeenUsed(app));
  EXPECT_TRUE(TKSUtilBase::willShowVerifyDialogFor(app));
}

TEST_F(HealthCheck, AnAppThatWasUsedWillShowNoDialog) {
  class Used final : public tks::test::NoApplications {
   public:
    bool hasLastUsedDate(std::string_view path) override { return path.ends_with(".app"); }
  } applications;
  const tks::platform::Replaced<tks::platform::RunningApplications> replaced(applications);
  EXPECT_TRUE(TKSUtilBase::appHaveBeenUsed(app));
  EXPECT_FALSE(TKSUtilBase::willShowVerifyDialogFor(app));
}

}  // namespace
