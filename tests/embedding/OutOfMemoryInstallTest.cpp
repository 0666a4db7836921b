// What an installation comes to when the n-th request for memory is refused: the target is the old launcher or the new
// one, the host is told, nothing leaks, and the next installation works.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/FakeTools.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ZipWriter.h"

namespace {

using namespace tks::test;
namespace fs = std::filesystem;

std::string information(const std::string& version) {
  return "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Tarvo Kovra Start</string>"
         "<key>CFBundleIdentifier</key><string>com.tarvo.kovra.Tarvo-Kovra-Start</string>"
         "<key>CFBundleVersion</key><string>" +
         version + "</string></dict></plist>\n";
}

void makeLauncher(const std::string& bundle, const std::string& version) {
  writeFile(bundle + "/Contents/Info.plist", information(version));
  writeFile(bundle + "/Contents/MacOS/Tarvo Kovra Start", "program of " + version);
}

/// An unpacker that works whatever memory the library has, and an assessment that finds everything well.
tks::platform::ToolResult runPlentiful(const tks::platform::ToolRequest& request) {
  const PlentyOfMemory forTheTools;
  if (request.tool == tks::platform::Tool::spctl) return FakeTools::printed(request.arguments.back() + ": accepted\n");
  if (request.tool == tks::platform::Tool::unzip) {
    makeLauncher(request.arguments.at(2) + "/Tarvo Kovra Start.app", "50.0.1");
  }
  return FakeTools::printed("0123  -\n");
}

/// Waits for no volume's clock to move on after a change: the package is then checked twice.
class FilesWithoutMarks final : public ForwardingFiles {
 public:
  std::optional<TKSData> changeMark(std::string_view, TKSError*) override { return std::nullopt; }
};

std::string versionOf(const std::string& bundle) {
  for (const char* version : {"40.0.0", "50.0.1"}) {
    if (contentOf(bundle + "/Contents/Info.plist") == information(version) &&
        contentOf(bundle + "/Contents/MacOS/Tarvo Kovra Start") == std::string("program of ") + version) {
      return version;
    }
  }
  return fs::exists(bundle) ? "a mixture" : "none";
}

TEST(OutOfMemoryInstalling, LeavesTheOldLauncherOrTheNewOne) {
  const FakeHome home;
  const TemporaryFolder folder;
  const FilesWithoutMarks files;
  FakeTools tools;
  tools.notes = false;  // it has no memory for that
  tools.playOthers(runPlentiful);
  tks::test::NoApplications none;
  const tks::platform::Replaced<tks::platform::RunningApplications> applications(none);
  FakeSignatures signatures;
  signatures.signedBy("T4RV0K0VRA", {"Developer ID Application: Tarvo (T4RV0K0VRA)",
                                     "Developer ID Certification Authority", "Apple Root CA"});
  const tks::platform::Replaced<tks::platform::Signatures> replaced(signatures);
  const std::string target = folder / "place/Tarvo Kovra Start.app";
  const std::string zip = folder / "launcher.zip";
  writeFile(zip, zipOf({{.name = "Tarvo Kovra Start.app/Contents/Info.plist", .content = information("50.0.1")},
                        {.name = "Tarvo Kovra Start.app/Contents/MacOS/Tarvo Kovra Start",
                         .content = "program of 50.0.1",
                         .mode = 0100755}}));
  int newOnes = 0;
  const auto attempt = [&] {
    {
      const PlentyOfMemory forTheTest;
      fs::remove_all(target);
      makeLauncher(target, "40.0.0");
    }
    const bool installed = TKSUtilBase::installTKSVersion("50.0.1", zip, target);
    const PlentyOfMemory forTheTest;
    const std::string version = versionOf(target);
    EXPECT_TRUE(version == "50.0.1" || (!installed && version == "40.0.0")) << version << ", installed: " << installed;
    newOnes += !installed && version == "50.0.1" ? 1 : 0;
    signatures.asked.clear();
    signatures.paths.clear();
    return installed;
  };
  // What the process keeps from its first installation on is made while there is memory.
  ASSERT_TRUE(attempt());
  const long failures = failuresUntilSuccess(attempt);
  EXPECT_GT(failures, 50);
  RecordProperty("in place but not told so", newOnes);
  // Whatever was left on the way is gone after the next installation.
  ASSERT_TRUE(attempt());
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "place"), {}), 1);
}

TEST(OutOfMemoryInstalling, TheMarkOfAPackageIsTakenWholeOrNotAtAll) {
  const TemporaryFolder folder;
  for (int i = 0; i < 5; ++i) writeFile(folder / ("A.app/Contents/" + std::to_string(i) + "/file"), "x");
  const std::optional<TKSData> whole = tks::platform::files().changeMark(folder / "A.app", nullptr);
  ASSERT_TRUE(whole);
  const long failures = failuresUntilSuccess([&] {
    std::optional<TKSData> mark;
    try {
      mark = tks::platform::files().changeMark(folder / "A.app", nullptr);
    } catch (const std::bad_alloc&) {
      return false;
    }
    EXPECT_EQ(mark, whole);
    return mark == whole;
  });
  EXPECT_GT(failures, 5);
}

}  // namespace
