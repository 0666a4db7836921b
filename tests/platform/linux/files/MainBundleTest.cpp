#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"

// Which bundle a program on this system belongs to. The test program plays one itself, from a copy at another place.

namespace {

using namespace tks::test;
namespace fs = std::filesystem;

int printMainBundle(const Arguments& arguments) {
  const FakeHome home(arguments.at(0));
  std::cout << tks::platform::bundles().mainBundleIdentifier().value_or("none");
  return tks::platform::preferences().set("key", 1, nullptr) ? 0 : 1;
}
const ChildRole kPrint("print-main-bundle", printMainBundle);

class MainBundle : public testing::Test {
 protected:
  /// What the program says of its bundle when it runs from this path.
  std::string identifierOf(const std::string& executable) {
    fs::create_directories(fs::path(executable).parent_path());
    fs::copy_file(ownExecutable(), executable, fs::copy_options::overwrite_existing);
    ChildProcess child = ChildProcess::run(executable, {"--child=print-main-bundle", home_.realHome()});
    EXPECT_EQ(child.wait(), 0);
    return child.output();
  }
  void writeInfo(const std::string& path, const TKSDictionary& information) {
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(information, path, nullptr));
  }
  bool hasPreferences(const std::string& domain) {
    return fs::exists(home_ / ("Library/Preferences/" + domain + ".plist"));
  }

  FakeHome home_;
};

TEST_F(MainBundle, IsTheOneAroundTheExecutable) {
  writeInfo(home_ / "Host.app/Contents/Info.plist", {{"CFBundleIdentifier", "com.example.host"}});
  EXPECT_EQ(identifierOf(home_ / "Host.app/Contents/MacOS/program"), "com.example.host");
  EXPECT_TRUE(hasPreferences("com.example.host"));
}

TEST_F(MainBundle, MayBeAnExtension) {
  writeInfo(home_ / "Extension.appex/Contents/Info.plist", {{"CFBundleIdentifier", "com.example.extension"}});
  EXPECT_EQ(identifierOf(home_ / "Extension.appex/Contents/MacOS/program"), "com.example.extension");
}

TEST_F(MainBundle, IsTheFolderWithAnInfoPlistBesideTheExecutable) {
  writeInfo(home_ / "plain/Info.plist", {{"CFBundleIdentifier", "com.example.plain"}});
  EXPECT_EQ(identifierOf(home_ / "plain/program"), "com.example.plain");
}

TEST_F(MainBundle, IsMissingOutsideOfBundles) {
  EXPECT_EQ(identifierOf(home_ / "bin/program"), "none");
  EXPECT_TRUE(hasPreferences("program"));
}

TEST_F(MainBundle, WithoutAnIdentifierCountsAsNone) {
  writeInfo(home_ / "Host.app/Contents/Info.plist", {{"CFBundleName", "Host"}});
  EXPECT_EQ(identifierOf(home_ / "Host.app/Contents/MacOS/program"), "none");
  writeInfo(home_ / "Host.app/Contents/Info.plist", {{"CFBundleIdentifier", 7}});
  EXPECT_EQ(identifierOf(home_ / "Host.app/Contents/MacOS/program"), "none");
  writeInfo(home_ / "Host.app/Contents/Info.plist", {{"CFBundleIdentifier", ""}});
  EXPECT_EQ(identifierOf(home_ / "Host.app/Contents/MacOS/program"), "none");
}

TEST_F(MainBundle, CannotLeadPreferencesOutOfTheirFolder) {
  writeInfo(home_ / "Host.app/Contents/Info.plist", {{"CFBundleIdentifier", "../../escaped"}});
  identifierOf(home_ / "Host.app/Contents/MacOS/program");
  EXPECT_FALSE(fs::exists(home_ / "escaped.plist"));
  EXPECT_TRUE(hasPreferences("program"));
}

}  // namespace
