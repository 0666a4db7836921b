#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tksinterface/TKSUtilBase.h>

#include "tests/codesign/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::signing::SigningOptions;
using tks::signing::Storage;

/// A framework of a version A, with a link to its resources at the top, unsigned.
std::string makeFramework(const std::string& framework) {
  writeFile(framework + "/Versions/A/Resources/Info.plist", infoPlist("F", "FMWK"));
  writeBytes(framework + "/Versions/A/F", imageOf(6));
  fs::create_symlink("A", framework + "/Versions/Current");
  fs::create_symlink("Versions/Current/Resources", framework + "/Resources");
  return framework;
}

TEST(OtherCode, FrameworksAreCheckedInTheirCurrentVersion) {
  TemporaryFolder folder;
  const std::string framework = makeFramework(folder / "F.framework");
  const std::string version = framework + "/Versions/A";
  fs::create_symlink("Versions/Current/F", framework + "/F");
  signAs(framework);
  EXPECT_EQ(statusOf(framework), 0);
  EXPECT_EQ(statusOf(version), 0);
  EXPECT_EQ(installStatusOf(framework), 0);
  EXPECT_EQ(informationOf(framework)["format"], TKSValue("bundle with Mach-O thin (x86_64)"));
  writeFile(framework + "/stray", "x");
  EXPECT_EQ(installStatusOf(framework), -67008);
  flip(version + "/F", 5000);
  EXPECT_EQ(statusOf(framework), -67061);
}

TEST(OtherCode, FrameworksWithAnotherExecutableAtTheTopAreAmbiguous) {
  TemporaryFolder folder;
  const std::string framework = makeFramework(folder / "F.framework");
  const std::string version = framework + "/Versions/A";
  signAs(framework);
  EXPECT_EQ(statusOf(framework), 0);
  fs::create_hard_link(version + "/F", framework + "/F");
  EXPECT_EQ(statusOf(framework), 0) << "the same file";
  fs::remove(framework + "/F");
  fs::copy(version + "/F", framework + "/F");
  EXPECT_EQ(statusOf(framework), -67011);
}

TEST(OtherCode, ShallowBundlesHaveEverythingInTheirFolder) {
  TemporaryFolder folder;
  const std::string bundle = folder / "S.bundle";
  writeFile(bundle + "/Info.plist", infoPlist("S", "BNDL"));
  writeBytes(bundle + "/S", imageOf(8));
  writeFile(bundle + "/picture.png", "x");
  signAs(bundle);
  EXPECT_EQ(statusOf(bundle), 0);
  writeFile(bundle + "/picture.png", "y");
  EXPECT_EQ(statusOf(bundle), -67054);
}

TEST(OtherCode, UniversalFilesAreCheckedInEverySlice) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  const TKSData intel = tks::signing::makeImage({});
  tks::signing::ImagePlan forArm;
  forArm.type = 0x0100000c;
  forArm.subtype = 0;
  const TKSData arm = tks::signing::makeImage(forArm);
  writeBytes(file, tks::signing::makeUniversal({arm, intel}));
  signAs(file);
  EXPECT_EQ(statusOf(file), 0);
  EXPECT_EQ(informationOf(file)["format"], TKSValue("Mach-O universal (x86_64 arm64)"));
  const std::string whole = contentOf(file);
  for (std::uint32_t record : {0u, 1u}) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(whole.data());
    flip(file, tks::codesign::big32(bytes + 16 + 20 * record) + 5000);
    EXPECT_EQ(statusOf(file), -67061);
    writeFile(file, whole);
  }
  // One slice signed by another team, one not at all.
  const auto signedAlone = [&](const TKSData& image, const std::string& kind) {
    writeBytes(folder / "alone", image);
    signAs(folder / "alone", kind);
    const std::string content = contentOf(folder / "alone");
    return TKSData(content.begin(), content.end());
  };
  writeBytes(file, tks::signing::makeUniversal({signedAlone(arm, "other team"), signedAlone(intel, "maker")}));
  EXPECT_EQ(statusOf(file), -67045);
  writeBytes(file, tks::signing::makeUniversal({arm, signedAlone(intel, "maker")}));
  EXPECT_EQ(statusOf(file), -67062);
  // A slice hidden after the last record is a slice.
  std::string hiding = contentOf(file);
  hiding[7] = 1;
  std::swap_ranges(hiding.begin() + 8, hiding.begin() + 28, hiding.begin() + 28);
  writeFile(file, hiding);
  EXPECT_EQ(statusOf(file), -67062);
}

TEST(OtherCode, PlainFilesCarryTheirSignatureInAttributesOrASideCar) {
  TemporaryFolder folder;
  for (const Storage storage : {Storage::sideCar, Storage::automatic}) {
    const std::string file = folder / "data.json";
    fs::remove(folder / "._data.json");
    fs::remove(file);
    writeFile(file, "{}");
    EXPECT_EQ(statusOf(file), -67062);
    signAs(file, "maker", [&](SigningOptions& options) { options.storage = storage; });
    EXPECT_EQ(statusOf(file), 0);
    EXPECT_EQ(informationOf(file)["format"], TKSValue("generic"));
    EXPECT_TRUE(TKSUtilBase::checkTrust(file));
    writeFile(file, "[]");
    EXPECT_EQ(statusOf(file), -67061);
  }
}

TEST(OtherCode, MalformedContainersHaveAStatusOfTheirOwn) {
  TemporaryFolder folder;
  const std::string file = folder / "tool";
  TKSData image = tks::signing::makeImage({});
  image[20] = 0xff;
  image[21] = 0xff;
  writeBytes(file, image);
  EXPECT_EQ(statusOf(file), -67049);
  writeBytes(file, tks::signing::makeUniversal({tks::signing::makeImage({}), tks::signing::makeImage({})}));
  std::string twice = contentOf(file);
  std::copy_n(twice.begin() + 16, 4, twice.begin() + 36);
  writeFile(file, twice);
  EXPECT_EQ(statusOf(file), -67049);
  writeFile(file, std::string("\xca\xfe\xba\xbe\0\0\0\x34", 8) + std::string(200, '\0'));  // a Java class
  EXPECT_EQ(statusOf(file), -67062);
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  EXPECT_NE(statusOf(folder / "fifo"), 0);
}

}  // namespace
