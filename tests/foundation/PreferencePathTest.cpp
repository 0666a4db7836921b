#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrintValue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace tks::test;

class PreferencePath : public testing::Test {
 protected:
  FakeHome home_;
  LogRecorder log_;
};

TEST_F(PreferencePath, ReadingWithoutAKeyPathIsAnError) {
  EXPECT_TRUE(TKSUtilBase::getPreference({}).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No key path given, fail to get preference."}));
}

TEST_F(PreferencePath, WritingChecksTheKeyPathAndThenTheValue) {
  EXPECT_FALSE(TKSUtilBase::setPreference({}, TKSValue()));
  EXPECT_FALSE(TKSUtilBase::setPreference({"a"}, TKSValue()));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No key path given, fail to set preference."},
                                        LogLine{8, "No value given, fail to set preference."}));
}

TEST_F(PreferencePath, OneKeyIsStoredAndReadBack) {
  EXPECT_TRUE(TKSUtilBase::setPreference({"a"}, 1));
  EXPECT_EQ(TKSUtilBase::getPreference({"a"}), TKSValue(1));
  EXPECT_TRUE(TKSUtilBase::setPreference({"a"}, "text"));
  EXPECT_EQ(TKSUtilBase::getPreference({"a"}), TKSValue("text"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(PreferencePath, AMissingKeyIsNothing) {
  ASSERT_TRUE(TKSUtilBase::setPreference({"there"}, 1));
  EXPECT_TRUE(TKSUtilBase::getPreference({"missing"}).isNothing());
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_TRUE(TKSUtilBase::getPreference({"missing", "b"}).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "No value for key: missing"}));
}

TEST_F(PreferencePath, AUserWithoutAnyPreferenceJustMissesTheOneAskedFor) {
  EXPECT_TRUE(TKSUtilBase::getPreference({"missing"}).isNothing());
  EXPECT_TRUE(TKSUtilBase::getPreference({"missing", "b"}).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "No value for key: missing"}));
}

TEST_F(PreferencePath, SeveralKeysStoreInsideOfDictionaries) {
  EXPECT_TRUE(TKSUtilBase::setPreference({"a", "b"}, 1));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_TRUE(TKSUtilBase::setPreference({"a", "c", "d"}, 2));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4,
                                                "No intermediate dict for key 'c', or existing value type conflict "
                                                "'(null)', create and replace it."}));
  EXPECT_EQ(TKSUtilBase::getPreference({"a"}), TKSValue(TKSDictionary{{"b", 1}, {"c", TKSDictionary{{"d", 2}}}}));
  EXPECT_EQ(TKSUtilBase::getPreference({"a", "c", "d"}), TKSValue(2));
}

TEST_F(PreferencePath, WhatIsNoDictionaryUnderTheFirstKeyIsNeverReplaced) {
  ASSERT_TRUE(TKSUtilBase::setPreference({"a"}, "text"));
  EXPECT_FALSE(TKSUtilBase::setPreference({"a", "b"}, 1));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "The value: text for Key: a in preference is not a dict"}));
  EXPECT_EQ(TKSUtilBase::getPreference({"a"}), TKSValue("text"));
}

TEST_F(PreferencePath, WhatIsNoDictionaryFurtherDownIsReplacedWithAWarning) {
  ASSERT_TRUE(TKSUtilBase::setPreference({"a", "b"}, "text"));
  EXPECT_TRUE(TKSUtilBase::setPreference({"a", "b", "c"}, 1));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4,
                                                "No intermediate dict for key 'b', or existing value type conflict "
                                                "'text', create and replace it."}));
  EXPECT_EQ(TKSUtilBase::getPreference({"a", "b", "c"}), TKSValue(1));
}

TEST_F(PreferencePath, TheConflictLineIsMasked) {
  ASSERT_TRUE(TKSUtilBase::setPreference({"who"}, "/Users/janeroe/x"));
  EXPECT_FALSE(TKSUtilBase::setPreference({"who", "b"}, 1));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{8, "The value: /Users/*******/x for Key: who in preference is not a dict"}));
}

TEST_F(PreferencePath, WhatCannotBeStoredIsReported) {
  const FakeHome missing(home_ / "missing");
  EXPECT_FALSE(TKSUtilBase::setPreference({"a"}, 1));
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_TRUE(errors.front().starts_with("Fail to store preference 'a': Error Domain=")) << errors.front();
}

TEST_F(PreferencePath, AllDomainsAreRead) {
  std::filesystem::create_directories(home_ / "Library/Preferences");
  ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(
      {{"global", TKSDictionary{{"a", 1}}}}, home_ / "Library/Preferences/.GlobalPreferences.plist", nullptr));
  ASSERT_TRUE(TKSUtilBase::setPreference({"own"}, 2));
  EXPECT_EQ(TKSUtilBase::getPreference({"global", "a"}), TKSValue(1));
  EXPECT_EQ(TKSUtilBase::getPreference({"own"}), TKSValue(2));
}

TEST_F(PreferencePath, StoringInsideOfAGlobalDictionaryKeepsItsOtherValues) {
  std::filesystem::create_directories(home_ / "Library/Preferences");
  ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(
      {{"global", TKSDictionary{{"a", 1}}}}, home_ / "Library/Preferences/.GlobalPreferences.plist", nullptr));
  EXPECT_TRUE(TKSUtilBase::setPreference({"global", "b"}, 2));
  EXPECT_EQ(TKSUtilBase::getPreference({"global"}), TKSValue(TKSDictionary{{"a", 1}, {"b", 2}}));
}

}  // namespace
