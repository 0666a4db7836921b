#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "tests/install/InstallTest.h"
#include "tests/support/FakeApplications.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/Unprivileged.h"
#include "tests/support/ZipWriter.h"

namespace {

namespace fs = std::filesystem;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::platform::Tool;
using tks::test::ChildProcess;
using tks::test::contentOf;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::namesIn;
using tks::test::writeFile;
using tks::test::zipOf;

class FailedInstallation : public tks::test::InstallTest {
 protected:
  void SetUp() override { putLauncher("4.9"); }
  /// The old launcher is as it was, and nothing of the new one is left.
  void expectUntouched(const std::string& what = "") {
    EXPECT_EQ(launcherAt(target()), "4.9") << what;
    expectNothingLeft();
  }
};

// The archive.

TEST_F(FailedInstallation, FromAnArchiveThatIsNoneLeavesTheOldLauncher) {
  const std::string whole = contentOf(archive("5.0.1"));
  std::string changed = whole;
  changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
  std::string cutDirectory = whole;
  cutDirectory.erase(whole.size() - 300, 200);
  const std::pair<const char*, std::string> rows[] = {{"empty", ""},
                                                      {"no zip", std::string(100'000, 'x')},
                                                      {"without entries", zipOf({})},
                                                      {"cut at half", whole.substr(0, whole.size() / 2)},
                                                      {"cut by a byte", whole.substr(0, whole.size() - 1)},
                                                      {"a hole in the directory", cutDirectory},
                                                      {"a changed byte", changed}};
  for (const auto& [name, content] : rows) {
    EXPECT_FALSE(install("5.0.1", file("odd.zip", content))) << name;
    EXPECT_TRUE(logged(2, "Unzip backup to temp TKS app: " + shown(world.unpacked()) + ", result: ")) << name;
    // What has nothing in it gives the unpacker nothing to do.
    const bool isBare = content.size() < 100;
    EXPECT_TRUE(isBare || logged(8, "Refuse to unpack: ") || logged(8, "Unsafe to install '")) << name;
    expectUntouched(name);
  }
}

TEST_F(FailedInstallation, FromAnArchiveWithAWrongChecksumLeavesTheOldLauncher) {
  const std::string top(TKSAppName);
  EXPECT_FALSE(install(
      "5.0.1", file("odd.zip", zipOf({{.name = top + "/Contents/Info.plist", .content = "x", .checksum = 1234}}))));
  expectUntouched();
}

TEST_F(FailedInstallation, FromAnArchiveWithoutTheLauncherAtItsTopLeavesTheOldOne) {
  tks::test::makeLauncher(base_ / ("deep/below/" + std::string(TKSAppName)));
  tks::test::makeLauncher(base_ / "other/Other.app");
  for (const std::string& zip : {tks::test::zipped(base_ / "deep", "below", base_ / "deep.zip"),
                                 tks::test::zipped(base_ / "other", "Other.app", base_ / "other.zip")}) {
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_TRUE(log.has(2, "Unzip backup to temp TKS app: " + shown(world.unpacked()) + ", result: 0"));
    expectUntouched(zip);
  }
}

TEST_F(FailedInstallation, WithADamagedListOrAnotherVersionLeavesTheOldLauncher) {
  for (const LauncherPlan& plan : {LauncherPlan{.version = "5.0.2"}, LauncherPlan{.version = ""},
                                   LauncherPlan{.files = {{"Contents/Info.plist", "garbage"}}},
                                   LauncherPlan{.files = {{"Contents/Info.plist", ""}}}}) {
    std::string zip;
    try {
      zip = archive(plan);
    } catch (const std::exception&) {  // what is so damaged cannot be signed
      zip = archive(LauncherPlan{.signer = "", .files = plan.files});
    }
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_TRUE(logged(8, "Unsafe to install '" + shown(world.unpacked()) + "': "));
    expectUntouched();
  }
}

// The disk.

TEST_F(FailedInstallation, ForLackOfSpaceToUnpackSaysHowMuchIsMissing) {
  const tks::test::SmallVolume volume("1m");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  world.folders.setTemporary(volume.path());
  const std::string zip = archive(LauncherPlan{.files = {{"Contents/Resources/large", std::string(2'000'000, 'x')}}});
  EXPECT_FALSE(install("5.0.1", zip));
  ASSERT_TRUE(logged(8, "Refuse to unpack: " + shown(zip) + ", it needs "));
  EXPECT_THAT(log.texts(8).front(), HasSubstr(" bytes, more than are free"));
  expectUntouched();
}

TEST_F(FailedInstallation, WhenTheDiskFillsUpWhileUnpackingLeavesTheOldLauncher) {
  const tks::test::SmallVolume volume("1m");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  world.folders.setTemporary(volume.path());
  // Somebody else takes the space after the look at it.
  world.tools.script(Tool::unzip, "head -c 1000000 /dev/zero > '" + (volume / "taken") +
                                      "'; /usr/bin/unzip \"$@\"; rm '" + (volume / "taken") + "'");
  EXPECT_FALSE(
      install("5.0.1", archive(LauncherPlan{.files = {{"Contents/Resources/large", std::string(600'000, 'x')}}})));
  EXPECT_TRUE(logged(8, "Unsafe to install '"));
  expectUntouched();
}

TEST_F(FailedInstallation, ForLackOfSpaceOnTheTargetsVolumeLeavesTheOldLauncher) {
  const tks::test::SmallVolume volume("1m");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  const std::string place = volume / ("Add-ons/" + std::string(TKSAppName));
  tks::test::makeLauncher(place, {.version = "4.9"});
  const std::string zip = archive(LauncherPlan{.files = {{"Contents/Resources/large", std::string(2'000'000, 'x')}}});
  EXPECT_FALSE(install("5.0.1", zip, place));
  ASSERT_TRUE(logged(2, "Install TKS done, result: 0, any error: ("));
  bool named = false;
  for (const std::string& text : log.texts(2)) {
    named = named || (text.starts_with("Install TKS done") &&
                      text.find("large\": No space left on device") != std::string::npos);
  }
  EXPECT_TRUE(named) << "the line names path and reason";
  EXPECT_EQ(launcherAt(place), "4.9");
  EXPECT_THAT(namesIn(volume / "Add-ons"), testing::ElementsAre(TKSAppName));
  expectUntouched();
}

TEST_F(FailedInstallation, WithoutAParentThatCanBeMadeNamesTheReason) {
  class FullFiles final : public tks::test::ForwardingFiles {
    bool createDirectory(std::string_view path, std::uint32_t permissions, TKSError* error) override {
      if (!path.ends_with("/none")) return ForwardingFiles::createDirectory(path, permissions, error);
      *error = {"NSPOSIXErrorDomain", ENOSPC, "No space left on device"};
      return false;
    }
  };
  const std::string zip = archive("5.0.1");
  fs::create_directories(world.unpackFolder());
  const FullFiles files;
  EXPECT_FALSE(install("5.0.1", zip, base_ / "none/Launcher.app"));
  EXPECT_TRUE(log.has(2, "Add-ons folder not exists, create folder: " + shown(base_ / "none") +
                             ", result: 0, any error: (Error Domain=NSPOSIXErrorDomain Code=28 \"No space left on "
                             "device\")"));
  expectUntouched();
}

// Rights.

TEST_F(FailedInstallation, WithoutTheRightToWriteToTheTargetSaysSo) {
  class ReadOnlyTarget final : public tks::test::ForwardingFiles {
    bool isWritable(std::string_view path) override {
      return !path.ends_with(TKSAppName) && ForwardingFiles::isWritable(path);
    }
  };
  const ReadOnlyTarget files;
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(
      log.has(8, "Can not remove old app bundle: " + shown(target()) + ", no privilege, or end process failed."));
  expectUntouched();
}

TEST_F(FailedInstallation, OfATargetThatCannotBeChangedSaysSo) {
  const int folder = ::open(target().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  int flags = 0;
  ASSERT_GE(folder, 0);
  ::ioctl(folder, FS_IOC_GETFLAGS, &flags);
  int immutable = flags | FS_IMMUTABLE_FL;
  if (::ioctl(folder, FS_IOC_SETFLAGS, &immutable) != 0) {
    ::close(folder);
    GTEST_SKIP() << "needs the right to make files immutable";
  }
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  ::ioctl(folder, FS_IOC_SETFLAGS, &flags);
  ::close(folder);
  EXPECT_TRUE(
      log.has(8, "Can not remove old app bundle: " + shown(target()) + ", no privilege, or end process failed."));
  expectUntouched();
}

TEST_F(FailedInstallation, InAParentThatCannotBeWrittenToSaysWhy) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs the right to act as another user";
  world.tools.script(Tool::spctl, "echo \"$3: accepted\" >&2");
  const std::string zip = archive("5.0.1");
  const std::string place = base_ / ("closed/" + std::string(TKSAppName));
  tks::test::makeLauncher(place, {.version = "4.9"});
  ASSERT_EQ(::chmod(base_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown(world.folders.temporary().c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chmod(place.c_str(), 0777), 0);
  ASSERT_EQ(::chmod((base_ / "closed").c_str(), 0755), 0);
  {
    const tks::test::Unprivileged nobody;
    EXPECT_FALSE(install("5.0.1", zip, place));
  }
  ASSERT_TRUE(logged(8, "Clean up TKS failed: "));
  EXPECT_THAT(log.texts(8).front(), HasSubstr("Permission denied"));
  EXPECT_EQ(launcherAt(place), "4.9");
  EXPECT_THAT(namesIn(base_ / "closed"), testing::ElementsAre(TKSAppName));
  expectUntouched();
}

TEST_F(FailedInstallation, ThatCannotExchangeTheLaunchersSaysWhy) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool exchange(std::string_view, std::string_view, TKSError* error) override {
      *error = {"D", 7, "stubborn"};
      return false;
    }
  };
  const Stubborn files;
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(8, "Clean up TKS failed: Error Domain=D Code=7 \"stubborn\""));
  expectUntouched();
}

TEST_F(FailedInstallation, ThatCannotMoveTheLauncherSaysWhy) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool move(std::string_view from, std::string_view to, TKSError* error) override {
      if (to.find(".replacement-") == std::string_view::npos) return ForwardingFiles::move(from, to, error);
      *error = {"D", 7, "stubborn"};
      return false;
    }
  };
  const Stubborn files;
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(2, "Install TKS done, result: 0, any error: (Error Domain=D Code=7 \"stubborn\")"));
  EXPECT_TRUE(log.has(2, "Clean up temp unziped app done: 1"));
  expectUntouched();
}

TEST_F(FailedInstallation, ThatCannotRemoveALeftOverLauncherSaysWhy) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool remove(std::string_view path, TKSError* error) override {
      if (path.find("com.tarvo.host") == std::string_view::npos) return ForwardingFiles::remove(path, error);
      if (error != nullptr) *error = {"D", 7, "stubborn"};
      return false;
    }
  };
  writeFile(world.unpacked() + "/left", "x");
  const Stubborn files;
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(2, "Clean existed temp app result: 0, any error: Error Domain=D Code=7 \"stubborn\""));
  EXPECT_TRUE(log.has(2, "Clean up temp unziped app done: 0"));
  EXPECT_EQ(world.tools.runs(Tool::unzip), 0u);
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(FailedInstallation, ToRemoveTheOldLauncherIsAWarningAndMendedByTheNext) {
  class Stubborn final : public tks::test::ForwardingFiles {
    bool remove(std::string_view path, TKSError* error) override {
      if (path.find(".replacement-") == std::string_view::npos) return ForwardingFiles::remove(path, error);
      if (error != nullptr) *error = {"D", 7, "stubborn"};
      return false;
    }
  };
  const std::string zip = archive("5.0.1");
  {
    const Stubborn files;
    EXPECT_TRUE(install("5.0.1", zip));
    EXPECT_TRUE(log.has(4, "Cannot remove what an installation left: Error Domain=D Code=7 \"stubborn\""));
  }
  EXPECT_EQ(namesIn(parent()).size(), 2u);
  EXPECT_TRUE(install("5.0.1", zip));
  expectNothingLeft();
}

// Volumes.

TEST_F(FailedInstallation, IsNoneOnAnotherVolume) {
  const tks::test::SmallVolume volume("16m");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  const std::string place = volume / ("Add-ons/" + std::string(TKSAppName));
  tks::test::makeLauncher(place, {.version = "4.9"});
  EXPECT_TRUE(install("5.0.1", archive("5.0.1"), place));
  EXPECT_EQ(launcherAt(place), "5.0.1");
  EXPECT_THAT(namesIn(volume / "Add-ons"), testing::ElementsAre(TKSAppName));
  EXPECT_THAT(namesIn(world.unpackFolder()), IsEmpty());
}

TEST_F(FailedInstallation, IsNoneOnAVolumeWithoutAttributes) {
  const tks::test::SmallVolume folder("1m");
  const std::string place = folder / "ramfs";
  fs::create_directories(place);
  if (::mount("ramfs", place.c_str(), "ramfs", 0, "") != 0) GTEST_SKIP() << "needs the right to mount";
  const std::string bundle = place + "/" + std::string(TKSAppName);
  EXPECT_TRUE(install("5.0.1", archive("5.0.1"), bundle));
  EXPECT_EQ(launcherAt(bundle), "5.0.1");
  EXPECT_THAT(log.texts(8), Each(testing::Not(HasSubstr("quarantine"))));
  ::umount2(place.c_str(), MNT_DETACH);
}

TEST_F(FailedInstallation, IsNoneWhenAttributesCannotBeRead) {
  class WithoutAttributes final : public tks::test::ForwardingFiles {
    std::optional<tks::platform::FileAttributes> attributes(std::string_view path, TKSError* error) override {
      if (!path.ends_with(TKSAppName) || path.find("/tmp/com") != std::string_view::npos) {
        return ForwardingFiles::attributes(path, error);
      }
      if (error != nullptr) *error = {"NSPOSIXErrorDomain", ENOTSUP, "no attributes"};
      return std::nullopt;
    }
  };
  const WithoutAttributes files;
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(8, "Fail to get quarantine property of " + shown(target()) +
                             ". Error: Error Domain=NSPOSIXErrorDomain Code=95 \"no attributes\"."));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

// The unpacker.

TEST_F(FailedInstallation, ByTheUnpackerLeavesTheOldLauncher) {
  const struct {
    const char* what;
    const char* script;
  } rows[] = {{"fails", "exit 9"},
              {"crashes", "kill -SEGV $$"},
              {"makes half of it", "mkdir -p \"$3/Tarvo Kovra Start.app/Contents\"; exit 1"},
              {"asks", "read answer && touch \"$3/answered\""},
              {"talks", "head -c 20000000 /dev/zero | tr '\\0' x"},
              {"runs for ever", "sleep 1000"}};
  world.tools.limitTime(std::chrono::seconds(2));
  const std::string zip = archive("5.0.1");
  for (const auto& row : rows) {
    world.tools.script(Tool::unzip, row.script);
    EXPECT_FALSE(install("5.0.1", zip)) << row.what;
    expectUntouched(row.what);
  }
  world.tools.remove(Tool::unzip);
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(log.has(2, "Unzip backup to temp TKS app: " + shown(world.unpacked()) + ", result: 0"));
  expectUntouched("missing");
}

TEST_F(FailedInstallation, IsNoneWithNewerFilesInTheWay) {
  const std::string left = world.unpacked() + "/Contents/Resources/Grüße.lproj/Texts.strings";
  writeFile(left, "newer");
  fs::last_write_time(left, fs::file_time_type::clock::now() + std::chrono::hours(24 * 365));
  writeFile(world.unpacked() + "/Contents/Info.plist", "newer");
  fs::last_write_time(world.unpacked() + "/Contents/Info.plist",
                      fs::file_time_type::clock::now() + std::chrono::hours(24 * 365));
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

TEST_F(FailedInstallation, IsNoneWithALinkInTheWayThatLeadsNowhere) {
  fs::create_directories(world.unpackFolder());
  fs::create_symlink(base_ / "nowhere", world.unpacked());
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_FALSE(fs::exists(base_ / "nowhere"));
}

TEST_F(FailedInstallation, OfWhatGrowsAThousandfoldIsRefusedBeforeItIsUnpacked) {
  const std::string zeros = base_ / "zeros/Tarvo Kovra Start.app/Contents/zeros";
  writeFile(zeros, "");
  fs::resize_file(zeros, 300'000'000);
  const std::string zip = tks::test::zipped(base_ / "zeros", std::string(TKSAppName), base_ / "bomb.zip");
  ASSERT_LT(fs::file_size(zip), 1'000'000u);
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(log.has(8, "Refuse to unpack: " + shown(zip) + ", it would grow to 300000000 bytes"));
  EXPECT_EQ(world.tools.runs(Tool::unzip), 0u);
  expectUntouched();
}

TEST_F(FailedInstallation, OfEntriesThatShareTheirContentGrowsNoFurther) {
  const std::string zip = file(
      "shared.zip", tks::test::zipWithSharedContent(std::string(TKSAppName) + "/", 1000, std::string(1'000'000, 'x')));
  std::uintmax_t grown = 0;
  world.tools.after[Tool::unzip] = [&](const auto&) {
    for (const auto& entry : fs::recursive_directory_iterator(world.unpackFolder())) {
      if (entry.is_regular_file()) grown += entry.file_size();
    }
  };
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_LT(grown, 100'000'000u) << "of the gigabyte that all entries together say";
  expectUntouched();
}

TEST_F(FailedInstallation, OfWhatGrowsBeyondWhatItDeclaredIsEndedWhileItIsUnpacked) {
  // An unpacker that never stops writing into one file, and one that never stops making files.
  world.tools.limitTime(std::chrono::seconds(120));
  const std::string zip = archive("5.0.1");
  for (const char* script :
       {"mkdir -p \"$3/Tarvo Kovra Start.app\"; exec cat /dev/zero > \"$3/Tarvo Kovra Start.app/f\"",
        "mkdir -p \"$3/Tarvo Kovra Start.app\"; cd \"$3/Tarvo Kovra Start.app\"; "
        "exec perl -e 'while (1) { open F, \">\", ++$i % 9; syswrite F, \"x\" x 1e6; close F }'"}) {
    world.tools.script(Tool::unzip, script);
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_TRUE(logged(8, "Unsafe to install '"));
    expectUntouched(script);
  }
}

// The launcher that runs, and the one that turns out broken.

TEST_F(FailedInstallation, IsNoneWhileTheOldLauncherRuns) {
  fs::remove_all(target());
  const std::string sleep = contentOf("/bin/sleep");
  putLauncher(LauncherPlan{.version = "4.9", .program = TKSData(sleep.begin(), sleep.end())});
  const std::string executable = target() + "/Contents/MacOS/Tarvo Kovra Start";
  fs::permissions(executable, fs::perms(0755));
  auto running = ChildProcess::run(executable, {"1000"});
  ASSERT_TRUE(tks::test::waitUntil([&] { return !world.applications.list().empty(); }, std::chrono::seconds(30)));
  EXPECT_TRUE(install("5.0.1", archive("5.0.1")));
  EXPECT_EQ(running.wait(), 128 + SIGKILL);
  EXPECT_TRUE(log.has(4, "End process: Tarvo Kovra Start, bid: com.tarvo.kovra.Tarvo-Kovra-Start"));
  EXPECT_TRUE(log.has(2, "Check and end launch modules end: 1"));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  expectNothingLeft();
}

TEST_F(FailedInstallation, WhileALauncherRunsThatCannotBeEndedSaysSo) {
  class Unkillable final : public tks::test::NoApplications {
   public:
    std::optional<TKSRunningApplication> find(std::int32_t) override { return list().front(); }
    std::vector<TKSRunningApplication> list() override {
      return {{4711, std::string(TKSAppBundleID), "Tarvo Kovra Start", "/elsewhere/Tarvo Kovra Start.app", 1}};
    }
  };
  Unkillable applications;
  const tks::platform::Replaced<tks::platform::RunningApplications> replaced(applications);
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(
      log.has(8, "Can not remove old app bundle: " + shown(target()) + ", no privilege, or end process failed."));
  expectUntouched();
}

TEST_F(FailedInstallation, OfALauncherThatIsAssessedAsBrokenRemovesIt) {
  const std::string zip = archive("5.0.1");
  for (const char* script : {"echo \"$3: rejected\" >&2", "exit 3", ":"}) {
    world.tools.script(Tool::spctl, script);
    EXPECT_FALSE(install("5.0.1", zip)) << script;
    EXPECT_TRUE(log.has(8, "TKS broken after installation, about to clean up")) << script;
    EXPECT_EQ(launcherAt(target()), "none") << script;
    EXPECT_THAT(namesIn(parent()), IsEmpty()) << script;
  }
}

}  // namespace
