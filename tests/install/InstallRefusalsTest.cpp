#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "install/RemoveWhole.h"
#include "tests/install/InstallTest.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/Unprivileged.h"
#include "tests/support/ZipWriter.h"

// Places where a launcher cannot be put, or from where it cannot simply be removed, and what is said about that.

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::platform::Tool;
using tks::test::contentOf;
using tks::test::launcherAt;
using tks::test::LogLine;
using tks::test::namesIn;
using tks::test::Unprivileged;
using tks::test::writeFile;

constexpr uid_t kNobody = 65534;

class OddPlaces : public tks::test::InstallTest {
 protected:
  /// Gives everything of this test to the user that Unprivileged acts as: permissions count then.
  void giveAway() {
    if (::geteuid() != 0) return;
    ASSERT_EQ(::chmod(base_.path().c_str(), 0755), 0);
    ASSERT_EQ(::chown(base_.path().c_str(), kNobody, kNobody), 0);
    for (const auto& item : fs::recursive_directory_iterator(base_.path())) {
      ASSERT_EQ(::lchown(item.path().c_str(), kNobody, kNobody), 0);
    }
  }
  static void close(const std::string& folder, unsigned mode) { fs::permissions(folder, static_cast<fs::perms>(mode)); }
  std::string installLine() const {
    for (const std::string& text : log.texts(2)) {
      if (text.starts_with("Install TKS done, ")) return text;
    }
    return "no such line";
  }
};

TEST_F(OddPlaces, ALauncherWithAClosedFolderIsReplacedAndLeavesNothing) {
  const std::string zip = archive("5.0.1");
  putLauncher({.version = "4.9", .files = {{"Contents/Resources/closed/inside/file", "x"}}});
  giveAway();
  close(target() + "/Contents/Resources/closed/inside", 0000);
  close(target() + "/Contents/Resources/closed", 0500);
  world.tools.script(Tool::spctl, "echo \"$3: accepted\" >&2");
  const Unprivileged nobody;
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(install("5.0.1", zip));
    EXPECT_EQ(launcherAt(target()), "5.0.1");
    expectNothingLeft();
    EXPECT_FALSE(logged(4, "Cannot remove what an installation left: "));
  }
}

TEST_F(OddPlaces, LauncherLeftOfEarlierUpdatesWithAClosedFolderGo) {
  const std::string zip = archive("5.0.1");
  const std::string beside = parent() + "/." + std::string(TKSAppName) + ".replacement-0123";
  for (const std::string& left : {beside, world.unpacked()}) writeFile(left + "/Contents/closed/file", "x");
  giveAway();
  for (const std::string& left : {beside, world.unpacked()}) close(left + "/Contents/closed", 0500);
  world.tools.script(Tool::spctl, "echo \"$3: accepted\" >&2");
  const Unprivileged nobody;
  EXPECT_TRUE(install("5.0.1", zip));
  EXPECT_EQ(log.lines().front(), (LogLine{2, "Clean existed temp app result: 1, any error: (null)"}));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  expectNothingLeft();
}

TEST_F(OddPlaces, WhatRemainsIsToldWithItsPathAndTheReason) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool remove(std::string_view path, TKSError* error) override {
      if (path.find(".replacement-") == std::string_view::npos) return ForwardingFiles::remove(path, error);
      if (error != nullptr) *error = {"NSPOSIXErrorDomain", EACCES, "remove \"/x\": Permission denied"};
      return false;
    }
  };
  const std::string zip = archive("5.0.1");
  putLauncher("4.9");
  const Stubborn files;
  EXPECT_TRUE(install("5.0.1", zip));
  EXPECT_TRUE(log.has(4,
                      "Cannot remove what an installation left: Error Domain=NSPOSIXErrorDomain Code=13 \"remove "
                      "\"/x\": Permission denied\""));
}

TEST_F(OddPlaces, RemovingAWholeTreeFollowsNoLink) {
  writeFile(base_ / "victims/closed/file", "precious");
  writeFile(base_ / "tree/closed/file", "x");
  fs::create_directory_symlink(base_ / "victims/closed", base_ / "tree/link");
  fs::create_directory_symlink(base_ / "victims/closed", base_ / "link");
  giveAway();
  close(base_ / "victims/closed", 0500);
  close(base_ / "tree/closed", 0500);
  close(base_ / "tree", 0500);
  const Unprivileged nobody;
  TKSError error;
  EXPECT_TRUE(tks::install::removeWhole(base_ / "tree", &error)) << error.description();
  EXPECT_TRUE(tks::install::removeWhole(base_ / "link", &error)) << error.description();
  EXPECT_FALSE(fs::exists(fs::symlink_status(base_ / "tree")));
  EXPECT_FALSE(fs::exists(fs::symlink_status(base_ / "link")));
  EXPECT_EQ(contentOf(base_ / "victims/closed/file"), "precious");
  EXPECT_EQ(fs::status(base_ / "victims/closed").permissions(), fs::perms(0500)) << "rights stay what they were";
}

TEST_F(OddPlaces, ALinkToNowhereIsReplacedByTheLauncher) {
  fs::create_directories(parent());
  fs::create_symlink(base_ / "nowhere", target());
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_FALSE(fs::is_symlink(target()));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_FALSE(fs::exists(base_ / "nowhere"));
  expectNothingLeft();
}

TEST_F(OddPlaces, AParentThatIsAFileIsTheMovesError) {
  const std::string zip = archive("5.0.1");
  EXPECT_FALSE(install("5.0.1", zip, file("plain", "x") + "/Launcher.app"));
  EXPECT_THAT(installLine(), testing::StartsWith("Install TKS done, result: 0, any error: (Error Domain="));
  EXPECT_THAT(installLine(), HasSubstr("Not a directory"));
  EXPECT_EQ(contentOf(base_ / "plain"), "x");
  EXPECT_THAT(namesIn(world.unpackFolder()), IsEmpty());
}

TEST_F(OddPlaces, AParentThatMayNotBeEnteredIsTheMovesError) {
  const std::string zip = archive("5.0.1");
  fs::create_directory(base_ / "shut");
  giveAway();
  close(base_ / "shut", 0000);
  {
    const Unprivileged nobody;
    EXPECT_FALSE(install("5.0.1", zip, base_ / "shut/Launcher.app"));
  }
  EXPECT_THAT(installLine(), testing::StartsWith("Install TKS done, result: 0, any error: (Error Domain="));
  EXPECT_THAT(installLine(), HasSubstr("Permission denied"));
  EXPECT_THAT(namesIn(base_ / "shut"), IsEmpty());
}

TEST_F(OddPlaces, ARefusedArchiveIsUnsafeToInstallForTheSameReason) {
  putLauncher("4.9");
  const std::string zip = file("none.zip", std::string(100'000, 'x'));
  EXPECT_FALSE(install("5.0.1", zip));
  std::vector<std::string> lines = log.texts(8);
  ASSERT_EQ(lines.size(), 2u);
  const std::string refused = "Refuse to unpack: " + shown(zip) + ", ";
  ASSERT_THAT(lines[0], testing::StartsWith(refused));
  EXPECT_EQ(lines[1], "Unsafe to install '" + shown(world.unpacked()) +
                          "': Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"" + lines[0].substr(refused.size()) + "\"");
  EXPECT_EQ(launcherAt(target()), "4.9");
}

// Volumes that fail in ways of their own.

constexpr const char* kStuck = "Error Domain=D Code=7 \"stuck\"";

/// Fails with paths of which this is a part.
class StuckFiles : public tks::test::ForwardingFiles {
 public:
  explicit StuckFiles(std::string part) : part_(std::move(part)) {}

 protected:
  bool isStuck(std::string_view path, TKSError* error) const {
    if (path.find(part_) == std::string_view::npos) return false;
    if (error != nullptr) *error = {"D", 7, "stuck"};
    return true;
  }

 private:
  std::string part_;
};

TEST_F(OddPlaces, APlaceThatCannotBeLockedIsLeftAlone) {
  class Unlocked final : public StuckFiles {
    using StuckFiles::StuckFiles;
    std::unique_ptr<tks::platform::FileLock> lock(std::string_view path, std::chrono::milliseconds patience,
                                                  TKSError* error) override {
      return isStuck(path, error) ? nullptr : ForwardingFiles::lock(path, patience, error);
    }
  };
  putLauncher("4.9");
  const std::string zip = archive("5.0.1");
  const Unlocked files{parent()};
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(log.has(8, std::string("Cannot wait for other installations: ") + kStuck));
  EXPECT_EQ(launcherAt(target()), "4.9");
  expectNothingLeft();
}

TEST_F(OddPlaces, AFolderThatStaysAfterUnpackingIsToldAndStopsNothing) {
  class Sticky final : public StuckFiles {
    using StuckFiles::StuckFiles;
    bool remove(std::string_view path, TKSError* error) override {
      return !isStuck(path, error) && ForwardingFiles::remove(path, error);
    }
  };
  const std::string zip = archive("5.0.1");
  const Sticky files{"/.unpacking-"};
  EXPECT_TRUE(install("5.0.1", zip));
  EXPECT_TRUE(log.has(4, std::string("Cannot remove what an installation left: ") + kStuck));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

TEST_F(OddPlaces, AnUnpackedLauncherThatCannotBeLookedThroughIsRefused) {
  class Unreadable final : public StuckFiles {
    using StuckFiles::StuckFiles;
    bool visitTree(std::string_view folder, const std::function<bool(const tks::platform::TreeItem&)>& visit,
                   TKSError* error) override {
      return !isStuck(folder, error) && ForwardingFiles::visitTree(folder, visit, error);
    }
  };
  class Fixed final : public StuckFiles {
    using StuckFiles::StuckFiles;
    bool setPermissions(std::string_view path, std::uint32_t permissions, TKSError* error) override {
      return !isStuck(path, error) && ForwardingFiles::setPermissions(path, permissions, error);
    }
  };
  putLauncher("4.9");
  const std::string zip = archive("5.0.1");
  world.tools.after[Tool::unzip] = [this](const auto&) {
    fs::permissions(world.unpackedByTool() + "/Contents/Info.plist", fs::perms(0600));
  };
  {
    const Unreadable files{"/.unpacking-"};
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_THAT(log.texts(8), testing::Contains("Refuse to unpack: " + shown(zip) + ", stuck"));
  }
  {
    const Fixed files{"/Contents/Info.plist"};
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_THAT(log.texts(8), testing::Contains(testing::StartsWith("Refuse to unpack: " + shown(zip) + ", stuck")));
  }
  EXPECT_EQ(launcherAt(target()), "4.9");
  EXPECT_TRUE(install("5.0.1", zip));
}

}  // namespace
