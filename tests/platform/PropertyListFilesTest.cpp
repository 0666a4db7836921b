#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "platform/platform.h"
#include "tests/support/ProcessState.h"
#include "tests/support/PropertyListSamples.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises of lists in files. On macOS the system's reader gets the content
// alone: files are opened, bounded and replaced by the library, as everywhere.

namespace {

using namespace tks::test;
using namespace tks::test::plist;
using tks::platform::PropertyLists;
using Format = PropertyLists::Format;

PropertyLists& lists() { return tks::platform::propertyLists(); }

class PropertyListFiles : public testing::Test {
 protected:
  std::optional<TKSDictionary> read(const std::string& path) { return lists().readDictionary(path, &error_); }
  bool write(const TKSDictionary& dictionary, const std::string& path) {
    return lists().writeDictionary(dictionary, path, &error_);
  }
  std::size_t itemsInFolder() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }

  TemporaryFolder folder_;
  std::string path_ = folder_ / "list.plist";
  TKSError error_;
};

TEST_F(PropertyListFiles, AWrittenDictionaryIsReadBack) {
  const TKSDictionary dictionary{{"a", TKSArray{1, "two"}}, {"b", TKSDictionary{{"c", true}}}};
  ASSERT_TRUE(write(dictionary, path_)) << error_.description();
  EXPECT_EQ(read(path_), dictionary);
  EXPECT_TRUE(contentOf(path_).starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC"));
  EXPECT_EQ(itemsInFolder(), 1u);
  EXPECT_EQ(error_, TKSError());
}

TEST_F(PropertyListFiles, BothFormsAreReadFromFiles) {
  const TKSDictionary dictionary{{"a", 1}};
  for (const Format format : {Format::xml, Format::binary}) {
    const std::optional<TKSData> content = lists().serialize(dictionary, format, nullptr);
    writeFile(path_, std::string(content->begin(), content->end()));
    EXPECT_EQ(read(path_), dictionary);
  }
}

TEST_F(PropertyListFiles, WhatXmlCannotHoldIsNotLost) {
  const TKSDictionary dictionary{{"bell", "\a"}, {"nul", std::string_view("a\0b", 3)}, {"late", TKSDate{1e15}}};
  ASSERT_TRUE(write(dictionary, path_)) << error_.description();
  EXPECT_EQ(read(path_), dictionary);
}

TEST_F(PropertyListFiles, AFailedWriteLeavesTheOldContent) {
  ASSERT_TRUE(write({{"old", 1}}, path_));
  EXPECT_FALSE(write({{"new", TKSNull()}}, path_));
  EXPECT_FALSE(error_.localizedDescription.empty());
  EXPECT_EQ(read(path_), (TKSDictionary{{"old", 1}}));
  EXPECT_EQ(itemsInFolder(), 1u);
}

TEST_F(PropertyListFiles, WritingKeepsThePermissions) {
  ASSERT_TRUE(write({{"a", 1}}, path_));
  ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
  ASSERT_TRUE(write({{"a", 2}}, path_));
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0640});
}

TEST_F(PropertyListFiles, AMissingFolderIsAnError) {
  EXPECT_FALSE(write({{"a", 1}}, folder_ / "missing/list.plist"));
  EXPECT_NE(error_.localizedDescription.find("missing/list.plist"), std::string::npos);
}

TEST_F(PropertyListFiles, AMissingFileIsAnError) {
  EXPECT_EQ(read(path_), std::nullopt);
  EXPECT_NE(error_.localizedDescription.find(path_), std::string::npos);
}

TEST_F(PropertyListFiles, AFolderIsAnError) {
  EXPECT_EQ(read(folder_.path()), std::nullopt);
  EXPECT_FALSE(error_.localizedDescription.empty());
  EXPECT_FALSE(write({{"a", 1}}, folder_.path()));
}

TEST_F(PropertyListFiles, AFifoIsAnErrorAtOnce) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(read(path_), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
  EXPECT_FALSE(error_.localizedDescription.empty());
  EXPECT_FALSE(write({{"a", 1}}, path_));
  EXPECT_TRUE(std::filesystem::is_fifo(path_));
}

TEST_F(PropertyListFiles, ADeviceIsAnError) { EXPECT_EQ(read("/dev/zero"), std::nullopt); }

TEST_F(PropertyListFiles, AnOtherOutermostValueIsAnError) {
  for (const char* value : {"<array/>", "<string>x</string>", "<true/>"}) {
    writeFile(path_, xml(value));
    error_ = {};
    EXPECT_EQ(read(path_), std::nullopt);
    EXPECT_FALSE(error_.localizedDescription.empty());
  }
}

TEST_F(PropertyListFiles, CutEmptyAndGarbageFilesAreErrors) {
  for (const std::string& content : {std::string(), std::string("x"), xml("<dict>"), std::string("bplist00garbage"),
                                     xml("<dict><key>a</key><true/></dict>").substr(0, 200)}) {
    writeFile(path_, content);
    error_ = {};
    EXPECT_EQ(read(path_), std::nullopt) << content;
    EXPECT_FALSE(error_.localizedDescription.empty());
  }
}

TEST_F(PropertyListFiles, AHugeFileIsRefusedBeforeItIsRead) {
  writeFile(path_, "");
  std::filesystem::resize_file(path_, std::uintmax_t{1} << 40);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(read(path_), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
}

TEST_F(PropertyListFiles, ALinkIsReadThrough) {
  ASSERT_TRUE(write({{"a", 1}}, path_));
  std::filesystem::create_symlink(path_, folder_ / "link");
  EXPECT_EQ(read(folder_ / "link"), (TKSDictionary{{"a", 1}}));
}

TEST_F(PropertyListFiles, APathWithANulIsAnError) {
  ASSERT_TRUE(write({{"a", 1}}, path_));
  EXPECT_EQ(read(path_ + std::string("\0x", 2)), std::nullopt);
  EXPECT_FALSE(write({{"a", 2}}, path_ + std::string("\0x", 2)));
  EXPECT_EQ(read(path_), (TKSDictionary{{"a", 1}}));
}

TEST_F(PropertyListFiles, TheFileSizeLimitOfTheProcessIsAnErrorAndNoSignal) {
  ASSERT_TRUE(write({{"old", 1}}, path_));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{1000, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = write({{"new", std::string(2000, 'x')}}, path_);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_FALSE(written);
  EXPECT_EQ(read(path_), (TKSDictionary{{"old", 1}}));
  EXPECT_EQ(itemsInFolder(), 1u);
}

TEST_F(PropertyListFiles, NoDescriptorStaysOpen) {
  const std::set<int> before = openDescriptors();
  ASSERT_TRUE(write({{"a", 1}}, path_));
  read(path_);
  read(folder_.path());
  read(folder_ / "missing");
  write({{"a", TKSNull()}}, path_);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PropertyListFiles, ReadersSeeWholeFilesWhileWritersReplaceThem) {
  ASSERT_TRUE(write({{"round", 0}, {"text", std::string(5000, 'x')}}, path_));
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    for (int round = 1; round <= 200; ++round) {
      lists().writeDictionary({{"round", round}, {"text", std::string(5000, 'x')}}, path_, nullptr);
    }
    stop = true;
  });
  std::int64_t last = 0;
  while (!stop) {
    const std::optional<TKSDictionary> dictionary = lists().readDictionary(path_, nullptr);
    ASSERT_TRUE(dictionary);
    EXPECT_EQ((*dictionary)["text"].text().size(), 5000u);
    EXPECT_GE((*dictionary)["round"].integer(), last);
    last = (*dictionary)["round"].integer();
  }
  writer.join();
}

}  // namespace
