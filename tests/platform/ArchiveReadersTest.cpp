#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/apple/tar_headers.h"
#include "platform/platform.h"
#include "platform/posix/zip_directory.h"
#include "tests/support/TemporaryFolder.h"

// What macOS looks into archives with, against the library that does it elsewhere: over sound archives, and over every
// kind of damage to them.

namespace {

using tks::platform::ArchiveEntry;
using tks::posix::FileDescriptor;
using tks::test::contentOf;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

using Entry = std::tuple<std::string, ArchiveEntry::Kind, std::uint64_t, std::string>;
using Entries = std::vector<Entry>;

bool isZip(const std::string& path) { return contentOf(path).find("PK\x05\x06") != std::string::npos; }

/// All entries, or nothing for an archive that cannot be read to its end.
std::optional<Entries> ours(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  Entries entries;
  const char* reason = nullptr;
  const auto visit = [&](const ArchiveEntry& entry) {
    entries.emplace_back(entry.name, entry.kind, entry.size, entry.target);
    return true;
  };
  const bool read = isZip(path) ? tks::posix::readZipDirectory(file, visit, reason)
                                : tks::platform::apple::readTarHeaders(file, visit, reason);
  if (read) return entries;
  EXPECT_NE(reason, nullptr);
  return std::nullopt;
}

Entry described(archive_entry* entry) {
  const auto text = [](const char* name) { return name == nullptr ? std::string() : std::string(name); };
  const bool hard = archive_entry_hardlink(entry) != nullptr;
  ArchiveEntry::Kind kind = ArchiveEntry::Kind::other;
  if (hard) kind = ArchiveEntry::Kind::hardLink;
  if (!hard && archive_entry_filetype(entry) == AE_IFREG) kind = ArchiveEntry::Kind::file;
  if (!hard && archive_entry_filetype(entry) == AE_IFDIR) kind = ArchiveEntry::Kind::folder;
  if (!hard && archive_entry_filetype(entry) == AE_IFLNK) kind = ArchiveEntry::Kind::link;
  const auto size = static_cast<std::uint64_t>(archive_entry_size(entry));
  return {text(archive_entry_pathname(entry)), kind, kind == ArchiveEntry::Kind::file ? size : 0,
          text(hard ? archive_entry_hardlink(entry) : archive_entry_symlink(entry))};
}

/// What a library for archives of all kinds finds, and whether it comes to the end.
std::pair<Entries, bool> theirs(const std::string& path) {
  const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = ::uselocale(utf8);
  archive* const reader = archive_read_new();
  archive_read_support_filter_all(reader);
  archive_read_support_format_zip_seekable(reader);
  archive_read_support_format_tar(reader);
  Entries entries;
  int status = archive_read_open_filename(reader, path.c_str(), 65536);
  while (status == ARCHIVE_OK || status == ARCHIVE_WARN) {
    archive_entry* entry = nullptr;
    status = archive_read_next_header(reader, &entry);
    if (status == ARCHIVE_OK || status == ARCHIVE_WARN) entries.push_back(described(entry));
  }
  archive_read_free(reader);
  ::uselocale(before);
  ::freelocale(utf8);
  return {entries, status == ARCHIVE_EOF};
}

void run(const std::string& command) { ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command; }

std::string text(const Entries& entries, std::size_t i) {
  if (i >= entries.size()) return "nothing";
  const auto& [name, kind, size, target] = entries[i];
  return name + " kind " + std::to_string(static_cast<int>(kind)) + " size " + std::to_string(size) + " target " +
         target;
}

/// Whether ours is a link where the library sees a file, which is the careful view: the library takes the kind from
/// entries made on a Unix alone, unpackers also from others.
bool isCareful(const Entries& left, const Entries& right, std::size_t i) {
  return i < std::min(left.size(), right.size()) && std::get<0>(left[i]) == std::get<0>(right[i]) &&
         std::get<1>(left[i]) == ArchiveEntry::Kind::link && std::get<1>(right[i]) == ArchiveEntry::Kind::file;
}

/// Where two lists part, in words; empty when they do not.
std::string difference(const Entries& left, const Entries& right) {
  for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    if (text(left, i) != text(right, i) && !isCareful(left, right, i))
      return text(left, i) + " instead of " + text(right, i);
  }
  return "";
}

/// A tree of everything that an archive may hold.
class ArchiveReaders : public testing::Test {
 protected:
  void SetUp() override {
    const std::string tree = folder_ / "tree";
    const std::string inner = tree + "/App.app/Contents/MacOS";
    writeFile(inner + "/program", std::string(3000, 'x'));
    writeFile(tree + "/empty", "");
    writeFile(tree + "/\xC3\xA4\xC3\xB6.txt", "umlauts");
    writeFile(tree + "/" + std::string(120, 'n') + "/" + std::string(110, 'm'), "long names");
    std::filesystem::create_symlink("MacOS/program", tree + "/App.app/Contents/link");
    std::filesystem::create_symlink(std::string(150, 't'), tree + "/longlink");
    std::filesystem::create_directory(tree + "/folder");
  }

  std::string pack(const std::string& name, const std::string& command, const std::string& what = ".") {
    const std::string path = folder_ / name;
    run("cd '" + folder_.path() + "/tree' && " + command + " '" + path + "' " + what);
    return path;
  }

  std::vector<std::string> tarFiles() {
    // The oldest form has no room for the long link.
    return {pack("ustar.tar", "tar --format=ustar -cf", "App.app empty folder"),
            pack("pax.tar", "tar --format=pax -cf"), pack("gnu.tar", "tar --format=gnu -cf")};
  }

  std::vector<std::string> zipFiles() {
    return {pack("plain.zip", "zip -qry"), pack("stored.zip", "zip -qry0"),
            pack("followed.zip", "zip -qr", "App.app empty folder")};
  }

  /// Writes what is left of an archive after some damage, and compares: what is read to the end must be just what the
  /// library finds.
  void compareDamaged(const std::string& content, const std::string& what) {
    const std::string path = folder_ / "damaged";
    writeFile(path, content);
    const std::optional<Entries> found = ours(path);
    if (!found) return;
    ++readable_;
    const auto [expected, complete] = theirs(path);
    if (!complete) return;
    EXPECT_EQ(difference(*found, expected), "") << what;
  }

  int readable_ = 0;
  TemporaryFolder folder_;
};

TEST_F(ArchiveReaders, FindInSoundArchivesWhatTheLibraryFinds) {
  std::vector<std::string> files = tarFiles();
  for (std::string& file : zipFiles()) files.push_back(std::move(file));
  for (const std::string& file : files) {
    const std::optional<Entries> found = ours(file);
    ASSERT_TRUE(found) << file;
    EXPECT_GT(found->size(), 3u) << file;
    EXPECT_EQ(*found, theirs(file).first) << file;
  }
}

TEST_F(ArchiveReaders, PlacesInAZipArchiveCountFromTheEndOfWhatStandsInFrontOfIt) {
  for (const std::string& file : zipFiles()) {
    writeFile(folder_ / "with-front", "#!/bin/sh\nexit 1\n" + contentOf(file));
    EXPECT_EQ(ours(folder_ / "with-front"), ours(file));
    EXPECT_EQ(ours(folder_ / "with-front"), theirs(folder_ / "with-front").first);
  }
}

TEST_F(ArchiveReaders, DamagedBytesNeverHideAnEntry) {
  std::vector<std::string> files = tarFiles();
  for (std::string& file : zipFiles()) files.push_back(std::move(file));
  std::mt19937 random(7);
  for (const std::string& file : files) {
    const std::string sound = contentOf(file);
    for (int i = 0; i < 200; ++i) {
      std::string content = sound;
      const std::size_t at = random() % content.size();
      content[at] = static_cast<char>(random());
      compareDamaged(content, file + " byte " + std::to_string(at));
    }
  }
  EXPECT_GT(readable_, 100);
}

TEST_F(ArchiveReaders, ArchivesThatEndEarlyAreNotReadToTheirEnd) {
  for (const std::string& file : tarFiles()) {
    const std::string sound = contentOf(file);
    for (std::size_t size = 0; size < sound.size() / 2; size += 173) compareDamaged(sound.substr(0, size), file);
  }
  for (const std::string& file : zipFiles()) {
    const std::string sound = contentOf(file);
    for (std::size_t size = 0; size < sound.size(); size += 11) {
      writeFile(folder_ / "cut", sound.substr(0, size));
      EXPECT_EQ(ours(folder_ / "cut"), std::nullopt) << file << " cut to " << size;
    }
  }
}

TEST_F(ArchiveReaders, FilesOfOtherKindsAreNoArchives) {
  for (const std::string& content : {std::string(), std::string("text"), std::string(100'000, 'a')}) {
    writeFile(folder_ / "other", content);
    EXPECT_EQ(ours(folder_ / "other"), std::nullopt);
  }
}

TEST_F(ArchiveReaders, AVisitorEndsTheLook) {
  for (const std::string& path : {tarFiles().front(), zipFiles().front()}) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    int calls = 0;
    const auto visit = [&](const ArchiveEntry&) { return ++calls < 2; };
    const char* reason = nullptr;
    EXPECT_TRUE(isZip(path) ? tks::posix::readZipDirectory(file, visit, reason)
                            : tks::platform::apple::readTarHeaders(file, visit, reason));
    EXPECT_EQ(calls, 2);
  }
}

/// One block of a tar archive with its sum.
std::string tarHeader(const std::string& name, char type, const std::string& size, const std::string& magic) {
  std::string block(512, '\0');
  block.replace(0, name.size(), name);
  block.replace(100, 7, "0000644");
  block.replace(124, size.size(), size);
  block.replace(136, 11, "00000000000");
  block[156] = type;
  block.replace(257, magic.size(), magic);
  block.replace(148, 8, "        ");
  unsigned sum = 0;
  for (const char byte : block) sum += static_cast<unsigned char>(byte);
  char text[8];
  std::snprintf(text, sizeof text, "%06o", sum);
  block.replace(148, 7, std::string(text, 7));
  return block;
}

std::string padded(std::string content) {
  content.resize((content.size() + 511) / 512 * 512);
  return content;
}

const std::string kUstar("ustar\00000", 8);
const std::string kEnd(1024, '\0');

TEST_F(ArchiveReaders, AFolderOrLinkThatClaimsContentHidesNothingAfterIt) {
  for (const char type : {'2', '5'}) {
    const std::string path = folder_ / "hidden.tar";
    writeFile(path,
              tarHeader("shown", type, "00000001000", kUstar) + tarHeader("hidden", '0', "00000000000", kUstar) + kEnd);
    const std::optional<Entries> found = ours(path);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, theirs(path).first);
    ASSERT_EQ(found->size(), 2u);
    EXPECT_EQ(std::get<0>(found->back()), "hidden");
  }
}

TEST_F(ArchiveReaders, SizesThatCanBeReadInTwoWaysAreDamage) {
  for (const std::string& size : {std::string("0 7"), std::string("17x"), std::string("-1"),
                                  std::string("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
                                  std::string("\x80\x00\x00\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 12)}) {
    writeFile(folder_ / "size.tar", tarHeader("file", '0', size, kUstar) + kEnd);
    EXPECT_EQ(ours(folder_ / "size.tar"), std::nullopt);
  }
}

TEST_F(ArchiveReaders, RecordsForAllEntriesMayNotNameThem) {
  const std::string record = "20 path=../../hidden\n";
  const std::string records = std::to_string(record.size()) + record.substr(2);
  char size[12];
  std::snprintf(size, sizeof size, "%011zo", records.size());
  writeFile(folder_ / "global.tar", tarHeader("global", 'g', size, kUstar) + padded(records) +
                                        tarHeader("file", '0', "00000000000", kUstar) + kEnd);
  EXPECT_EQ(ours(folder_ / "global.tar"), std::nullopt);
}

TEST_F(ArchiveReaders, AFileWithHolesIsNeitherFileNorFolder) {
  const std::string records = "31 GNU.sparse.name=../../hidden\n";
  char size[12];
  std::snprintf(size, sizeof size, "%011zo", records.size());
  const std::string fixed = std::to_string(records.size()) + records.substr(2);
  writeFile(folder_ / "sparse.tar",
            tarHeader("pax", 'x', size, kUstar) + padded(fixed) + tarHeader("file", '0', "00000000000", kUstar) + kEnd);
  const std::optional<Entries> found = ours(folder_ / "sparse.tar");
  ASSERT_TRUE(found && found->size() == 1);
  EXPECT_EQ(std::get<1>(found->front()), ArchiveEntry::Kind::other);
}

TEST_F(ArchiveReaders, TheCountOfTheEndRecordHidesNoEntryOfAZipArchive) {
  for (const std::string& file : zipFiles()) {
    std::string content = contentOf(file);
    content[content.size() - 22 + 8] = 1;
    content[content.size() - 22 + 10] = 1;
    writeFile(folder_ / "count.zip", content);
    EXPECT_EQ(ours(folder_ / "count.zip"), std::nullopt);
  }
}

}  // namespace
