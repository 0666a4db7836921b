#include "foundation/SystemInformation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakePreferences.h"
#include "tests/support/FakeTools.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrintValue.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using tks::test::FakePreferences;
using tks::test::FakeTools;
using tks::test::LogLine;
using tks::test::LogRecorder;

TEST(SystemLanguage, IsTheUsersLocaleAsItStands) {
  const LogRecorder log;
  const FakePreferences locale({{"AppleLocale", "de_DE@currency=EUR"}});
  EXPECT_EQ(TKSUtilBase::getSystemLanguage(), "de_DE@currency=EUR");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "System default language: de_DE@currency=EUR"}));
}

TEST(SystemLanguage, WithoutALocaleIsAmericanEnglish) {
  for (const TKSValue& value : {TKSValue(), TKSValue(""), TKSValue(7), TKSValue(TKSArray{"de_DE"})}) {
    const LogRecorder log;
    const FakePreferences locale({{"AppleLocale", value}});
    EXPECT_EQ(TKSUtilBase::getSystemLanguage(), "en_US") << value.description();
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Fail to get system locale language, set it to en_US"}));
  }
}

TEST(SystemLanguage, IsReadFromThePreferencesOfTheUser) {
  const tks::test::FakeHome home;
  ASSERT_TRUE(TKSUtilBase::setPreference({"AppleLocale"}, "fr_CA"));
  EXPECT_EQ(TKSUtilBase::getSystemLanguage(), "fr_CA");
}

TEST(UUID, IsRandomAndInLowerCase) {
  std::set<std::string> made;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = TKSUtilBase::createUUID();
    EXPECT_THAT(uuid, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    EXPECT_TRUE(made.insert(uuid).second) << uuid;
  }
}

class LabDevice : public ::testing::Test {
 protected:
  static void prefer(const TKSValue& value) { ASSERT_TRUE(TKSUtilBase::setPreference({"IsLabDevice"}, value)); }

  tks::test::FakeHome home_;
  LogRecorder log_;
};

TEST_F(LabDevice, IsNoneWithoutThePreference) {
  EXPECT_FALSE(TKSUtilBase::isLabDevice());
  ASSERT_TRUE(TKSUtilBase::setPreference({"other"}, true));
  EXPECT_FALSE(TKSUtilBase::isLabDevice());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LabDevice, IsOneWhenThePreferenceIsATrueNumber) {
  for (const TKSValue& value : {TKSValue(true), TKSValue(1), TKSValue(-7), TKSValue(0.5)}) {
    prefer(value);
    log_.clear();
    EXPECT_TRUE(TKSUtilBase::isLabDevice()) << value.description();
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Is Lab Device."}));
  }
}

TEST_F(LabDevice, IsNoneWhenThePreferenceIsZero) {
  for (const TKSValue& value : {TKSValue(false), TKSValue(0), TKSValue(0.0)}) {
    prefer(value);
    log_.clear();
    EXPECT_FALSE(TKSUtilBase::isLabDevice()) << value.description();
    EXPECT_THAT(log_.lines(), IsEmpty());
  }
}

TEST_F(LabDevice, IsNoneWhenThePreferenceHasAnotherType) {
  prefer("1");
  EXPECT_FALSE(TKSUtilBase::isLabDevice());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Type incorrect (1) for key: IsLabDevice"}));
  prefer("jane@a.example");
  log_.clear();
  EXPECT_FALSE(TKSUtilBase::isLabDevice());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Type incorrect (jan*@a.example) for key: IsLabDevice"}));
}

TEST(FormattedSize, HasTheGroupingOfTheUsersLocale) {
  {
    const FakePreferences locale({{"AppleLocale", "en_US"}});
    EXPECT_EQ(TKSUtilBase::formatedSize(1234567), std::optional<std::string>("1,234,567"));
    EXPECT_EQ(TKSUtilBase::formatedSize(0), std::optional<std::string>("0"));
  }
  const FakePreferences locale({{"AppleLocale", "de_DE"}});
  EXPECT_EQ(TKSUtilBase::formatedSize(1234567), std::optional<std::string>("1.234.567"));
}

TEST(FormattedSize, OfNoNumberIsNothing) {
  EXPECT_EQ(TKSUtilBase::formatedSize(TKSValue()), std::nullopt);
  EXPECT_EQ(TKSUtilBase::formatedSize("1000"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::formatedSize(TKSNull()), std::nullopt);
}

/// A volume with a certain space, or one that cannot be asked.
class Volume final : public tks::test::ForwardingFiles {
 public:
  explicit Volume(std::optional<tks::platform::VolumeSpace> space) : space_(space) {}
  std::optional<tks::platform::VolumeSpace> volumeSpace(std::string_view path, TKSError* error) override {
    asked_ = path;
    if (!space_ && error != nullptr) *error = {"POSIX", 13, "/users/jane/Documents: permission denied"};
    return space_;
  }
  const std::string& asked() const { return asked_; }

 private:
  std::optional<tks::platform::VolumeSpace> space_;
  std::string asked_;
};

class DiskSpace : public ::testing::Test {
 protected:
  tks::test::FakeHome home_;
  FakePreferences locale_{{{"AppleLocale", "en_US"}}};
  LogRecorder log_;
};

TEST_F(DiskSpace, IsCountedInDecimalMegabytesRoundedDown) {
  Volume volume({{1'234'567'999'999, 2'000'000'999'999}});
  TKSError error;
  EXPECT_EQ(TKSUtilBase::checkDiskSpaceInfo(&error),
            (TKSDictionary{{"FreeSpaceMBytes", 1234567},
                           {"TotalSpaceMBytes", 2000000},
                           {"DiskInfo", "1,234,567 M free / 2,000,000 M total"}}));
  EXPECT_EQ(volume.asked(), home_.documents());
  EXPECT_EQ(error, TKSError());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DiskSpace, BelowOneGigabyteGivesAWarning) {
  Volume volume({{999'999'999, 5'000'000'000}});
  EXPECT_EQ(TKSUtilBase::checkDiskSpaceInfo(),
            (TKSDictionary{
                {"FreeSpaceMBytes", 999}, {"TotalSpaceMBytes", 5000}, {"DiskInfo", "999 M free / 5,000 M total"}}));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, "Running out disk space! 999 Mb left."}));
}

TEST_F(DiskSpace, OfExactlyOneGigabyteGivesNoWarning) {
  Volume volume({{1'000'000'000, 5'000'000'000}});
  EXPECT_EQ(TKSUtilBase::checkDiskSpaceInfo()["FreeSpaceMBytes"], TKSValue(1000));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DiskSpace, ThatCannotBeFoundOutIsAnErrorAndAnEmptyDictionary) {
  Volume volume(std::nullopt);
  TKSError error;
  EXPECT_EQ(TKSUtilBase::checkDiskSpaceInfo(&error), TKSDictionary());
  EXPECT_EQ(error, (TKSError{"POSIX", 13, "/users/jane/Documents: permission denied"}));
  EXPECT_EQ(TKSUtilBase::checkDiskSpaceInfo(), TKSDictionary());
  const LogLine line{8,
                     "Error obtaining file system info: Error Domain=POSIX Code=13 "
                     "\"/users/****/Documents: permission denied\""};
  EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(DiskSpace, IsThatOfTheVolumeWithTheDocuments) {
  const TKSDictionary space = TKSUtilBase::checkDiskSpaceInfo();
  EXPECT_GT(space["TotalSpaceMBytes"].integer(), 0);
  EXPECT_LE(space["FreeSpaceMBytes"].integer(), space["TotalSpaceMBytes"].integer());
}

/// Lets the system's tool say what the processor is, or be missing.
class BrandTool {
 public:
  explicit BrandTool(std::optional<std::string> output) {
    tools_.play(tks::platform::Tool::sysctl, [output](const tks::platform::ToolRequest& request) {
      EXPECT_THAT(request.arguments, ElementsAre("-n", "machdep.cpu.brand_string"));
      EXPECT_FALSE(request.collectStandardError);
      return output ? FakeTools::printed(*output) : FakeTools::unstarted();
    });
  }
  std::size_t runs() const { return tools_.runs(); }

 private:
  FakeTools tools_;
};

TEST(Processor, OfAppleIsRecognised) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  BrandTool tool("Apple M9 Max\n");
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::nullopt);
  EXPECT_TRUE(TKSUtilBase::isAppleSiliconDevice());
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::optional<std::string>("Apple M9 Max\n"));
  EXPECT_EQ(gDeviceCPUInfo, "Apple M9 Max\n");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Device arch info: Apple M9 Max\n"}));
}

TEST(Processor, OfAppleIsRecognisedInAnyCase) {
  TKS_IN_FRESH_PROCESS();
  BrandTool tool("aPPLE processor\n");
  EXPECT_TRUE(TKSUtilBase::isAppleSiliconDevice());
}

TEST(Processor, OfAnotherMakerIsNone) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  BrandTool tool("Some(R) Core(TM) CPU @ 2.60GHz\n");
  EXPECT_FALSE(TKSUtilBase::isAppleSiliconDevice());
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::optional<std::string>("Some(R) Core(TM) CPU @ 2.60GHz\n"));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Device arch info: Some(R) Core(TM) CPU @ 2.60GHz\n"}));
}

TEST(Processor, IsFoundOutOnceEvenByManyThreads) {
  TKS_IN_FRESH_PROCESS();
  BrandTool tool("Apple M9\n");
  std::atomic<int> yes = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&yes] {
      TKSUtilBase::getDeviceInfo();
      if (TKSUtilBase::isAppleSiliconDevice()) ++yes;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(yes, 8);
  EXPECT_EQ(tool.runs(), 1u);
}

TEST(Processor, WithoutTheToolIsNoneAndIsNotAskedForAgain) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  BrandTool tool(std::nullopt);
  EXPECT_NO_THROW(EXPECT_FALSE(TKSUtilBase::isAppleSiliconDevice()));
  EXPECT_FALSE(TKSUtilBase::isAppleSiliconDevice());
  EXPECT_EQ(tool.runs(), 1u);
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::nullopt);
  EXPECT_THAT(log.texts(2), IsEmpty());
  EXPECT_THAT(log.texts(8), ::testing::SizeIs(1));
}

TEST(Processor, ThatCannotBeFoundOutIsNoneAndNothingIsThrown) {
  TKS_IN_FRESH_PROCESS();
  FakeTools tools;
  tools.playOthers([](const auto&) -> tks::platform::ToolResult { throw std::bad_alloc(); });
  EXPECT_NO_THROW(EXPECT_FALSE(TKSUtilBase::isAppleSiliconDevice()));
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::nullopt);
}

TEST(Processor, WhoseNameIsNoTextCountsAsUnnamed) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  BrandTool tool("Apple \xFF\n");
  EXPECT_FALSE(TKSUtilBase::isAppleSiliconDevice());
  EXPECT_EQ(TKSUtilBase::getDeviceInfo(), std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Device arch info: (null)"}));
}

TEST(Processor, OfThisMachineHasAName) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  const bool isApple = TKSUtilBase::isAppleSiliconDevice();
  const std::string name = TKSUtilBase::getDeviceInfo().value_or("");
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(isApple, tks::platform::text().lowerCase(name).find("apple") != std::string::npos);
  EXPECT_TRUE(log.has(2, "Device arch info: " + name));
}

}  // namespace
