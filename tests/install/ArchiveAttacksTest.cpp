#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "install/UnpackedTree.h"
#include "tests/install/InstallTest.h"
#include "tests/support/FakeArchives.h"
#include "tests/support/ZipWriter.h"

// Archives that say one thing to who looks and another to who unpacks, and what is done with what came out.

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tks::platform::ArchiveEntry;
using tks::platform::ArchiveFormat;
using tks::platform::Tool;
using tks::test::contentOf;
using tks::test::FakeArchives;
using tks::test::launcherAt;
using tks::test::LauncherPlan;
using tks::test::namesIn;
using tks::test::writeFile;
using tks::test::ZipEntry;
using tks::test::zipOf;

constexpr std::uint32_t kLink = 0120777;
constexpr std::uint32_t kFile = 0100644;
const std::string kTop(TKSAppName);

unsigned modeOf(const std::string& path) {
  struct stat facts {};
  return ::lstat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
}

class ArchiveAttacks : public tks::test::InstallTest {
 protected:
  void SetUp() override {
    putLauncher("4.9");
    writeFile(base_ / "victims/file", "precious");
  }
  void expectRefused(const std::string& zip, const std::string& what) {
    EXPECT_FALSE(install("5.0.1", zip)) << what;
    EXPECT_TRUE(logged(8, "Refuse to unpack: " + shown(zip) + ", ")) << what;
    EXPECT_TRUE(logged(8, "Unsafe to install '" + shown(world.unpacked()) + "': ")) << what;
    EXPECT_EQ(contentOf(base_ / "victims/file"), "precious") << what;
    EXPECT_THAT(namesIn(base_ / "victims"), testing::ElementsAre("file")) << what;
    EXPECT_EQ(launcherAt(target()), "4.9") << what;
    expectNothingLeft();
  }
};

// Two descriptions of one entry.

TEST_F(ArchiveAttacks, ALinkThatOnlyTheUnpackerSeesServesNoLaterArchive) {
  // The header in front of the content speaks of a file of another name; the directory, which unpackers go by, of a
  // link.
  const ZipEntry link{.name = "kept",
                      .content = base_ / "victims",
                      .mode = kLink,
                      .localName = "harm",
                      .localExtra = tks::test::zipLocalMode(kFile)};
  install("5.0.1", file("first.zip", zipOf({link})));
  install("5.0.1", file("second.zip", zipOf({{"kept/file", "overwritten"}, {"kept/added", "x"}})));
  EXPECT_EQ(contentOf(base_ / "victims/file"), "precious");
  EXPECT_THAT(namesIn(base_ / "victims"), testing::ElementsAre("file"));
  EXPECT_THAT(namesIn(world.unpackFolder()), IsEmpty());
}

TEST_F(ArchiveAttacks, EntriesThatAreDescribedInTwoWaysAreRefused) {
  const struct {
    const char* what;
    ZipEntry entry;
  } rows[] = {
      {"another name", {.name = kTop + "/a", .content = "x", .localName = kTop + "/b"}},
      {"a longer name", {.name = kTop + "/a", .content = "x", .localName = kTop + "/ab"}},
      {"another name in UTF-8",
       {.name = kTop + "/a", .content = "x", .extra = tks::test::zipUnicodePath(kTop + "/a", "../a")}},
      {"another name in UTF-8 in front of the content",
       {.name = kTop + "/a", .content = "x", .localExtra = tks::test::zipUnicodePath(kTop + "/a", kTop + "/b")}},
      {"another name in UTF-8 that leads out",
       {.name = kTop + "/a", .content = "x", .extra = tks::test::zipUnicodePath(kTop + "/a", "../\xC3\xA4")}},
  };
  for (const auto& [what, entry] : rows) expectRefused(file("odd.zip", zipOf({entry})), what);
}

TEST_F(ArchiveAttacks, AKindThatStandsElsewhereCounts) {
  // Older archivers keep kind and permissions in an extra field; some unpackers take the mode of an archive from any
  // system for one from Unix.
  const std::string mode =
      tks::test::zipExtra(0x756e, tks::test::zipNumber(0, 4) + tks::test::zipNumber(kLink, 2) + std::string(8, '\0'));
  const std::string out = base_ / "victims";
  for (const ZipEntry& link : {ZipEntry{.name = "kept", .content = out, .mode = 0, .extra = mode},
                               ZipEntry{.name = "kept", .content = out, .mode = kLink, .madeOn = 0}}) {
    expectRefused(file("odd.zip", zipOf({link})), "a link");
  }
}

TEST_F(ArchiveAttacks, AFullNameInTheEntrysExtraFieldIsTakenAsUnpackersDo) {
  const std::string plain = "Gr__e.txt";
  const std::string full = "Gr\xC3\xBC\xC3\x9F\x65.txt";
  const std::string extra = tks::test::zipUnicodePath(plain, full);
  const std::string zip =
      file("names.zip", zipOf({{.name = plain, .content = "x", .extra = extra, .localExtra = extra, .flags = 0}}));
  const tks::install::ArchiveContent content = tks::install::lookInto(zip, ArchiveFormat::zip, base_.path());
  EXPECT_EQ(content.objection, std::nullopt);
  EXPECT_THAT(content.names, testing::ElementsAre(full));
}

TEST_F(ArchiveAttacks, AnEndCommentOfAnyLengthIsFine) {
  const std::string whole = contentOf(archive("5.0.1"));
  for (const std::size_t length : {1u, 200u, 20'000u, 65'535u}) {
    std::string zip = whole;
    zip.replace(zip.size() - 2, 2, tks::test::zipNumber(static_cast<std::uint32_t>(length), 2));
    EXPECT_TRUE(install("5.0.1", file("comment.zip", zip + std::string(length, 'c')))) << length;
    EXPECT_EQ(launcherAt(target()), "5.0.1");
  }
}

// Somebody who exchanges the archive.

TEST_F(ArchiveAttacks, AnArchiveThatIsExchangedAfterTheLookIsNotTheOneThatIsUnpacked) {
  const std::string zip = archive("5.0.1");
  FakeArchives archives;
  archives.sequel = [&] {
    writeFile(zip, zipOf({{"kept", base_ / "victims", kLink}, {"kept/added", "x"}, {"other", "x"}}));
  };
  EXPECT_TRUE(install("5.0.1", zip));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
  EXPECT_THAT(namesIn(base_ / "victims"), testing::ElementsAre("file"));
  expectNothingLeft();
}

TEST_F(ArchiveAttacks, AnArchiveBehindALinkIsCopiedAndTheLinkStays) {
  fs::create_symlink(archive("5.0.1"), base_ / "link.zip");
  EXPECT_TRUE(install("5.0.1", base_ / "link.zip"));
  EXPECT_TRUE(fs::is_symlink(base_ / "link.zip"));
  EXPECT_EQ(launcherAt(target()), "5.0.1");
}

TEST_F(ArchiveAttacks, WhatIsNoFileIsNoArchive) {
  fs::create_directory(base_ / "folder.zip");
  ASSERT_EQ(::mkfifo((base_ / "fifo.zip").c_str(), 0600), 0);
  for (const char* name : {"folder.zip", "fifo.zip"}) expectRefused(base_ / name, name);
}

// Where it is unpacked.

TEST_F(ArchiveAttacks, EachArchiveIsUnpackedInAFreshFolderThatNobodyElseCanEnter) {
  for (const bool hasIdentifier : {true, false}) {
    if (!hasIdentifier) world.host.bundleIdentifier.reset();
    std::vector<std::string> folders;
    world.tools.after[Tool::unzip] = [&](const auto&) {
      const fs::path unpacked = fs::path(world.unpackedByTool()).parent_path();
      EXPECT_THAT(namesIn(unpacked), testing::ElementsAre(kTop)) << "it was empty";
      EXPECT_EQ(modeOf(unpacked.parent_path()), 0700u);
      folders.push_back(unpacked);
    };
    for (int round = 0; round < 2; ++round) ASSERT_TRUE(install("5.0.1", archive("5.0.1")));
    ASSERT_EQ(folders.size(), 2u);
    EXPECT_NE(folders[0], folders[1]);
    EXPECT_FALSE(fs::exists(fs::path(folders[0]).parent_path()));
    expectNothingLeft();
  }
}

TEST_F(ArchiveAttacks, WhatAProcessThatWasEndedLeftGoesAndNoLinkInItIsFollowed) {
  const std::string left = world.unpackFolder() + "/.unpacking-abcdef";
  writeFile(left + "/archive", "x");
  writeFile(left + "/unpacked/closed/file", "x");
  fs::create_directory_symlink(base_ / "victims", left + "/unpacked/link");
  fs::permissions(left + "/unpacked/closed", fs::perms(0500));
  EXPECT_FALSE(install("5.0.1", base_ / "none.zip")) << "also with nothing to install";
  EXPECT_EQ(contentOf(base_ / "victims/file"), "precious");
  expectNothingLeft();
}

// What came out.

TEST_F(ArchiveAttacks, WhatTheUnpackerLeavesIsLookedAtBeforeItIsUsed) {
  const std::string top = "\"$3/" + kTop + "/Contents/";
  const std::pair<const char*, std::string> rows[] = {
      {"neither file, folder nor link", "mkfifo " + top + "PkgInfo\""},
      {"neither file, folder nor link", "ln '" + base_ / "victims/file" + "' " + top + "more\""},
      {"a link leads out of the folder", "ln -s '" + base_ / "victims" + "' " + top + "Info.plist.1\""},
      {"not in the archive's list", "echo x > " + top + "added\""},
      {"not in the archive's list", "mkdir " + top + "added\""},
      {"not in the archive's list", "echo x > \"$3/beside\""},
      {"not in the archive's list", "head -c 5000000 /dev/zero > " + top + "Info.plist\""},
  };
  const std::string zip = archive("5.0.1");
  for (const auto& [reason, script] : rows) {
    world.tools.script(Tool::unzip, "/usr/bin/unzip \"$@\"; " + script);
    expectRefused(zip, script);
    if (script.find("Info.plist.1") == std::string::npos) {
      EXPECT_TRUE(logged(8, "Refuse to unpack: " + shown(zip) + ", " + reason + ": ")) << script;
    }
  }
}

TEST_F(ArchiveAttacks, LinksThatLeadOutOverOtherLinksAreRefused) {
  // Each looks harmless by itself: the first stays in the launcher, the second seems to.
  const std::string contents = base_ / ("made/" + kTop + "/Contents");
  tks::test::makeLauncher(base_ / ("made/" + kTop));
  fs::create_directory_symlink("..", contents + "/up");
  fs::create_directory_symlink("up/../../..", contents + "/out");
  expectRefused(tks::test::zipped(base_ / "made", kTop, base_ / "links.zip"), "over a link");
  fs::remove(contents + "/out");
  fs::create_directory_symlink("round", contents + "/round");
  expectRefused(tks::test::zipped(base_ / "made", kTop, base_ / "round.zip"), "round and round");
  fs::remove(contents + "/round");
  fs::create_directory_symlink("../../beside", contents + "/beside");
  expectRefused(tks::test::zipped(base_ / "made", kTop, base_ / "beside.zip"), "out of the launcher alone");
}

TEST_F(ArchiveAttacks, TheLauncherItselfIsNoLink) {
  tks::test::makeLauncher(base_ / "made/real.app");
  fs::create_directory_symlink("real.app", base_ / ("made/" + kTop));
  EXPECT_FALSE(install("5.0.1", tks::test::zipped(base_ / "made", ".", base_ / "link.zip")));
  EXPECT_TRUE(log.has(2, "Unzip backup to temp TKS app: " + shown(world.unpacked()) + ", result: 0"));
  EXPECT_EQ(launcherAt(target()), "4.9");
  expectNothingLeft();
}

/// A tree with the links that frameworks have.
TEST_F(ArchiveAttacks, LinksWithinALauncherAreFine) {
  const std::string tree = base_ / "tree";
  writeFile(tree + "/A.app/Contents/Frameworks/F.framework/Versions/A/F", "x");
  fs::create_directory_symlink("A", tree + "/A.app/Contents/Frameworks/F.framework/Versions/Current");
  fs::create_symlink("Versions/Current/F", tree + "/A.app/Contents/Frameworks/F.framework/F");
  fs::create_symlink("../Frameworks/F.framework/F", tree + "/A.app/Contents/Frameworks/G");
  fs::create_symlink("nowhere", tree + "/A.app/Contents/dangling");
  EXPECT_EQ(tks::install::objectionToTree(tree, {}, {}, 0777), std::nullopt);
}

// Permissions.

/// Says for a launcher's files what permissions they have in the archive.
std::string zipWithModes(const std::string& folder, const std::function<std::uint32_t(const std::string&)>& modeFor) {
  std::vector<ZipEntry> entries;
  for (const auto& item : fs::recursive_directory_iterator(folder)) {
    const std::string name = item.path().string().substr(folder.size() + 1);
    if (item.is_symlink()) {
      entries.push_back({name, fs::read_symlink(item.path()), kLink});
    } else if (item.is_directory()) {
      entries.push_back({name + "/", "", 040000 | modeFor(name + "/")});
    } else {
      entries.push_back({name, contentOf(item.path()), 0100000 | modeFor(name)});
    }
  }
  return zipOf(entries);
}

class ArchivePermissions : public ArchiveAttacks {
 protected:
  std::string archiveWith(std::uint32_t files, std::uint32_t folders, std::uint32_t programs) {
    const std::string made = base_ / "made";
    fs::remove_all(made);
    tks::test::makeLauncher(made + "/" + kTop);
    return file("modes.zip", zipWithModes(made, [&](const std::string& name) {
                  if (name.ends_with('/')) return folders;
                  return name.find("/MacOS/") != std::string::npos ? programs : files;
                }));
  }
  void expectModes(unsigned files, unsigned folders, unsigned programs, const std::string& what) {
    for (const auto& item : fs::recursive_directory_iterator(target())) {
      const std::string path = item.path();
      if (item.is_symlink()) continue;
      unsigned expected = item.is_directory() ? folders : files;
      if (!item.is_directory() && path.find("/MacOS/") != std::string::npos) expected = programs;
      EXPECT_EQ(modeOf(path), expected) << what << " " << path;
    }
    EXPECT_EQ(modeOf(target()), folders) << what;
  }
};

TEST_F(ArchivePermissions, OfAnArchiveBecomeOrdinaryOnes) {
  const struct {
    std::uint32_t files, folders, programs;
  } rows[] = {{0666, 0777, 0777}, {0000, 0755, 0100}, {0644, 0755, 0755}, {0600, 0700, 0001}, {04644, 01777, 06755}};
  for (const auto& row : rows) {
    ASSERT_TRUE(install("5.0.1", archiveWith(row.files, row.folders, row.programs)));
    expectModes(0644, 0755, 0755, std::to_string(row.files));
  }
}

TEST_F(ArchivePermissions, HaveNoMoreThanTheUmaskLeaves) {
  const std::string zip = archiveWith(0666, 0777, 0777);
  const mode_t before = ::umask(027);
  const bool installed = install("5.0.1", zip);
  EXPECT_EQ(::umask(before), 027u) << "the process's own stays as it was";
  ASSERT_TRUE(installed);
  expectModes(0640, 0750, 0750, "with a umask");
}

}  // namespace
