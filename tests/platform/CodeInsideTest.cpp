#include "platform/apple/code_inside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TemporaryFolder.h"

// Which code inside of a bundle is asked who signed it.

namespace {

namespace fs = std::filesystem;
using ::testing::Optional;
using ::testing::UnorderedElementsAre;
using tks::platform::apple::codeInside;
using tks::test::writeFile;

TEST(CodeInside, IsEveryImageAndEveryBundleWithASignature) {
  const tks::test::TemporaryFolder folder;
  const std::string app = folder / "A.app";
  writeFile(app + "/Contents/_CodeSignature/CodeResources", "seal");
  writeFile(app + "/Contents/MacOS/A", std::string("\xcf\xfa\xed\xfe and more", 13));
  writeFile(app + "/Contents/Resources/helper", std::string("\xca\xfe\xba\xbe", 4));
  writeFile(app + "/Contents/Resources/notes", "notes");
  writeFile(app + "/Contents/Resources/short", std::string("\xca\xfe\xba", 3));
  writeFile(app + "/Contents/PlugIns/B.appex/Contents/_CodeSignature/CodeResources", "seal");
  writeFile(app + "/Contents/Frameworks/C.framework/Versions/A/_CodeSignature/CodeResources", "seal");
  fs::create_symlink("A", app + "/Contents/Frameworks/C.framework/Versions/Current");
  EXPECT_THAT(codeInside(app + "/"),
              Optional(UnorderedElementsAre(app + "/Contents/MacOS/A", app + "/Contents/Resources/helper",
                                            app + "/Contents/PlugIns/B.appex",
                                            app + "/Contents/Frameworks/C.framework/Versions/A")));
}

TEST(CodeInside, OfWhatIsNotThereCannotBeTold) { EXPECT_EQ(codeInside("/nowhere/A.app"), std::nullopt); }

}  // namespace
