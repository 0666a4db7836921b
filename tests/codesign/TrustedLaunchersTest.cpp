#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tksinterface/TKSUtilBase.h>

#include "tests/codesign/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;

TEST(TrustedLaunchers, AreRefusedWithTheDescribedTextWhenTheyAreNotTheMakers) {
  TemporaryFolder folder;
  const auto verdict = [&](const std::string& kind) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, elfProgram());
    if (kind != "unsigned") signAs(app, kind);
    TKSError error;
    return TKSUtilBase::checkTrust(app, &error) ? "trusted" : error.localizedDescription;
  };
  EXPECT_EQ(verdict("maker"), "trusted");
  EXPECT_EQ(verdict("other team"), "Codesign verify failed, not from Tarvo.");
  EXPECT_EQ(
      verdict("two levels"),
      "Codesign verify failed, wrong certificate structure.. Certificate common name: Developer ID Application: Tarvo "
      "(T4RV0K0VRA). Certificate common name: Apple Root CA");
  EXPECT_THAT(verdict("four levels"), ::testing::StartsWith("Codesign verify failed, wrong certificate structure.."));
  EXPECT_EQ(
      verdict("other leaf name"),
      "Codesign verify failed, topLevel name: Apple Root CA, secondLevel name: Developer ID Certification Authority, "
      "thirdLevel name: Developer ID Application: Tarvo (OTHERTEAM1).");
  EXPECT_THAT(verdict("unsigned"), ::testing::StartsWith("Code object is not signed at all. Internal error details: "));
}

TEST(TrustedLaunchers, AreRefusedWithTheDescribedTextWhenTheyWereAltered) {
  TemporaryFolder folder;
  const auto verdictAfter = [&](const std::function<void(const std::string& app)>& alter) {
    const std::string app = folder / "A.app";
    fs::remove_all(app);
    makeApp(app, elfProgram());
    signAs(app);
    alter(app);
    TKSError error;
    EXPECT_FALSE(TKSUtilBase::checkTrust(app, &error));
    EXPECT_EQ(error.domain, "com.tarvo.kovra.codesign");
    EXPECT_EQ(error.code, 0);
    return error.localizedDescription;
  };
  EXPECT_THAT(verdictAfter([](const std::string& app) { append(app + "/Contents/Resources/notes.txt", "x"); }),
              ::testing::StartsWith("A sealed resource is missing or invalid. Internal error details: "));
  EXPECT_THAT(
      verdictAfter([](const std::string& app) { append(app + "/Contents/Info.plist", "x"); }),
      ::testing::StartsWith("invalid Info.plist (plist or signature have been modified). Internal error details: "));
  EXPECT_THAT(verdictAfter([](const std::string& app) { flip(app + "/Contents/MacOS/A", 100); }),
              ::testing::StartsWith("Codesign verify failed, error code: -67061. Internal error details: "));
}

TEST(TrustedLaunchers, LeadToThePinnedRootUnderStrictRules) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const TKSArray chain = informationOf(app)["certificates"].array();
  std::string pin = tks::signing::fingerprintOf(identity().chain.back().get());
  EXPECT_TRUE(tks::platform::signatures().leadsToRoot(chain, pin));
  for (char& digit : pin) digit = digit >= 'a' ? static_cast<char>(digit - 32) : digit;
  EXPECT_TRUE(tks::platform::signatures().leadsToRoot(chain, pin));
  EXPECT_FALSE(tks::platform::signatures().leadsToRoot(
      chain, tks::signing::fingerprintOf(identity("other team").chain.back().get())));
  EXPECT_FALSE(tks::platform::signatures().leadsToRoot(TKSArray(), pin));
  std::string unit;
  EXPECT_EQ(tks::platform::signatures().organizationalUnit(chain[0].data(), unit), 0);
  EXPECT_EQ(unit, "T4RV0K0VRA");
  EXPECT_NE(tks::platform::signatures().commonName(TKSData{1, 2}, unit), 0);
}

}  // namespace
