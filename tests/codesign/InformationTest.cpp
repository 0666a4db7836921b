#include <gtest/gtest.h>

#include "tests/codesign/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::codesign::HashType;
using tks::signing::SigningOptions;

TEST(Information, OfSignedCodeSaysWhoSignedWhat) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", tks::signing::makeImage({}));
  TKSDictionary information = informationOf(app);
  EXPECT_EQ(information.size(), 1u);
  EXPECT_TRUE(information.contains("main-executable"));

  signAs(app, "maker", [](SigningOptions& options) {
    options.hashTypes = {HashType::sha1, HashType::sha256};
    options.requirement = "identifier \"com.tarvo.A\" and certificate leaf[subject.OU] = T4RV0K0VRA";
    options.entitlements = "<plist version=\"1.0\"><dict><key>a</key><true/></dict></plist>";
    options.version = 0x20500;
    options.runtimeVersion = 0xa0e00;
  });
  information = informationOf(app);
  EXPECT_EQ(information["identifier"], TKSValue("com.tarvo.A"));
  EXPECT_EQ(information["teamid"], TKSValue("T4RV0K0VRA"));
  EXPECT_EQ(information["certificates"].array().size(), 3u);
  EXPECT_EQ(information["digest-algorithm"], TKSValue(2));
  EXPECT_EQ(information["digest-algorithms"].array().size(), 2u);
  EXPECT_EQ(information["cdhashes"][1], information["unique"]);
  EXPECT_EQ(information["unique"].data().size(), 20u);
  EXPECT_EQ(information["cdhashes-full"]["2"].data().size(), 32u);
  EXPECT_EQ(information["runtime-version"], TKSValue(0xa0e00));
  EXPECT_EQ(information["entitlements-dict"]["a"], TKSValue(true));
  EXPECT_EQ(information["info-plist"]["CFBundleExecutable"], TKSValue("A"));
  EXPECT_EQ(information["designated-requirement"],
            TKSValue("identifier \"com.tarvo.A\" and certificate leaf[subject.OU] = T4RV0K0VRA"));
  EXPECT_TRUE(information["signing-time"].isDate());
  EXPECT_FALSE(information.contains("signing-timestamp"));
  EXPECT_EQ(statusOf(app), 0);

  append(app + "/Contents/Info.plist", " ");
  EXPECT_FALSE(informationOf(app).contains("info-plist"));
  signAs(app, "nobody");
  information = informationOf(app);
  EXPECT_TRUE(information.contains("cms"));
  EXPECT_FALSE(information.contains("certificates"));
  EXPECT_FALSE(information.contains("teamid"));
}

TEST(Information, OfABrokenSignatureKeepsWhatIsInOrder) {
  TemporaryFolder folder;
  const std::string app = makeApp(folder / "A.app", elfProgram());
  signAs(app);
  const std::string message = app + "/Contents/_CodeSignature/CodeSignature";
  flip(message, fs::file_size(message) - 1);
  const TKSDictionary information = informationOf(app);
  EXPECT_EQ(information["teamid"], TKSValue("T4RV0K0VRA"));
  EXPECT_TRUE(information.contains("cms"));
  EXPECT_FALSE(information.contains("certificates"));
  EXPECT_FALSE(information.contains("info-plist"));
}

}  // namespace
