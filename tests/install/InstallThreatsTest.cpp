#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "install/ArchiveCheck.h"
#include "tests/install/InstallTest.h"
#include "tests/support/FakeArchives.h"
#include "tests/support/FakeSignatures.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/ZipWriter.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::platform::ArchiveEntry;
using tks::platform::ArchiveFormat;
using tks::platform::Tool;
using tks::test::FakeArchives;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::LogLine;
using tks::test::namesIn;
using tks::test::WatchedSignatures;
using tks::test::writeFile;
using tks::test::ZipEntry;
using tks::test::zipOf;

class InstallThreats : public tks::test::InstallTest {
 protected:
  void SetUp() override { putLauncher("4.9"); }
  void expectUntouched(const std::string& what = "") {
    EXPECT_EQ(launcherAt(target()), "4.9") << what;
    expectNothingLeft();
  }
};

std::string contentPath(const std::string& bundle) { return bundle + "/Contents/Resources/Grüße.lproj/Texts.strings"; }

// Somebody who changes the package after it was checked.

TEST_F(InstallThreats, APackageThatIsChangedAfterTheCheckIsNotInstalled) {
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"a changed file", [&] { tks::test::flip(contentPath(world.unpacked()), 1); }},
      {"a changed program", [&] { tks::test::flip(world.unpacked() + "/Contents/MacOS/Tarvo Kovra Start", 100); }},
      {"one more file", [&] { writeFile(world.unpacked() + "/Contents/MacOS/added", "x"); }},
      {"a plug-in less", [&] { fs::remove_all(world.unpacked() + "/Contents/PlugIns/Meeting.appex"); }},
      {"a link out of it",
       [&] {
         fs::remove(contentPath(world.unpacked()));
         fs::create_symlink("/etc/passwd", contentPath(world.unpacked()));
       }},
      {"another bundle",
       [&] {
         fs::rename(world.unpacked(), base_ / "taken");
         tks::test::makeLauncher(world.unpacked(), LauncherPlan{.signer = "other team"});
       }},
      {"nothing", [&] { fs::remove_all(world.unpacked()); }},
  };
  const std::string zip = archive("5.0.1");
  for (const auto& [what, sequel] : rows) {
    {
      WatchedSignatures signatures(sequel);
      EXPECT_FALSE(install("5.0.1", zip)) << what;
    }
    EXPECT_TRUE(logged(2, "Install TKS done, result: 0, any error: (Error ") || logged(8, "Unsafe to install '"))
        << what;
    expectUntouched(what);
    fs::remove_all(base_ / "taken");
  }
}

/// Shows something foreign in the place of the package whenever the package's mark is asked for.
class ForeignMark final : public tks::test::ForwardingFiles {
 public:
  ForeignMark(std::string foreign, std::string package) : foreign_(std::move(foreign)), package_(std::move(package)) {}
  void exchangeThem() {
    ::syscall(SYS_renameat2, AT_FDCWD, foreign_.c_str(), AT_FDCWD, package_.c_str(), RENAME_EXCHANGE);
  }

 private:
  std::optional<TKSData> changeMark(std::string_view path, TKSError* error) override {
    if (path != package_) return ForwardingFiles::changeMark(path, error);
    exchangeThem();
    std::optional<TKSData> mark = ForwardingFiles::changeMark(path, error);
    exchangeThem();
    return mark;
  }

  std::string foreign_;
  std::string package_;
};

TEST_F(InstallThreats, APackageThatIsAwayWhileItIsCheckedIsProvenAgain) {
  const std::string foreign = base_ / "foreign";
  tks::test::makeLauncher(foreign, LauncherPlan{.version = "5.0.1", .signer = "other team"});
  const std::string zip = archive("5.0.1");
  ForeignMark files(foreign, world.unpacked());
  WatchedSignatures signatures([&] { files.exchangeThem(); });
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallThreats, APackageThatIsExchangedForAnotherOfTheMakersIsProvenAgain) {
  const std::string zip = archive("5.0.1");
  tks::test::makeLauncher(base_ / "same", LauncherPlan{.version = "5.0.1"});
  tks::test::makeLauncher(base_ / "older", LauncherPlan{.version = "4.0"});
  {
    WatchedSignatures signatures([&] {
      fs::remove_all(world.unpacked());
      fs::rename(base_ / "older", world.unpacked());
    });
    EXPECT_FALSE(install("5.0.1", zip));
    EXPECT_EQ(launcherAt(target()), "4.9");
  }
  WatchedSignatures signatures([&] {
    fs::remove_all(world.unpacked());
    fs::rename(base_ / "same", world.unpacked());
  });
  EXPECT_TRUE(install("5.0.1", zip));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

/// Folders that a volume without rights of its own leaves open to others.
class OpenVolume final : public tks::test::ForwardingFiles {
  std::optional<std::string> makePrivateDirectory(std::string_view beginning, TKSError* error) override {
    const std::optional<std::string> made = ForwardingFiles::makePrivateDirectory(beginning, error);
    if (made) fs::permissions(*made, fs::perms(0755));
    return made;
  }
};

/// Somebody who has mapped a file of the package into memory and written to it before, and writes during the check:
/// that sets no time of change.
class MappedWriter {
 public:
  explicit MappedWriter(tks::test::InstallWorld& world) : world_(world) {
    world_.tools.after[Tool::unzip] = [this](const auto&) { map(); };
  }
  ~MappedWriter() {
    if (memory_ != nullptr) ::munmap(memory_, 1);
  }
  void write() {
    if (memory_ != nullptr) *memory_ ^= 1;
  }
  bool isThere() const { return memory_ != nullptr; }

 private:
  void map() {
    const int file = ::open(contentPath(world_.unpackedByTool()).c_str(), O_RDWR | O_CLOEXEC);
    void* const memory = ::mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    ASSERT_NE(memory, MAP_FAILED);
    memory_ = static_cast<char*>(memory);
    *memory_ = *static_cast<volatile char*>(memory_);
  }

  tks::test::InstallWorld& world_;
  char* memory_ = nullptr;
};

TEST_F(InstallThreats, APackageThatOthersCouldOpenIsProvenTwice) {
  const std::string zip = archive("5.0.1");
  MappedWriter writer(world);
  const OpenVolume files;
  WatchedSignatures signatures([&] { writer.write(); });
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(writer.isThere());
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallThreats, APackageThatOthersMayWriteToIsProvenTwice) {
  // In a folder of all, with files that the umask leaves open.
  const std::string zip = archive("5.0.1");
  world.host.bundleIdentifier.reset();
  MappedWriter writer(world);
  WatchedSignatures signatures([&] { writer.write(); });
  const mode_t before = ::umask(0);
  EXPECT_FALSE(install("5.0.1", zip));
  ::umask(before);
  EXPECT_TRUE(writer.isThere());
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallThreats, APackageThatIsChangedOnItsWayIsNotInstalled) {
  class Meddler final : public tks::test::ForwardingFiles {
    bool move(std::string_view from, std::string_view to, TKSError* error) override {
      const bool moved = ForwardingFiles::move(from, to, error);
      if (to.find(".replacement-") == std::string_view::npos) return moved;
      tks::test::flip(contentPath(std::string(to)), 1);
      return moved;
    }
  };
  const std::string zip = archive("5.0.1");
  const Meddler files;
  EXPECT_FALSE(install("5.0.1", zip));
  expectUntouched();
}

TEST_F(InstallThreats, ALauncherThatIsChangedInItsPlaceDoesNotCountAsInstalled) {
  class Meddler final : public tks::test::ForwardingFiles {
    bool exchange(std::string_view first, std::string_view second, TKSError* error) override {
      const bool exchanged = ForwardingFiles::exchange(first, second, error);
      tks::test::flip(contentPath(std::string(second)), 1);
      return exchanged;
    }
  };
  const std::string zip = archive("5.0.1");
  const Meddler files;
  EXPECT_FALSE(install("5.0.1", zip)) << "the assessment tells";
  EXPECT_EQ(launcherAt(target()), "none");
}

TEST_F(InstallThreats, ALauncherThatIsSwappedAllTheTimeNeverCountsAsInstalled) {
  const std::string foreign = base_ / "foreign";
  tks::test::makeLauncher(foreign, LauncherPlan{.signer = "other team"});
  const std::string zip = archive("5.0.1");
  // Exchanges what is unpacked with something foreign as fast as it can.
  const pid_t swapper = ::fork();
  if (swapper == 0) {
    for (;;) ::syscall(SYS_renameat2, AT_FDCWD, foreign.c_str(), AT_FDCWD, world.unpacked().c_str(), 2u);
  }
  for (int round = 0; round < 10; ++round) {
    const bool installed = install("5.0.1", zip);
    const std::string found = launcherAt(target());
    EXPECT_TRUE(!installed || found == "5.0.1") << found;
    EXPECT_THAT(found, testing::AnyOf("4.9", "5.0.1", "none"));
  }
  ::kill(swapper, SIGKILL);
  ::waitpid(swapper, nullptr, 0);
}

// The folder that is unpacked to.

TEST_F(InstallThreats, AnUnpackFolderThatIsALinkIsRefused) {
  fs::create_directory(base_ / "elsewhere");
  fs::create_directory_symlink(base_ / "elsewhere", world.unpackFolder());
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(logged(8, "Cannot use the folder to unpack to: "));
  EXPECT_EQ(world.tools.runs(Tool::unzip), 0u);
  EXPECT_THAT(namesIn(base_ / "elsewhere"), IsEmpty());
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallThreats, AnUnpackFolderOfAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  writeFile(world.unpacked() + "/theirs", "x");
  ASSERT_EQ(::chown(world.unpackFolder().c_str(), 65534, 65534), 0);
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_THAT(log.texts(8).front(), HasSubstr("another user"));
  EXPECT_TRUE(fs::exists(world.unpacked() + "/theirs")) << "nothing of theirs is removed";
  EXPECT_EQ(launcherAt(target()), "4.9");
}

TEST_F(InstallThreats, WithoutATemporaryFolderToBeTrustedNothingIsInstalled) {
  world.folders.setTemporary("");
  EXPECT_FALSE(install("5.0.1", archive("5.0.1")));
  EXPECT_TRUE(log.has(8,
                      "Cannot use the folder to unpack to: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"there is no "
                      "temporary folder to be trusted\""));
  EXPECT_EQ(launcherAt(target()), "4.9");
}

// What an archive may hold.

class ArchiveThreats : public InstallThreats {
 protected:
  /// The objection against an archive of these entries.
  std::string objectionTo(const std::vector<ZipEntry>& entries) {
    const std::string path = file("odd.zip", zipOf(entries));
    return tks::install::lookInto(path, ArchiveFormat::zip, base_.path()).objection.value_or("none");
  }
};

constexpr std::uint32_t kLink = 0120777;

TEST_F(ArchiveThreats, NamesThatLeadOutOfTheFolderAreRefused) {
  for (const char* name :
       {"../up", "a/../../up", "/etc/up", "a/..", "..", "a/b/../../../up", "..\\up", "a\\..\\..\\up"}) {
    EXPECT_THAT(objectionTo({{"fine", "x"}, {name, "x"}}), testing::StartsWith("a name leads out of the folder: \""))
        << name;
  }
  for (const char* name : {"a..b", "..a/b", "a/...", "./a", "a//b", "A.app/Contents/中文"}) {
    EXPECT_EQ(objectionTo({{name, "x"}}), "none") << name;
  }
}

TEST_F(ArchiveThreats, NamesThatGoThroughALinkAreRefused) {
  EXPECT_EQ(objectionTo({{"a", "b", kLink}, {"a/passwd", "x"}}), "a name goes through a link: \"a/passwd\"");
  EXPECT_EQ(objectionTo({{"A", "b", kLink}, {"a/b/passwd", "x"}}), "a name goes through a link: \"a/b/passwd\"")
      << "some volumes do not tell the case of letters";
  EXPECT_EQ(objectionTo({{"a", "b", kLink}, {"a", "x"}}), "a name is used twice: \"a\"");
  EXPECT_EQ(objectionTo({{"a", "b", kLink}, {"b/c", "x"}}), "none");
}

TEST_F(ArchiveThreats, NothingIsEverWrittenOutsideOfTheFolder) {
  const std::string top(TKSAppName);
  const std::vector<ZipEntry> rows[] = {
      {{"../outside", "x"}},
      {{base_ / "outside", "x"}},
      {{"link", "..", kLink}, {"link/outside", "x"}},
      {{top + "/link", base_.path(), kLink}, {top + "/link/outside", "x"}},
      {{std::string("a\0/../../outside", 16), "x"}},
      {{top + "/Contents/link", "/etc", kLink}},
  };
  for (const std::vector<ZipEntry>& entries : rows) {
    EXPECT_FALSE(install("5.0.1", file("odd.zip", zipOf(entries))));
    EXPECT_FALSE(fs::exists(base_ / "outside"));
    EXPECT_FALSE(fs::exists(world.folders.temporary() + "/outside"));
    expectUntouched(entries.front().name);
  }
}

TEST_F(ArchiveThreats, ALinkThatLeavesTheLauncherIsRefused) {
  const std::string place = base_ / "linked";
  const std::string bundle = tks::test::makeLauncher(place + "/" + std::string(TKSAppName));
  fs::remove(contentPath(bundle));
  fs::create_symlink("/etc/passwd", contentPath(bundle));
  const std::string zip = tks::test::zipped(place, std::string(TKSAppName), base_ / "linked.zip");
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(logged(8, "Refuse to unpack: " + shown(zip) + ", a link leads out of the folder: "));
  expectUntouched();
  // Where the look into the archive does not tell, the signature does: nothing that is sealed leads out.
  FakeArchives archives;
  archives.entry = [](int) { return ArchiveEntry{std::string(TKSAppName), ArchiveEntry::Kind::folder, 0, ""}; };
  EXPECT_FALSE(install("5.0.1", zip));
  EXPECT_TRUE(logged(8, "Unsafe to install '"));
  expectUntouched();
}

TEST_F(ArchiveThreats, TooManyEntriesAreRefused) {
  FakeArchives archives;
  archives.count = 1'000'000;
  archives.entry = [](int number) { return ArchiveEntry{std::to_string(number), ArchiveEntry::Kind::file, 1, ""}; };
  EXPECT_EQ(objectionTo({}), "too many entries: \"200000\"");
}

TEST_F(ArchiveThreats, SizesThatAreNotToBeHadAreRefused) {
  FakeArchives archives;
  archives.count = 3;
  archives.entry = [](int number) {
    return ArchiveEntry{std::to_string(number), ArchiveEntry::Kind::file, UINT64_MAX / 2, ""};
  };
  EXPECT_EQ(objectionTo({}), "it would grow to 18446744073709551615 bytes") << "the sum does not run over";
}

TEST_F(ArchiveThreats, WhatIsNeitherFileNorFolderNorLinkIsRefused) {
  FakeArchives archives;
  for (const auto kind : {ArchiveEntry::Kind::hardLink, ArchiveEntry::Kind::other}) {
    archives.entry = [&](int) { return ArchiveEntry{"odd", kind, 0, "target"}; };
    EXPECT_EQ(objectionTo({}), "neither file, folder nor link: \"odd\"");
  }
}

TEST_F(ArchiveThreats, LinksThatLeadOutOfTheFolderAreRefused) {
  FakeArchives archives;
  std::string target;
  archives.entry = [&](int) { return ArchiveEntry{"a/b/link", ArchiveEntry::Kind::link, 0, target}; };
  for (const char* out : {"/etc/passwd", "../../../x", "../../..", "c/../../../../x"}) {
    target = out;
    EXPECT_EQ(objectionTo({}), "a link leads out of the folder: \"a/b/link\"") << target;
  }
  for (const char* inside : {"x", "../x", "../../x", "c/../../x"}) {
    target = inside;
    EXPECT_EQ(objectionTo({}), "none") << target;
  }
}

TEST_F(ArchiveThreats, LessThanIsHarmlessMayGrowAsItLikes) {
  writeFile(base_ / "zeros/file", std::string(50'000'000, '\0'));
  const std::string zip = tks::test::zipped(base_ / "zeros", "file", base_ / "zeros.zip");
  const tks::install::ArchiveContent content = tks::install::lookInto(zip, ArchiveFormat::zip, base_.path());
  EXPECT_EQ(content.objection, std::nullopt);
  EXPECT_EQ(content.size, 50'000'000u);
  EXPECT_THAT(content.names, ElementsAre("file"));
}

// Paths that tools could take for something else.

TEST_F(InstallThreats, OddPathsReachTheToolsAsPaths) {
  for (const char* name : {"-d $(touch x);.app", "`touch x`", "a b\n\"c'", "*", "[ab]", "back\\slash", "-u", "a?c"}) {
    const std::string folder = base_ / name;
    const std::string zip = folder + "/" + name + ".zip";
    fs::create_directory(folder);
    fs::copy_file(archive("5.0.1"), zip);
    world.folders.setTemporary(folder);
    const std::string place = folder + "/place/" + name;
    EXPECT_TRUE(install("5.0.1", zip, place)) << name;
    EXPECT_EQ(launcherAt(place), "5.0.1") << name;
    EXPECT_FALSE(fs::exists("x"));
    EXPECT_FALSE(fs::exists(folder + "/x"));
  }
}

TEST_F(InstallThreats, AnArchiveIsNotTakenForAPattern) {
  // Taken for a pattern, the first name stands for the second archive, which nobody has looked at.
  const std::string named = archive("5.0.1");
  fs::rename(named, base_ / "backup[ab].zip");
  fs::rename(archive("5.0.2"), base_ / "backupa.zip");
  EXPECT_TRUE(install("5.0.1", base_ / "backup[ab].zip"));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

// What hosts may ask for by name is not in force without it.

TEST_F(InstallThreats, VersionsAreComparedAsTheyAreWithoutAMemoryOfEarlierOnes) {
  TKSIAppManager manager;
  const struct {
    const char* offered;
    const char* installed;
    bool newer;
  } rows[] = {{"4.2.10", "4.2.9", true}, {"4.2.9", "4.2.9", false}, {"4.2.8", "4.2.9", false}, {"5", "4.2.9", true}};
  for (const auto& row : rows) {
    writeFile(base_ / "A.app/Contents/Info.plist", tks::test::launcherInformation("A", "com.tarvo.a", row.installed));
    EXPECT_EQ(manager.isBackupVersionNewer(row.offered, base_ / "A.app"), row.newer)
        << row.offered << " over " << row.installed;
    EXPECT_EQ(TKSUtilBase::isNewerVersion(row.offered, row.installed), row.newer);
  }
}

TEST_F(InstallThreats, AnyFolderIsCleanedUpThatTheHostNamesButNoHome) {
  // The home of this test, which lies in its own folder: what is really dear to somebody is named in no test.
  const std::string home = world.folders.realHome();
  ASSERT_TRUE(home.starts_with(base_.path() + "/"));
  writeFile(home + "/Documents/folder/file", "x");
  EXPECT_TRUE(TKSUtilBase::cleanUpFolderPath(home + "/Documents/folder", false));
  EXPECT_FALSE(fs::exists(home + "/Documents/folder"));
  EXPECT_FALSE(TKSUtilBase::cleanUpFolderPath(home, false));
  EXPECT_TRUE(fs::exists(home + "/Documents"));
}

}  // namespace
