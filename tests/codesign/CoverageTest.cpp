#include <gtest/gtest.h>
#include <sys/stat.h>

#include <vector>

#include "codesign/validity.h"
#include "install/Trust.h"
#include "tests/codesign/Fixtures.h"

// What a bundle about to be installed may not have, wherever its seal does not look: code beside the code that was
// checked, links that lead out, files and folders that nobody covers.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using tks::signing::SigningOptions;

constexpr std::int32_t kBadNestedCode = -67021;
constexpr std::int32_t kBadResource = -67054;
constexpr std::int32_t kBadFrameworkVersion = -67009;
constexpr std::int32_t kInvalidLink = -67003;

/// An application with a framework, a plug-in and a helper, all of the maker's.
class Coverage : public ::testing::Test {
 protected:
  Coverage() {
    makeApp(app, tks::signing::makeImage({}));
    writeFile(app + "/Contents/PkgInfo", "APPL????");
    makeVersion("A");
    fs::create_symlink("A", framework + "/Versions/Current");
    makeApp(plugIn, tks::signing::makeImage({}));
    writeBytes(app + "/Contents/MacOS/helper", tks::signing::makeImage({}));
    signAs(framework);
    signAs(plugIn);
    signAs(app + "/Contents/MacOS/helper");
    signAs(app);
    fs::copy(app, original, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    writeFile(folder / "outside/A/Info.plist", contentOf(app + "/Contents/Info.plist"));
  }

  void makeVersion(const std::string& name) const {
    const std::string version = framework + "/Versions/" + name;
    writeFile(version + "/Resources/Info.plist", infoPlist("F", "FMWK"));
    tks::signing::ImagePlan plan;
    plan.fileType = 6;
    writeBytes(version + "/F", tks::signing::makeImage(plan));
  }

  void restore() const {
    fs::remove_all(app);
    fs::copy(original, app, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  /// Puts a link in place of something; what it leads to has the same content, out of the bundle.
  void replaceByLinkOut(const std::string& path) const {
    const std::string outside = folder / "outside/copy";
    fs::remove_all(outside);
    fs::copy(path, outside, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::remove_all(path);
    fs::create_symlink(outside, path);
  }

  TemporaryFolder folder;
  const std::string app = folder / "A.app";
  const std::string original = folder / "original.app";
  const std::string framework = app + "/Contents/Frameworks/F.framework";
  const std::string plugIn = app + "/Contents/PlugIns/B.bundle";
};

TEST_F(Coverage, OfAnIntactApplicationIsWhole) {
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), 0);
  EXPECT_TRUE(tks::checkTrustForInstalling(app, nullptr));
}

TEST_F(Coverage, CodeThatWasSeenBeforeStillHasToBeTheCodeThatIsMeant) {
  fs::remove_all(plugIn);
  writeFile(plugIn + "/program", "#!/bin/sh\n");
  fs::create_directories(plugIn + "/Versions");
  fs::create_symlink("../../../Frameworks/F.framework/Versions/A", plugIn + "/Versions/Current");
  EXPECT_EQ(statusOf(app), kBadNestedCode);
  EXPECT_EQ(installStatusOf(app), kBadNestedCode);
  TKSError error;
  EXPECT_FALSE(tks::checkTrustForInstalling(app, &error));
  EXPECT_TRUE(error.localizedDescription.starts_with("Codesign verify failed, error code: -67021."))
      << error.localizedDescription;
}

TEST_F(Coverage, CodeIsWhollyInItsOwnPlaceAlsoWhenOtherCodeMeetsItsRequirement) {
  // Both plug-ins are of one identifier, so that each meets the other's requirement.
  const std::string other = makeApp(app + "/Contents/PlugIns/A.bundle", tks::signing::makeImage({}));
  const auto sameName = [](SigningOptions& options) { options.identifier = "com.tarvo.plugin"; };
  signAs(other, "maker", sameName);
  signAs(plugIn, "maker", sameName);
  signAs(app);
  ASSERT_EQ(installStatusOf(app), 0);
  fs::remove_all(plugIn);
  writeFile(plugIn + "/program", "#!/bin/sh\n");
  fs::create_directories(plugIn + "/Versions");
  fs::create_symlink("../../A.bundle", plugIn + "/Versions/Current");
  EXPECT_EQ(installStatusOf(app), kInvalidLink);
}

TEST_F(Coverage, EveryVersionOfAFrameworkIsCheckedAndNotTheCurrentOneAlone) {
  makeVersion("B");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), kBadFrameworkVersion) << "not signed";
  EXPECT_FALSE(tks::checkTrustForInstalling(app, nullptr));
  signAs(framework + "/Versions/B", "other team");
  EXPECT_EQ(installStatusOf(app), kBadFrameworkVersion) << "of somebody else";
  signAs(framework + "/Versions/B");
  EXPECT_EQ(installStatusOf(app), 0) << "of the maker";
  flip(framework + "/Versions/B/F", 5000);
  EXPECT_EQ(installStatusOf(app), kBadFrameworkVersion) << "altered";
  fs::remove_all(framework + "/Versions/B");
  writeFile(framework + "/Versions/B/program", "#!/bin/sh\n");
  EXPECT_EQ(installStatusOf(app), kBadFrameworkVersion) << "no code";
}

TEST_F(Coverage, OfAFrameworkAloneIncludesItsOtherVersions) {
  makeVersion("B");
  EXPECT_EQ(statusOf(framework), 0);
  EXPECT_EQ(installStatusOf(framework), kBadFrameworkVersion);
  signAs(framework + "/Versions/B", "other team");
  EXPECT_EQ(installStatusOf(framework), kBadFrameworkVersion);
  signAs(framework + "/Versions/B");
  EXPECT_EQ(installStatusOf(framework), 0);
}

TEST_F(Coverage, NothingLiesBesideTheVersionsOfAFramework) {
  const std::string versions = framework + "/Versions/";
  writeFile(versions + ".DS_Store", "x");
  fs::create_symlink("A", versions + "Latest");
  EXPECT_EQ(installStatusOf(app), 0) << "notes of the file browser, another name of a version";
  fs::remove(versions + "Latest");
  writeFile(versions + "program", "#!/bin/sh\n");
  EXPECT_EQ(installStatusOf(app), -67008);
  fs::remove(versions + "program");
  fs::create_symlink("A/Resources", versions + "Part");
  EXPECT_EQ(installStatusOf(app), -67008);
  fs::remove(versions + "Part");
  fs::remove(versions + ".DS_Store");
  writeFile(versions + ".DS_Store/program", "#!/bin/sh\n");
  EXPECT_NE(installStatusOf(app), 0);
}

TEST_F(Coverage, NothingLiesBesideTheContentsOfAVersionEither) {
  // The plug-in as it was signed, one level deeper: of its version only the contents are sealed.
  const std::string version = plugIn + "/Versions/A";
  fs::create_directories(version);
  fs::rename(plugIn + "/Contents", version + "/Contents");
  fs::create_symlink("A", plugIn + "/Versions/Current");
  EXPECT_EQ(statusOf(app), 0);
  writeFile(version + "/program", "#!/bin/sh\n");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), -67014);
}

TEST_F(Coverage, NoLinkLeavesTheBundleWhateverItsName) {
  for (const char* name :
       {"/Contents", "/Contents/Info.plist", "/Contents/PkgInfo", "/Contents/_CodeSignature",
        "/Contents/_CodeSignature/CodeResources", "/Contents/PlugIns/B.bundle/Contents/Info.plist",
        "/Contents/PlugIns/B.bundle/Contents/_CodeSignature", "/Contents/Frameworks/F.framework/Versions/A",
        "/Contents/Frameworks/F.framework/Versions/Current", "/Contents/MacOS/A", "/Contents/MacOS/helper",
        "/Contents/Resources"}) {
    restore();
    replaceByLinkOut(app + name);
    EXPECT_EQ(installStatusOf(app), kInvalidLink) << name;
  }
}

TEST_F(Coverage, NoLinkThatNobodySealedLeavesTheBundle) {
  for (const char* name : {"/Contents/CodeResources", "/Contents/_MASReceipt", "/Contents/_MASReceipt/receipt",
                           "/Contents/_CodeSignature/CodeEntitlements", "/Contents/Resources/en.lproj/locversion.plist",
                           "/Contents/Frameworks/F.framework/Versions/Latest", "/.DS_Store"}) {
    for (const char* target : {"/etc/passwd", "../../../../../../outside/A/Info.plist", "../../../../../../nothing"}) {
      restore();
      fs::create_directories(fs::path(app + name).parent_path());
      fs::create_symlink(target, app + name);
      EXPECT_EQ(installStatusOf(app), kInvalidLink) << name << " -> " << target;
    }
  }
}

TEST_F(Coverage, ALinkThroughAnotherLinkIsFollowedWhereItReallyLeads) {
  const std::string resources = app + "/Contents/Resources/";
  fs::create_symlink("../..", resources + "top");
  signAs(app);
  EXPECT_EQ(installStatusOf(app), 0);
  // By its text alone it would lead to Contents/Resources/outside.
  fs::create_symlink("top/../outside/A", resources + "out");
  signAs(app);
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), kInvalidLink);
  fs::remove(resources + "out");
  fs::create_symlink("top/Contents/../Contents/Info.plist", resources + "in");
  fs::create_symlink("loop", resources + "loop");
  signAs(app);
  EXPECT_EQ(installStatusOf(app), 0);
}

TEST_F(Coverage, OnlyThePartsOfASignatureLieInItsFolder) {
  const std::string signature = app + "/Contents/_CodeSignature/";
  // The signature of an image is in the image: what lies here beside the seal is nobody's.
  for (const char* name : {"program", ".DS_Store", "folder/program", "CodeDirectory", "CodeResources-1"}) {
    restore();
    writeFile(signature + name, "#!/bin/sh\n");
    EXPECT_EQ(statusOf(app), 0) << name;
    EXPECT_EQ(installStatusOf(app), kBadResource) << name;
    restore();
    writeFile(plugIn + "/Contents/_CodeSignature/" + name, "#!/bin/sh\n");
    EXPECT_EQ(installStatusOf(app), kBadResource) << "nested " << name;
  }
  restore();
  ASSERT_EQ(::mkfifo((signature + "pipe").c_str(), 0600), 0);
  EXPECT_EQ(installStatusOf(app), kBadResource);
}

TEST_F(Coverage, OfASignatureInFilesIncludesEachOfThem) {
  const std::string program = makeApp(folder / "E.app", elfProgram());
  signAs(program, "maker", [](SigningOptions& options) {
    options.hashTypes = {tks::codesign::HashType::sha1, tks::codesign::HashType::sha256};
    options.entitlements = "<plist version=\"1.0\"><dict/></plist>";
  });
  EXPECT_EQ(installStatusOf(program), 0);
  for (const char* name : {"CodeRequirements-3", "LibraryConstraint", "CodeTopDirectory", "program"}) {
    writeFile(program + "/Contents/_CodeSignature/" + name, "#!/bin/sh\n");
    EXPECT_NE(installStatusOf(program), 0) << name;
    fs::remove(program + "/Contents/_CodeSignature/" + name);
  }
  EXPECT_EQ(installStatusOf(program), 0);
}

TEST_F(Coverage, TicketAndReceiptAreFilesAndNothingElse) {
  writeFile(app + "/Contents/CodeResources", "s8ch");
  writeFile(app + "/Contents/_MASReceipt/receipt", "x");
  EXPECT_EQ(installStatusOf(app), 0);
  for (const char* name : {"/Contents/_MASReceipt/program", "/Contents/_MASReceipt/folder/receipt"}) {
    restore();
    writeFile(app + name, "#!/bin/sh\n");
    EXPECT_EQ(installStatusOf(app), kBadResource) << name;
  }
  restore();
  writeFile(app + "/Contents/_MASReceipt", "#!/bin/sh\n");
  EXPECT_EQ(installStatusOf(app), kBadResource);
  restore();
  writeFile(app + "/Contents/CodeResources/program", "#!/bin/sh\n");
  EXPECT_EQ(statusOf(app), 0);
  EXPECT_EQ(installStatusOf(app), kBadResource);
}

TEST_F(Coverage, WhatMayLieBesideTheContentsAreFilesAndNoFolders) {
  writeFile(app + "/.DS_Store", "x");
  EXPECT_EQ(installStatusOf(app), 0);
  for (const char* name : {"/.DS_Store", "/Icon\r", "/.LSOverride", "/.SoftwareDepot.tracking"}) {
    restore();
    writeFile(app + name + "/program", "#!/bin/sh\n");
    EXPECT_EQ(installStatusOf(app), -67014) << name;
  }
  restore();
  writeFile(framework + "/.DS_Store/program", "#!/bin/sh\n");
  EXPECT_EQ(installStatusOf(app), -67008);
}

TEST_F(Coverage, AnInfoPlistThatNobodySealedIsRefused) {
  const std::string program = makeApp(folder / "E.app", elfProgram());
  signAs(program, "nobody");
  fs::remove(program + "/Contents/_CodeSignature/CodeRequirements");
  sealAs(program, bytesIn(program + "/Contents/_CodeSignature/CodeResources"));
  EXPECT_EQ(statusOf(program), 0);
  EXPECT_EQ(installStatusOf(program), -67030);
}

TEST_F(Coverage, TheAssessmentIsNoStricterThanThePlatformsAboutWhatCameLater) {
  const auto assessed = [&] {
    return tks::codesign::checkValidity(tks::codesign::findCode(app), tks::codesign::AppleRoots::builtIn(),
                                        tks::codesign::Depth::assessing)
        .status;
  };
  EXPECT_EQ(assessed(), 0);
  writeFile(app + "/Contents/_CodeSignature/.DS_Store", "x");
  EXPECT_EQ(assessed(), 0) << "a file browser was here: no reason to call a launcher broken";
  EXPECT_EQ(installStatusOf(app), kBadResource);
}

}  // namespace
