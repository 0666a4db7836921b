#include <gtest/gtest.h>

#include <filesystem>

#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises. On macOS NSBundle opens any folder, whichever layout it has,
// keeps what it has opened until the process ends, and names an executable after the bundle when none is declared; what
// the bundle says of itself is read anew each time.

namespace {

using namespace tks::test;
using tks::platform::Bundle;
namespace fs = std::filesystem;

class BundlesTest : public testing::Test {
 protected:
  static std::optional<Bundle> open(std::string_view path) { return tks::platform::bundles().open(path); }

  void writeInfo(const std::string& path, const TKSDictionary& information) {
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(information, path, nullptr));
  }
  void writeExecutable(const std::string& path) {
    writeFile(path, "#!/bin/sh\n");
    fs::permissions(path, fs::perms(0755));
  }

  TemporaryFolder folder_;
  std::string bundle_ = folder_ / "Sample.app";
};

TEST_F(BundlesTest, ABundleTellsItsInformationAndItsParts) {
  const TKSDictionary information{
      {"CFBundleIdentifier", "com.example.sample"}, {"CFBundleVersion", "44.1"}, {"CFBundleExecutable", "program"}};
  writeInfo(bundle_ + "/Contents/Info.plist", information);
  writeExecutable(bundle_ + "/Contents/MacOS/program");
  const std::optional<Bundle> bundle = open(bundle_);
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->path, bundle_);
  EXPECT_EQ(bundle->executablePath, bundle_ + "/Contents/MacOS/program");
  EXPECT_EQ(bundle->builtInPlugInsPath, bundle_ + "/Contents/PlugIns");
  for (const auto& [key, value] : information) EXPECT_EQ(bundle->infoDictionary[key], value);
}

TEST_F(BundlesTest, TheExecutableHasTheBundlesNameUnlessItIsDeclared) {
  writeInfo(bundle_ + "/Contents/Info.plist", {{"CFBundleIdentifier", "com.example.sample"}});
  writeExecutable(bundle_ + "/Contents/MacOS/Sample");
  EXPECT_EQ(open(bundle_)->executablePath, bundle_ + "/Contents/MacOS/Sample");
}

TEST_F(BundlesTest, ADeclaredExecutableThatIsMissingIsNone) {
  writeInfo(bundle_ + "/Contents/Info.plist", {{"CFBundleExecutable", "program"}});
  ASSERT_TRUE(open(bundle_));
  EXPECT_EQ(open(bundle_)->executablePath, "");
}

TEST_F(BundlesTest, AFolderIsNeitherExecutableNorInformation) {
  fs::create_directories(bundle_ + "/Contents/MacOS/Sample");
  ASSERT_TRUE(open(bundle_));
  EXPECT_EQ(open(bundle_)->executablePath, "");
  fs::create_directories(bundle_ + "/Contents/Info.plist");
  writeInfo(bundle_ + "/Info.plist", {{"CFBundleVersion", "7"}});
  EXPECT_EQ(open(bundle_)->infoDictionary["CFBundleVersion"], TKSValue("7"));
}

TEST_F(BundlesTest, AShallowBundleIsOpened) {
  writeInfo(bundle_ + "/Info.plist", {{"CFBundleVersion", "7"}, {"CFBundleExecutable", "program"}});
  writeExecutable(bundle_ + "/program");
  ASSERT_TRUE(open(bundle_));
  EXPECT_EQ(open(bundle_)->infoDictionary["CFBundleVersion"], TKSValue("7"));
  EXPECT_EQ(open(bundle_)->executablePath, bundle_ + "/program");
}

TEST_F(BundlesTest, AFrameworkIsOpened) {
  const std::string framework = folder_ / "Sample.framework";
  writeInfo(framework + "/Versions/A/Resources/Info.plist", {{"CFBundleVersion", "8"}});
  fs::create_directory_symlink("A", framework + "/Versions/Current");
  fs::create_directory_symlink("Versions/Current/Resources", framework + "/Resources");
  ASSERT_TRUE(open(framework));
  EXPECT_EQ(open(framework)->infoDictionary["CFBundleVersion"], TKSValue("8"));
}

TEST_F(BundlesTest, AnyFolderIsABundle) {
  fs::create_directory(bundle_);
  ASSERT_TRUE(open(bundle_));
  EXPECT_FALSE(open(bundle_)->infoDictionary.contains("CFBundleVersion"));
}

TEST_F(BundlesTest, ABrokenInformationFileReadsAsEmpty) {
  writeFile(bundle_ + "/Contents/Info.plist", "garbage");
  ASSERT_TRUE(open(bundle_));
  EXPECT_FALSE(open(bundle_)->infoDictionary.contains("CFBundleVersion"));
}

TEST_F(BundlesTest, FilesAndMissingPathsAreNoBundles) {
  writeFile(folder_ / "file", "");
  EXPECT_FALSE(open(folder_ / "file"));
  EXPECT_FALSE(open(folder_ / "missing"));
  EXPECT_FALSE(open(""));
}

TEST_F(BundlesTest, TheLibraryHasAVersion) {
  EXPECT_NE(tks::platform::bundles().libraryVersion(), "");
  EXPECT_EQ(tks::platform::bundles().libraryVersion().find_first_not_of("0123456789."), std::string::npos);
}

}  // namespace
