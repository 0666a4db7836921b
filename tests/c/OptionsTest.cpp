#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/c/CHost.h"
#include "tests/support/ScopedOptions.h"

// The options, as hosts in C set them.

namespace {

using namespace tks::test;

struct COptions : testing::Test {
  ScopedOptions scope;
  CHost host;

  std::string refusal(const char* json) {
    EXPECT_FALSE(tks_set_options(json, &CHost::fail, &host)) << json;
    EXPECT_EQ(host.reason, json[0] == '{' && json[1] != '\0' ? "invalidArgument" : host.reason);
    return host.text;
  }
};

TEST_F(COptions, AreSetInPlaceOfThoseBefore) {
  EXPECT_TRUE(tks_set_options(R"({"helloLimit": 30000, "httpsOnly": true})", &CHost::fail, &host));
  EXPECT_EQ(tks::options(), (TKSOptions{.helloLimit = 30000, .httpsOnly = true}));
  EXPECT_TRUE(tks_set_options(R"({"frameLimit": 5})", nullptr, nullptr));
  EXPECT_EQ(tks::options(), (TKSOptions{.frameLimit = 5}));
  EXPECT_TRUE(tks_set_options("{}", nullptr, nullptr));
  EXPECT_EQ(tks::options(), TKSOptions());
  EXPECT_TRUE(tks_set_options(R"({"frameLimit": 5})", nullptr, nullptr));
  EXPECT_TRUE(tks_set_options(nullptr, nullptr, nullptr));
  EXPECT_EQ(tks::options(), TKSOptions());
  EXPECT_EQ(host.failed, 0);
}

TEST_F(COptions, BadOnesAreRefusedAndNothingChanges) {
  EXPECT_TRUE(tks_set_options(R"({"frameLimit": 5})", nullptr, nullptr));
  EXPECT_EQ(refusal(R"({"frameLimits": 6})"), "Unknown option: frameLimits");
  EXPECT_EQ(refusal(R"({"frameLimit": "6"})"), "Option of another kind: frameLimit has to be a whole number.");
  EXPECT_EQ(refusal(R"({"frameLimit": -6})"), "Option out of its range: frameLimit");
  EXPECT_EQ(refusal("[1]"), "Options are no JSON object.");
  EXPECT_FALSE(refusal("{").empty());
  EXPECT_FALSE(tks_set_options("{", nullptr, nullptr));
  EXPECT_EQ(tks::options(), (TKSOptions{.frameLimit = 5}));
}

TEST_F(COptions, AreRefusedOnceTheLibraryHasBegun) {
  tks::settleOptions();
  EXPECT_EQ(refusal(R"({"frameLimit": 6})"),
            "Options can be set only before the first start, launch, installation or list of updates.");
}

}  // namespace
