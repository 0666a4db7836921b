#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ZipWriter.h"

// What every implementation of the contract promises. On macOS both readers are the library's own: a zip is read by its
// directory, a tar by its headers, in the forms that the tar of either system writes, but not compressed. How Linux
// reads compressed ones: linux/files/CompressedArchivesTest.cpp.

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tks::platform::ArchiveEntry;
using tks::platform::ArchiveFormat;
using tks::test::writeFile;
using tks::test::ZipEntry;
using tks::test::zipOf;
using Kind = ArchiveEntry::Kind;

class Archives : public ::testing::Test {
 protected:
  /// Temporary archives have the names of their formats.
  static ArchiveFormat formatOf(const std::string& path) {
    return path.find(".tar") != std::string::npos ? ArchiveFormat::tar : ArchiveFormat::zip;
  }
  std::vector<ArchiveEntry> entriesOf(const std::string& path) {
    std::vector<ArchiveEntry> entries;
    EXPECT_TRUE(tks::platform::archives().inspect(
        path, formatOf(path),
        [&](const ArchiveEntry& entry) {
          entries.push_back(entry);
          return true;
        },
        &error))
        << error.description();
    return entries;
  }
  std::vector<std::string> namesOf(const std::string& path) {
    std::vector<std::string> names;
    for (const ArchiveEntry& entry : entriesOf(path)) names.push_back(entry.name);
    return names;
  }
  /// macOS' tar would put an entry of its own beside each file with attributes, and warns of names that the locale has
  /// not.
  bool run(const std::string& command) {
    return std::system(
               ("export COPYFILE_DISABLE=1 LC_ALL=en_US.UTF-8; cd '" + folder.path() + "' && " + command + " > log")
                   .c_str()) == 0;
  }
  tks::test::TemporaryFolder folder;
  TKSError error;
};

TEST_F(Archives, TellNamesKindsAndSizesOfAZip) {
  writeFile(folder / "A.app/Contents/file", std::string(5000, 'x'));
  fs::create_symlink("file", folder / "A.app/Contents/link");
  ASSERT_TRUE(run("zip -qry a.zip A.app"));
  for (const ArchiveEntry& entry : entriesOf(folder / "a.zip")) {
    if (entry.name == "A.app/Contents/file") {
      EXPECT_EQ(entry.kind, Kind::file);
      EXPECT_EQ(entry.size, 5000u);
    } else if (entry.name == "A.app/Contents/link") {
      EXPECT_EQ(entry.kind, Kind::link);
    } else {
      EXPECT_EQ(entry.kind, Kind::folder) << entry.name;
    }
  }
  EXPECT_THAT(namesOf(folder / "a.zip"),
              UnorderedElementsAre("A.app/", "A.app/Contents/", "A.app/Contents/file", "A.app/Contents/link"));
}

TEST_F(Archives, TellNamesBeyondAsciiWhateverTheLocale) {
  writeFile(folder / "a.zip", zipOf({{"A.app/Grüße/会议.strings", "x"}}));
  EXPECT_THAT(namesOf(folder / "a.zip"), ElementsAre("A.app/Grüße/会议.strings"));
  writeFile(folder / "A.app/Ünïcode/中文", "x");
  ASSERT_TRUE(run("zip -qr b.zip A.app && tar -cf b.tar A.app"));
  EXPECT_THAT(namesOf(folder / "b.zip"), testing::Contains("A.app/Ünïcode/中文"));
  EXPECT_THAT(namesOf(folder / "b.tar"), testing::Contains("A.app/Ünïcode/中文"));
}

TEST_F(Archives, TellOddNamesAsTheyStand) {
  writeFile(folder / "a.zip", zipOf({{"../up", "x"}, {"/root", "x"}, {"a/../../b", "x"}}));
  EXPECT_THAT(namesOf(folder / "a.zip"), ElementsAre("../up", "/root", "a/../../b"));
}

TEST_F(Archives, TellLinksAndTheirTargetsOfATar) {
  writeFile(folder / "t/file", "x");
  fs::create_symlink("../../outside", folder / "t/link");
  fs::create_hard_link(folder / "t/file", folder / "t/hard");
  ASSERT_TRUE(run("mkfifo t/fifo && tar -cf a.tar t/file t/link t/hard t/fifo"));
  const std::vector<ArchiveEntry> entries = entriesOf(folder / "a.tar");
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[1].kind, Kind::link);
  EXPECT_EQ(entries[1].target, "../../outside");
  EXPECT_EQ(entries[2].kind, Kind::hardLink);
  EXPECT_EQ(entries[2].target, "t/file");
  EXPECT_EQ(entries[3].kind, Kind::other);
}

TEST_F(Archives, EndTheLookWhenItIsEnough) {
  writeFile(folder / "a.zip", zipOf({{"a", "x"}, {"b", "x"}}));
  int count = 0;
  EXPECT_TRUE(tks::platform::archives().inspect(
      folder / "a.zip", ArchiveFormat::zip, [&](const ArchiveEntry&) { return ++count < 1; }, &error));
  EXPECT_EQ(count, 1);
}

TEST_F(Archives, ThatCannotBeReadNameTheReason) {
  writeFile(folder / "garbage", std::string(3000, 'g'));
  writeFile(folder / "garbage.tar", std::string(3000, 'g'));
  writeFile(folder / "empty", "");
  const std::string whole = zipOf({{"a", std::string(5000, 'x')}, {"b", "x"}});
  writeFile(folder / "cut", whole.substr(0, whole.size() / 2));
  for (const char* name : {"garbage", "cut", "none", "garbage.tar", "none.tar"}) {
    int count = 0;
    TKSError reason;
    EXPECT_FALSE(tks::platform::archives().inspect(
        folder / name, formatOf(name), [&](const ArchiveEntry&) { return ++count > 0; }, &reason))
        << name;
    EXPECT_EQ(reason.domain, "NSPOSIXErrorDomain") << name;
    EXPECT_THAT(reason.localizedDescription, testing::StartsWith("read archive \"" + (folder / name) + "\": ")) << name;
  }
}

}  // namespace
