#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <utime.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "platform/platform.h"
#include "platform/posix/change_mark.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises. On macOS the kernel sets the time of change (st_ctimespec) with
// every change of content, permissions, names and attributes, as on Linux: APFS in nanoseconds, HFS+ in whole seconds,
// which the mark waits for. Reading sets none, nor does the move of a folder in what is in it.

namespace {

namespace fs = std::filesystem;
using tks::platform::files;
using tks::test::writeFile;

class ChangeMark : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(bundle + "/Contents/MacOS/A", "program");
    writeFile(bundle + "/Contents/Info.plist", "facts");
    fs::create_symlink("Info.plist", bundle + "/Contents/link");
  }
  std::optional<TKSData> mark(const std::string& path) {
    std::optional<TKSData> found = files().changeMark(path, &error);
    EXPECT_TRUE(found) << error.description();
    return found;
  }

  tks::test::TemporaryFolder folder;
  const std::string bundle = folder / "A.app";
  TKSError error;
};

TEST_F(ChangeMark, StaysWhileNothingIsChanged) {
  const auto before = mark(bundle);
  std::ifstream(bundle + "/Contents/MacOS/A").get();
  EXPECT_EQ(mark(bundle), before);
  EXPECT_EQ(mark(bundle + "/"), before);
}

TEST_F(ChangeMark, StaysWhenTheWholeIsMoved) {
  const auto before = mark(bundle);
  fs::rename(bundle, folder / ".hidden");
  EXPECT_EQ(mark(folder / ".hidden"), before);
}

TEST_F(ChangeMark, TellsWhateverIsDone) {
  const std::string program = bundle + "/Contents/MacOS/A";
  const struct {
    const char* what;
    std::function<void()> change;
  } rows[] = {
      {"a byte", [&] { std::fstream(program, std::ios::in | std::ios::out) << 'P'; }},
      {"the same bytes", [&] { std::fstream(program, std::ios::in | std::ios::out) << 'P'; }},
      {"a byte, with the old time of modification",
       [&] {
         struct stat facts {};
         ::stat(program.c_str(), &facts);
         std::fstream(program, std::ios::in | std::ios::out) << 'Q';
         const timespec times[] = {facts.st_atim, facts.st_mtim};
         ::utimensat(AT_FDCWD, program.c_str(), times, 0);
       }},
      {"permissions", [&] { ::chmod(program.c_str(), 0755); }},
      {"another file in its place",
       [&] {
         writeFile(folder / "other", "program");
         fs::rename(folder / "other", program);
       }},
      {"one more file", [&] { writeFile(bundle + "/Contents/added", "x"); }},
      {"one file less", [&] { fs::remove(bundle + "/Contents/added"); }},
      {"a link that leads elsewhere",
       [&] {
         fs::remove(bundle + "/Contents/link");
         fs::create_symlink("MacOS", bundle + "/Contents/link");
       }},
      {"a new name", [&] { fs::rename(bundle + "/Contents/Info.plist", bundle + "/Contents/Other.plist"); }},
      {"another folder in its place",
       [&] {
         fs::copy(bundle + "/Contents/MacOS", folder / "copy");
         fs::rename(bundle + "/Contents/MacOS", folder / "before");
         fs::rename(folder / "copy", bundle + "/Contents/MacOS");
       }},
  };
  auto before = mark(bundle);
  for (const auto& row : rows) {
    row.change();
    auto after = mark(bundle);
    EXPECT_NE(after, before) << row.what;
    before = std::move(after);
  }
}

TEST_F(ChangeMark, TellsTheWholeFromAnotherLikeIt) {
  fs::copy(bundle, folder / "B.app", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  EXPECT_NE(mark(folder / "B.app"), mark(bundle));
}

TEST_F(ChangeMark, TellsAChangeRightAfterAnother) {
  for (int round = 0; round < 20; ++round) {
    writeFile(bundle + "/Contents/MacOS/A", "program");
    const auto before = mark(bundle);
    std::fstream(bundle + "/Contents/MacOS/A", std::ios::in | std::ios::out) << 'P';
    ASSERT_NE(mark(bundle), before) << "round " << round;
  }
}

TEST_F(ChangeMark, OfAnExtendedAttributeIsToldAsWell) {
  const auto before = mark(bundle);
  if (::setxattr((bundle + "/Contents/MacOS/A").c_str(), "user.a", "x", 1, 0) != 0) GTEST_SKIP() << "no attributes";
  EXPECT_NE(mark(bundle), before);
}

TEST_F(ChangeMark, OfWhatIsNotThereIsAnError) {
  EXPECT_FALSE(files().changeMark(folder / "none", &error));
  EXPECT_EQ(error.localizedDescription, "look through \"" + (folder / "none") + "\": No such file or directory");
}

TEST(ChangeMarkTimes, AreSettledLaterWhereVolumesCountWholeSeconds) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  EXPECT_EQ(tks::posix::settledFrom(7 * kSecond + 1), 7 * kSecond + 1 + kSecond / 50);
  EXPECT_EQ(tks::posix::settledFrom(7 * kSecond), 9 * kSecond);
}

}  // namespace
