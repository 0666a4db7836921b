#include "platform/apple/signature_folders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TemporaryFolder.h"

// What may lie in the places of a bundle that no seal covers.

namespace {

namespace fs = std::filesystem;
using tks::platform::apple::holdsOnlyPartsOfSignatures;
using tks::test::writeFile;

class SignatureFolders : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(contents + "/Info.plist", "x");
    writeFile(contents + "/MacOS/A", "program");
    writeFile(contents + "/_CodeSignature/CodeResources", "<plist/>");
    writeFile(nested + "/_CodeSignature/CodeResources", "<plist/>");
  }

  tks::test::TemporaryFolder folder;
  const std::string bundle = folder / "A.app";
  const std::string contents = bundle + "/Contents";
  const std::string nested = contents + "/PlugIns/B.bundle/Contents";
};

TEST_F(SignatureFolders, HoldThePartsOfASignatureATicketAndAReceipt) {
  EXPECT_TRUE(holdsOnlyPartsOfSignatures(bundle));
  writeFile(contents + "/CodeResources", "s8ch");
  writeFile(contents + "/_MASReceipt/receipt", "x");
  writeFile(contents + "/_CodeSignature/CodeDirectory", "\xfa\xde\x0c\x02");
  writeFile(contents + "/_CodeSignature/CodeRequirements-1", "\xfa\xde\x0c\x02");
  writeFile(contents + "/_CodeSignature/CodeSignature", "");
  EXPECT_TRUE(holdsOnlyPartsOfSignatures(bundle));
  EXPECT_TRUE(holdsOnlyPartsOfSignatures(bundle + "/"));
  fs::remove(contents + "/CodeResources");
  fs::create_symlink("_CodeSignature/CodeResources", contents + "/CodeResources");
  EXPECT_TRUE(holdsOnlyPartsOfSignatures(bundle)) << "as bundles had it long ago";
}

TEST_F(SignatureFolders, HoldNothingElse) {
  for (const std::string& place : {contents, nested}) {
    for (const char* name : {"/_CodeSignature/program", "/_CodeSignature/folder/CodeResources",
                             "/CodeResources/program", "/_CodeSignature/CodeDirectory", "/_CodeSignature/CodeSignature",
                             "/_MASReceipt/program", "/_MASReceipt/folder/receipt"}) {
      writeFile(place + name, "#!/bin/sh\n");
      EXPECT_FALSE(holdsOnlyPartsOfSignatures(bundle)) << place << name;
      fs::remove_all(place + name);
      fs::remove_all(place + "/CodeResources");
      fs::remove_all(place + "/_CodeSignature/folder");
      fs::remove_all(place + "/_MASReceipt");
    }
    EXPECT_TRUE(holdsOnlyPartsOfSignatures(bundle)) << place;
  }
  fs::create_symlink("CodeResources", contents + "/_CodeSignature/CodeDirectory");
  EXPECT_FALSE(holdsOnlyPartsOfSignatures(bundle)) << "a link is no part";
}

TEST_F(SignatureFolders, AreFolders) {
  writeFile(contents + "/_MASReceipt", "#!/bin/sh\n");
  EXPECT_FALSE(holdsOnlyPartsOfSignatures(bundle));
  fs::remove(contents + "/_MASReceipt");
  fs::remove_all(contents + "/_CodeSignature");
  writeFile(contents + "/_CodeSignature", "#!/bin/sh\n");
  EXPECT_FALSE(holdsOnlyPartsOfSignatures(bundle));
}

TEST_F(SignatureFolders, OfWhatIsNotThereHoldNothing) { EXPECT_FALSE(holdsOnlyPartsOfSignatures(folder / "missing")); }

}  // namespace
