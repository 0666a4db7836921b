#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises.

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tks::assessment::Verdict;

TEST(Assessment, RejectsAnApplicationThatNobodySigned) {
  const tks::test::TemporaryFolder folder;
  const std::string app = folder / "A.app";
  tks::test::writeFile(app + "/Contents/Info.plist",
                       "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>A</string>"
                       "<key>CFBundleIdentifier</key><string>example.a</string></dict></plist>");
  tks::test::writeFile(app + "/Contents/MacOS/A", "#!/bin/sh\n");
  const Verdict verdict = tks::platform::assessment().run({"-a", "-v", app});
  EXPECT_EQ(verdict.exitCode, tks::assessment::kRejected);
  EXPECT_THAT(verdict.text, StartsWith(app + ": rejected"));
}

TEST(Assessment, FailsWhereNothingIs) {
  const tks::test::TemporaryFolder folder;
  const Verdict verdict = tks::platform::assessment().run({"-a", folder / "missing.app"});
  EXPECT_EQ(verdict.exitCode, tks::assessment::kFailure);
  EXPECT_THAT(verdict.text, HasSubstr(folder / "missing.app"));
}

TEST(Assessment, SaysHowItIsUsed) {
  const Verdict verdict = tks::platform::assessment().run({});
  EXPECT_EQ(verdict.exitCode, tks::assessment::kUsage);
  EXPECT_THAT(verdict.text, HasSubstr("spctl"));
}

}  // namespace
