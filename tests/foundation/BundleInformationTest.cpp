#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/values/Base64.h"
#include "platform/platform.h"
#include "tests/support/FakeBundles.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrintValue.h"
#include "tests/support/PropertyListSamples.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace tks::test;
namespace fs = std::filesystem;

class BundleInformation : public testing::Test {
 protected:
  void writeInfo(const std::string& name, const TKSDictionary& information) {
    const std::string path = app_ + "/" + name;
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(information, path, nullptr));
  }
  LogLine noInfoPlist(const std::string& key) {
    return {4, "Fail to get value of key:" + key + ". Info.plist in appPath:" + app_ + " doesn't exist."};
  }

  TemporaryFolder folder_;
  std::string app_ = folder_ / "Sample.app";
  LogRecorder log_;
};

TEST_F(BundleInformation, AnEmptyPathOrKeyIsReported) {
  EXPECT_TRUE(TKSUtilBase::getValueInInfoPlist("", "key").isNothing());
  EXPECT_TRUE(TKSUtilBase::getValueInInfoPlist(app_, "").isNothing());
  EXPECT_TRUE(TKSUtilBase::getBundleVersion("").isNothing());
  const LogLine line{4, "AppPath or key is nil or empty."};
  EXPECT_THAT(log_.lines(), ElementsAre(line, line, line));
}

TEST_F(BundleInformation, AMissingApplicationIsReported) {
  EXPECT_TRUE(TKSUtilBase::getValueInInfoPlist(app_, "key").isNothing());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{4, "Fail to get value of key:key. App in path:" + app_ + " doesn't exist."}));
}

TEST_F(BundleInformation, ThePathOfTheApplicationIsMasked) {
  TKSUtilBase::getValueInInfoPlist("/Users/janeroe/Sample.app", "key");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{4,
                                  "Fail to get value of key:key. App in path:/Users/*******/Sample.app doesn't "
                                  "exist."}));
}

TEST_F(BundleInformation, AValueOfTheInformationFileIsAnswered) {
  writeInfo("Contents/Info.plist", {{"CFBundleVersion", "44.1.2"}, {"list", TKSArray{1}}});
  EXPECT_EQ(TKSUtilBase::getValueInInfoPlist(app_, "list"), TKSValue(TKSArray{1}));
  EXPECT_EQ(TKSUtilBase::getBundleVersion(app_), TKSValue("44.1.2"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(BundleInformation, AnAbsentKeyIsNothingWithoutALine) {
  writeInfo("Contents/Info.plist", {{"CFBundleName", "Sample"}});
  EXPECT_TRUE(TKSUtilBase::getBundleVersion(app_).isNothing());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(BundleInformation, ABundleWithoutTheFileStillAnswersFromTheBundleObject) {
  writeInfo("Info.plist", {{"CFBundleVersion", "7"}});
  EXPECT_EQ(TKSUtilBase::getBundleVersion(app_), TKSValue("7"));
  EXPECT_THAT(log_.lines(), ElementsAre(noInfoPlist("CFBundleVersion")));
}

TEST_F(BundleInformation, AFolderWithoutInformationIsReportedAndNothing) {
  fs::create_directory(app_);
  EXPECT_TRUE(TKSUtilBase::getBundleVersion(app_).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(noInfoPlist("CFBundleVersion")));
}

TEST_F(BundleInformation, AFileInPlaceOfTheApplicationIsReportedAndNothing) {
  writeFile(app_, "");
  EXPECT_TRUE(TKSUtilBase::getBundleVersion(app_).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(noInfoPlist("CFBundleVersion")));
}

TEST_F(BundleInformation, ABrokenInformationFileIsNothing) {
  for (const std::string& content : {std::string(), std::string("garbage"), plist::nestedArraysXml(100000)}) {
    writeFile(app_ + "/Contents/Info.plist", content);
    EXPECT_TRUE(TKSUtilBase::getBundleVersion(app_).isNothing());
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(BundleInformation, TheFileComesBeforeTheBundleObject) {
  writeInfo("Contents/Info.plist", {{"CFBundleName", "Sample"}});
  // What the system's bundle object knows beyond the file, for example localised values.
  tks::test::PlayedBundles bundles;
  bundles.declared[app_] = {app_, "", "", {{"CFBundleName", "Muster"}, {"other", 1}}};
  EXPECT_EQ(TKSUtilBase::getValueInInfoPlist(app_, "CFBundleName"), TKSValue("Sample"));
  EXPECT_EQ(bundles.opened(), "");
  EXPECT_EQ(TKSUtilBase::getValueInInfoPlist(app_, "other"), TKSValue(1));
  EXPECT_EQ(bundles.opened(), app_);
}

// Client package parameters.

std::string encoded(std::string_view json) { return tks::base64::encode(plist::bytesOf(json)); }

class ClientPackageParam : public testing::Test {
 protected:
  LogRecorder log_;
};

TEST_F(ClientPackageParam, IsReadByItsKeyPath) {
  const std::string text = encoded(R"({"kovra":{"JoinFirstVersions":["44.1"],"n":1.5,"null":null},"common":true})");
  EXPECT_EQ(TKSUtilBase::getClientPackageParam(text, {"common"}), TKSValue(true));
  EXPECT_EQ(TKSUtilBase::getClientPackageParam(text, {"kovra", "JoinFirstVersions"}), TKSValue(TKSArray{"44.1"}));
  EXPECT_EQ(TKSUtilBase::getClientPackageParam(text, {"kovra", "n"}), TKSValue(1.5));
  EXPECT_EQ(TKSUtilBase::getClientPackageParam(text, {"kovra", "null"}), TKSValue(TKSNull()));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ClientPackageParam, UnknownCharactersInTheBase64AreIgnored) {
  std::string text = encoded(R"({"a":1})");
  text.insert(5, "\r\n *");
  EXPECT_EQ(TKSUtilBase::getClientPackageParam(text, {"a"}), TKSValue(1));
}

TEST_F(ClientPackageParam, MissingLevelsAreNothingWithoutALine) {
  const std::string text = encoded(R"({"a":{"b":1},"list":[{"b":2}]})");
  for (const TKSKeyPath& path : {TKSKeyPath{"x"}, TKSKeyPath{"a", "x"}, TKSKeyPath{"a", "b", "c"},
                                 TKSKeyPath{"x", "y", "z"}, TKSKeyPath{"list", "b"}, TKSKeyPath{"list", "0"}}) {
    EXPECT_TRUE(TKSUtilBase::getClientPackageParam(text, path).isNothing());
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ClientPackageParam, AnEmptyTextOrPathIsReported) {
  EXPECT_TRUE(TKSUtilBase::getClientPackageParam("", {"a", "b"}).isNothing());
  EXPECT_TRUE(TKSUtilBase::getClientPackageParam("e30=", {}).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "No JSONStr '' or no keyPath '(\n    a,\n    b\n)'"},
                                        LogLine{4, "No JSONStr 'e30=' or no keyPath '(\n)'"}));
}

TEST_F(ClientPackageParam, WhatIsNoBase64IsReported) {
  EXPECT_TRUE(TKSUtilBase::getClientPackageParam("abc", {"a"}).isNothing());
  EXPECT_TRUE(TKSUtilBase::getClientPackageParam("!?", {"a"}).isNothing());
  EXPECT_TRUE(TKSUtilBase::getClientPackageParam("=e30", {"a"}).isNothing());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{4, "JSONStr 'abc' is not base64ed!"}, LogLine{4, "JSONStr '!?' is not base64ed!"},
                          LogLine{4, "JSONStr '=e30' is not base64ed!"}));
}

TEST_F(ClientPackageParam, WhatIsNoJsonIsNothingWithoutALine) {
  for (const char* json : {"{", "no json", "7", "\"text\"", "{\"a\":1", "\xFF"}) {
    EXPECT_TRUE(TKSUtilBase::getClientPackageParam(encoded(json), {"a"}).isNothing()) << json;
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
