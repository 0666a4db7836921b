#include "foundation/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedOptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tks::OptionRow;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::ScopedOptions;

/// A value that switches a field on.
void switchOn(bool& field) { field = true; }
void switchOn(std::int64_t& field) { field = 7; }
void switchOn(std::string& field) { field = std::string(64, 'a'); }  // a digest as well
void switchOn(std::vector<std::string>& field) { field = {"one", "two"}; }

TKSOptions only(const OptionRow& row) {
  TKSOptions options;
  std::visit([&](const auto field) { switchOn(options.*field); }, row.field);
  return options;
}

std::string refusal(const std::string& json) {
  TKSError error;
  const TKSValue values = TKSUtilBase::JSONStringToObject(json);
  EXPECT_TRUE(values.isDictionary()) << json;
  EXPECT_FALSE(TKSOptions::optionsFromDictionary(values.dictionary(), &error)) << json;
  EXPECT_EQ(error.reason, TKSErrorReason::invalidArgument);
  return error.localizedDescription;
}

TEST(Options, AllAreOffAtFirst) {
  const TKSOptions off;
  EXPECT_EQ(TKSOptions::options(), off);
  EXPECT_TRUE(off.dictionary().empty());
  for (const OptionRow& row : tks::optionRows()) EXPECT_FALSE(tks::isOn(row, off)) << row.name;
}

TEST(Options, EachStandsOnceInTheTableAndGoesThroughItsName) {
  std::set<std::string_view> names;
  for (const OptionRow& row : tks::optionRows()) {
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_TRUE(row.effect.ends_with('.')) << row.name;
    const TKSOptions options = only(row);
    const TKSDictionary values = options.dictionary();
    ASSERT_EQ(values.size(), 1U) << row.name;
    EXPECT_TRUE(values.find(row.name)) << row.name;
    EXPECT_EQ(TKSOptions::optionsFromDictionary(values), options) << row.name;
  }
}

TEST(Options, AreReadFromJson) {
  const auto options = TKSOptions::optionsFromDictionary(
      TKSUtilBase::JSONStringToObject(
          R"({"helloLimit": 30000, "httpsOnly": true, "launcherEnvironment": ["HOME", "PATH"], "privatePipes": false})")
          .dictionary());
  ASSERT_TRUE(options);
  EXPECT_EQ(options->helloLimit, 30000);
  EXPECT_TRUE(options->httpsOnly);
  EXPECT_FALSE(options->privatePipes);
  EXPECT_THAT(options->launcherEnvironment, ElementsAre("HOME", "PATH"));
}

TEST(Options, UnknownNamesAndWrongKindsAreNamed) {
  EXPECT_EQ(refusal(R"({"helloLimits": 1})"), "Unknown option: helloLimits");
  EXPECT_EQ(refusal(R"({"": 1})"), "Unknown option: ");
  EXPECT_EQ(refusal(R"({"helloLimit": "1"})"), "Option of another kind: helloLimit has to be a whole number.");
  EXPECT_EQ(refusal(R"({"helloLimit": 1.5})"), "Option of another kind: helloLimit has to be a whole number.");
  EXPECT_EQ(refusal(R"({"helloLimit": true})"), "Option of another kind: helloLimit has to be a whole number.");
  EXPECT_EQ(refusal(R"({"helloLimit": null})"), "Option of another kind: helloLimit has to be a whole number.");
  EXPECT_EQ(refusal(R"({"httpsOnly": 1})"), "Option of another kind: httpsOnly has to be true or false.");
  EXPECT_EQ(refusal(R"({"launcherEnvironment": "HOME"})"),
            "Option of another kind: launcherEnvironment has to be an array of texts.");
  EXPECT_EQ(refusal(R"({"launcherEnvironment": ["HOME", 1]})"),
            "Option of another kind: launcherEnvironment has to be an array of texts.");
}

TEST(Options, ValuesOutOfTheirRangeAreRefused) {
  EXPECT_EQ(refusal(R"({"helloLimit": -1})"), "Option out of its range: helloLimit");
  EXPECT_EQ(refusal(R"({"helloLimit": 2147483648})"), "Option out of its range: helloLimit");
  EXPECT_EQ(refusal(R"({"helloLimit": 18446744073709551615})"), "Option out of its range: helloLimit");
  EXPECT_EQ(refusal(R"({"largestFrame": 4294967296})"), "Option out of its range: largestFrame");
  EXPECT_EQ(refusal(R"({"pinnedRoot": "abc"})"), "Option out of its range: pinnedRoot");
  EXPECT_EQ(refusal("{\"pinnedRoot\": \"" + std::string(63, 'a') + "g\"}"), "Option out of its range: pinnedRoot");
  EXPECT_EQ(refusal(R"({"pinnedTeam": "A\u0000B"})"), "Option out of its range: pinnedTeam");
  EXPECT_EQ(refusal(R"({"launcherEnvironment": [""]})"), "Option out of its range: launcherEnvironment");
  EXPECT_EQ(refusal(R"({"launcherEnvironment": ["A\u0000B"]})"), "Option out of its range: launcherEnvironment");
  TKSError error;
  const ScopedOptions scope;
  EXPECT_FALSE(TKSOptions::setOptions({.helloLimit = -5}, &error));
  EXPECT_EQ(error.localizedDescription, "Option out of its range: helloLimit");
  EXPECT_EQ(TKSOptions::options(), TKSOptions());
}

TEST(Options, AreReadAsPeopleWriteThem) {
  TKSOptions options;
  TKSError error;
  for (const char* one : {"helloLimit=250", "httpsOnly=true", "launcherEnvironment=HOME,PATH", "privatePipes=false"}) {
    EXPECT_TRUE(tks::setOption(options, one, &error)) << one << ": " << error.localizedDescription;
  }
  EXPECT_EQ(options, (TKSOptions{.helloLimit = 250, .httpsOnly = true, .launcherEnvironment = {"HOME", "PATH"}}));
  for (const auto& [one, words] : std::vector<std::pair<std::string, std::string>>{
           {"helloLimit", "No NAME=VALUE of an option: helloLimit"},
           {"=1", "No NAME=VALUE of an option: =1"},
           {"hello=1", "Unknown option: hello"},
           {"helloLimit=", "Option of another kind: helloLimit has to be a whole number."},
           {"helloLimit=5s", "Option of another kind: helloLimit has to be a whole number."},
           {"helloLimit=99999999999999999999", "Option of another kind: helloLimit has to be a whole number."},
           {"helloLimit=-1", "Option out of its range: helloLimit"},
           {"httpsOnly=yes", "Option of another kind: httpsOnly has to be true or false."},
           {"launcherEnvironment=A,,B", "Option out of its range: launcherEnvironment"}}) {
    EXPECT_FALSE(tks::setOption(options, one, &error)) << one;
    EXPECT_EQ(error.localizedDescription, words);
  }
}

TEST(Options, ThoseThatAreOnAreLoggedOnce) {
  const ScopedOptions scope({.silenceNotice = 5000, .httpsOnly = true, .launcherEnvironment = {"HOME", "PATH"}});
  const LogRecorder log;
  tks::settleOptions();
  tks::settleOptions();
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{2, "Option silenceNotice: 5000 ms. A line tells of an answer that takes longer."},
                          LogLine{2, "Option httpsOnly: on. Downloads go over https alone."},
                          LogLine{2,
                                  "Option launcherEnvironment: HOME,PATH. The launcher's environment has these "
                                  "variables and no other."}));
}

TEST(Options, ThatAreAllOffSayNothing) {
  const ScopedOptions scope;
  const LogRecorder log;
  tks::settleOptions();
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Options, AreSetInPlaceOfThoseBeforeUntilTheLibraryBegins) {
  const ScopedOptions scope;
  EXPECT_TRUE(TKSOptions::setOptions({.helloLimit = 1}));
  EXPECT_TRUE(TKSOptions::setOptions({.frameLimit = 2}));
  EXPECT_EQ(TKSOptions::options(), (TKSOptions{.frameLimit = 2}));
  tks::settleOptions();
  const LogRecorder log;
  TKSError error;
  EXPECT_FALSE(TKSOptions::setOptions({.frameLimit = 3}, &error));
  EXPECT_FALSE(TKSOptions::setOptions({.frameLimit = 3}));
  EXPECT_EQ(error.localizedDescription,
            "Options can be set only before the first start, launch, installation or list of updates.");
  EXPECT_EQ(error.reason, TKSErrorReason::invalidArgument);
  EXPECT_EQ(TKSOptions::options(), (TKSOptions{.frameLimit = 2}));
  EXPECT_EQ(log.texts(8).size(), 2U);
}

TEST(Options, MayBeReadWhileTheyAreSet) {
  const ScopedOptions scope;
  std::thread reader([] {
    for (int i = 0; i < 2000; ++i) EXPECT_EQ(tks::options().launcherEnvironment.size() % 2, 0U);
  });
  for (int i = 0; i < 200; ++i) EXPECT_TRUE(TKSOptions::setOptions({.launcherEnvironment = {"A", "B"}}));
  reader.join();
}

}  // namespace
