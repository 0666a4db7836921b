#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/apple/seal_coverage.h"
#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"

// Which bundles with a seal of an old form are covered by it.

namespace {

namespace fs = std::filesystem;
using tks::platform::apple::sealNamesEverything;
using tks::test::writeFile;

class SealCoverage : public ::testing::Test {
 protected:
  void SetUp() override {
    writePropertyList("Info.plist", {{"CFBundleExecutable", "A"}});
    writeFile(contents + "/MacOS/A", "program");
    writeFile(contents + "/PkgInfo", "APPL");
    writeFile(contents + "/Resources/text", "text");
    writeFile(contents + "/Resources/en.lproj/locversion.plist", "x");
    writeFile(contents + "/Resources/.DS_Store", "x");
    seal({"Resources/text"});
  }
  void writePropertyList(const std::string& path, const TKSDictionary& dictionary) {
    fs::create_directories(fs::path(contents + "/" + path).parent_path());
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(dictionary, contents + "/" + path, nullptr));
  }
  void seal(const std::vector<std::string>& names, const char* form = "files") {
    TKSDictionary files;
    for (const std::string& name : names) files.set(name, TKSData{1, 2, 3});
    writePropertyList("_CodeSignature/CodeResources", {{form, files}});
  }

  tks::test::TemporaryFolder folder;
  const std::string bundle = folder / "A.app";
  const std::string contents = bundle + "/Contents";
};

TEST_F(SealCoverage, IsThereWhenEveryFileIsNamedOrNeverSealed) {
  EXPECT_TRUE(sealNamesEverything(bundle));
  EXPECT_TRUE(sealNamesEverything(bundle + "/"));
  seal({"Resources/text"}, "files2");
  EXPECT_TRUE(sealNamesEverything(bundle));
}

TEST_F(SealCoverage, IsNotThereForAFileWithoutAName) {
  for (const char* name : {"/Resources/more", "/MacOS/a", "/Frameworks/b.dylib", "/Resources/Info.plist", "/more"}) {
    writeFile(contents + name, "x");
    EXPECT_FALSE(sealNamesEverything(bundle)) << name;
    fs::remove(contents + name);
  }
  EXPECT_TRUE(sealNamesEverything(bundle));
}

TEST_F(SealCoverage, IsNotThereForWhatLiesBesideTheContents) {
  writeFile(bundle + "/.DS_Store", "x");
  EXPECT_TRUE(sealNamesEverything(bundle));
  writeFile(bundle + "/more", "x");
  EXPECT_FALSE(sealNamesEverything(bundle));
}

TEST_F(SealCoverage, IsThereForCodeThatIsNamedAsAWhole) {
  writeFile(contents + "/Frameworks/B.framework/Versions/A/B", "x");
  EXPECT_FALSE(sealNamesEverything(bundle));
  seal({"Resources/text", "Frameworks/B.framework"}, "files2");
  EXPECT_TRUE(sealNamesEverything(bundle));
}

TEST_F(SealCoverage, IsThereForLinksThatStayInTheBundle) {
  fs::create_symlink("text", contents + "/Resources/link");
  EXPECT_TRUE(sealNamesEverything(bundle)) << "the first form names no links";
  seal({"Resources/text"}, "files2");
  EXPECT_FALSE(sealNamesEverything(bundle)) << "no name";
  seal({"Resources/text", "Resources/link"}, "files2");
  EXPECT_TRUE(sealNamesEverything(bundle));
  for (const char* target : {"../../more", "..", "./../MacOS//A"}) {
    fs::remove(contents + "/Resources/link");
    fs::create_symlink(target, contents + "/Resources/link");
    EXPECT_TRUE(sealNamesEverything(bundle)) << target;
  }
  for (const char* target : {"/etc/hosts", "../../../more", "../../../A.app/Contents/MacOS/A"}) {
    fs::remove(contents + "/Resources/link");
    fs::create_symlink(target, contents + "/Resources/link");
    EXPECT_FALSE(sealNamesEverything(bundle)) << target;
  }
}

TEST_F(SealCoverage, IsNotThereForALinkThatLooksLikeTheSystemsNotes) {
  fs::remove(contents + "/Resources/.DS_Store");
  fs::create_symlink("text", contents + "/Resources/.DS_Store");
  EXPECT_FALSE(sealNamesEverything(bundle));
}

TEST_F(SealCoverage, IsNotThereWithoutASealOrABundle) {
  fs::remove(contents + "/_CodeSignature/CodeResources");
  EXPECT_FALSE(sealNamesEverything(bundle));
  EXPECT_FALSE(sealNamesEverything(folder / "missing"));
  EXPECT_FALSE(sealNamesEverything(contents + "/PkgInfo"));
  fs::create_directory(folder / "empty");
  EXPECT_FALSE(sealNamesEverything(folder / "empty"));
}

}  // namespace
