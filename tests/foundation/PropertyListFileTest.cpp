#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrintValue.h"
#include "tests/support/ProcessState.h"
#include "tests/support/PropertyListSamples.h"
#include "tests/support/SmallVolume.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Unprivileged.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace tks::test;
namespace fs = std::filesystem;

class PropertyListFile : public testing::Test {
 protected:
  void write(const TKSDictionary& dictionary) {
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(dictionary, path_, nullptr));
  }
  std::optional<TKSDictionary> read() { return tks::platform::propertyLists().readDictionary(path_, nullptr); }
  std::size_t items() { return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_.path()), {})); }
  LogLine created() { return {2, "Succeed to create plist: " + path_ + "."}; }
  LogLine written() { return {2, "Succeed to write value to plist: " + path_ + "."}; }
  LogLine failed() { return {8, "Fail to write value to plist: " + path_ + "."}; }

  TemporaryFolder folder_;
  std::string path_ = folder_ / "list.plist";
  LogRecorder log_;
};

// Reading.

TEST_F(PropertyListFile, AValueIsReadByItsKeyPath) {
  write({{"a", TKSDictionary{{"b", 7}}}, {"top", "x"}});
  EXPECT_EQ(TKSUtilBase::getValueFormPlist({"a", "b"}, path_), TKSValue(7));
  EXPECT_EQ(TKSUtilBase::getValueFormPlist({"top"}, std::string_view(path_)), TKSValue("x"));
  EXPECT_EQ(TKSUtilBase::getValueFormPlist({"top"}, path_.c_str()), TKSValue("x"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(PropertyListFile, WhatCannotBeReadCountsAsEmpty) {
  const LogLine empty{2, "Nil/empty plistDict, fail to get preference."};
  writeFile(folder_ / "garbage", "garbage");
  writeFile(folder_ / "empty", "");
  writeFile(folder_ / "deep", plist::nestedDictionariesXml(100000));
  writeFile(folder_ / "array", plist::xml("<array/>"));
  ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0600), 0);
  for (const std::string& path : {path_, folder_.path(), folder_ / "garbage", folder_ / "empty", folder_ / "deep",
                                  folder_ / "array", folder_ / "fifo", std::string()}) {
    log_.clear();
    EXPECT_TRUE(TKSUtilBase::getValueFormPlist({"a", "b"}, path).isNothing());
    EXPECT_THAT(log_.lines(), ElementsAre(empty)) << path;
  }
  log_.clear();
  EXPECT_TRUE(TKSUtilBase::getValueFormPlist({"a"}, static_cast<const char*>(nullptr)).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(empty));
}

TEST_F(PropertyListFile, ReadingWithoutAKeyPathIsAnError) {
  EXPECT_TRUE(TKSUtilBase::getValueFormPlist({}, path_).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Nil/empty key path, fail to get preference."}));
}

// Writing.

TEST_F(PropertyListFile, ArgumentsAreCheckedInOrder) {
  EXPECT_FALSE(TKSUtilBase::setPlist({}, TKSValue(), ""));
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, TKSValue(), ""));
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, ""));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No key path given, fail to set plist."},
                                        LogLine{8, "No value given, fail to set plist."},
                                        LogLine{8, "No plist patg given, fail to set plist"}));
}

TEST_F(PropertyListFile, AMissingFileIsMade) {
  EXPECT_TRUE(TKSUtilBase::setPlist({"a"}, 1, path_));
  EXPECT_EQ(read(), (TKSDictionary{{"a", 1}}));
  EXPECT_THAT(log_.lines(), ElementsAre(created(), written()));
  EXPECT_EQ(items(), 1u);
}

TEST_F(PropertyListFile, AnExistingFileKeepsItsOtherValues) {
  write({{"a", TKSDictionary{{"b", 1}, {"c", 2}}}, {"d", 3}});
  EXPECT_TRUE(TKSUtilBase::setPlist({"a", "b"}, "new", path_));
  EXPECT_EQ(read(), (TKSDictionary{{"a", TKSDictionary{{"b", "new"}, {"c", 2}}}, {"d", 3}}));
  EXPECT_THAT(log_.lines(), ElementsAre(written()));
}

TEST_F(PropertyListFile, ATextInTheWayIsReplacedWithAWarning) {
  write({{"a", TKSDictionary{{"b", "text"}, {"other", 1}}}});
  EXPECT_TRUE(TKSUtilBase::setPlist({"a", "b", "c"}, 2, path_));
  EXPECT_EQ(read(), (TKSDictionary{{"a", TKSDictionary{{"b", TKSDictionary{{"c", 2}}}, {"other", 1}}}}));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4,
                                                "No intermediate dict for key 'b', or existing value type conflict "
                                                "'text', create and replace it."},
                                        written()));
}

TEST_F(PropertyListFile, AFileThatIsNoPropertyListStartsAnew) {
  for (const char* content : {"", "garbage", "<plist><dict>"}) {
    writeFile(path_, content);
    EXPECT_TRUE(TKSUtilBase::setPlist({"a"}, 1, path_));
    EXPECT_EQ(read(), (TKSDictionary{{"a", 1}}));
  }
}

TEST_F(PropertyListFile, AFileBeyondTheBoundsIsNotTakenForEmpty) {
  for (const std::string& content :
       {plist::nestedDictionariesXml(600), plist::xml("<string>" + std::string(17u << 20, 'x') + "</string>")}) {
    writeFile(path_, content);
    log_.clear();
    EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, path_));
    EXPECT_THAT(log_.lines(), ElementsAre(failed()));
    EXPECT_TRUE(contentOf(path_) == content);
  }
}

TEST_F(PropertyListFile, AFileThatMayNotBeReadIsNotTakenForEmpty) {
  write({{"old", 1}});
  const std::string before = contentOf(path_);
  ASSERT_EQ(::chmod(path_.c_str(), 0200), 0);
  fs::permissions(folder_.path(), fs::perms(0777));
  {
    const Unprivileged nobody;
    EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, path_));
  }
  ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
  EXPECT_EQ(contentOf(path_), before);
  EXPECT_THAT(log_.lines(), ElementsAre(failed()));
}

TEST_F(PropertyListFile, ALinkStaysAndWhatItLeadsToIsReplaced) {
  fs::create_directories(folder_ / "there");
  fs::create_symlink("there/second", path_);
  fs::create_symlink(folder_ / "there/list", folder_ / "there/second");
  for (int i = 1; i < 3; ++i) {
    EXPECT_TRUE(TKSUtilBase::setPlist({"a"}, i, path_)) << "the first time it leads to nothing";
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_TRUE(fs::is_symlink(folder_ / "there/second"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "there/list")));
    EXPECT_EQ(read(), (TKSDictionary{{"a", i}}));
  }
  fs::remove(folder_ / "there/list");
  fs::create_symlink("second", folder_ / "there/list");
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, path_)) << "they lead in a circle";
  EXPECT_TRUE(fs::is_symlink(folder_ / "there/list"));
}

TEST_F(PropertyListFile, AMissingFolderFailsAtTheCreation) {
  const std::string path = folder_ / "missing/list.plist";
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, path));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{8, "Fail to create plist: " + path + ", fail to write value to plist."}));
  EXPECT_EQ(items(), 0u);
}

TEST_F(PropertyListFile, AValueThatListsDoNotHaveLeavesTheFileAsItWas) {
  write({{"old", 1}});
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, TKSArray{TKSNull()}, path_));
  EXPECT_THAT(log_.lines(), ElementsAre(failed()));
  EXPECT_EQ(read(), (TKSDictionary{{"old", 1}}));
  EXPECT_EQ(items(), 1u);
}

TEST_F(PropertyListFile, AFailedFirstWriteLeavesTheEmptyFileThatWasMade) {
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, TKSNull(), path_));
  EXPECT_THAT(log_.lines(), ElementsAre(created(), failed()));
  EXPECT_EQ(contentOf(path_), "");
  EXPECT_TRUE(fs::exists(path_));
}

TEST_F(PropertyListFile, AFolderOrFifoIsNotReplaced) {
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, folder_.path()));
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, path_));
  EXPECT_TRUE(fs::is_fifo(path_));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Fail to write value to plist: " + folder_.path() + "."}, failed()));
}

TEST_F(PropertyListFile, PathsAreMaskedInLines) {
  fs::create_directories(folder_ / "Users/janeroe");
  EXPECT_TRUE(TKSUtilBase::setPlist({"a"}, 1, folder_ / "Users/janeroe/list.plist"));
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, TKSNull(), folder_ / "Users/janeroe/list.plist"));
  EXPECT_FALSE(TKSUtilBase::setPlist({"a"}, 1, folder_ / "Users/janeroe/missing/list.plist"));
  const std::string masked = folder_ / "Users/*******/";
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Succeed to create plist: " + masked + "list.plist."},
                                        LogLine{2, "Succeed to write value to plist: " + masked + "list.plist."},
                                        LogLine{8, "Fail to write value to plist: " + masked + "list.plist."},
                                        LogLine{8, "Fail to create plist: " + masked +
                                                       "missing/list.plist, fail to write value to plist."}));
}

TEST_F(PropertyListFile, NoDescriptorStaysOpen) {
  const std::set<int> before = openDescriptors();
  TKSUtilBase::setPlist({"a", "b"}, 1, path_);
  TKSUtilBase::setPlist({"a"}, TKSNull(), path_);
  TKSUtilBase::getValueFormPlist({"a", "b"}, path_);
  EXPECT_EQ(openDescriptors(), before);
}

/// Fails one call of the contract that stores lists, and passes all others on.
class FailingLists final : public tks::platform::PropertyLists {
 public:
  bool writeFails = false;

  TKSValue parse(std::span<const std::uint8_t> content, TKSError* error) override {
    return replaced_.before().parse(content, error);
  }
  std::optional<TKSData> serialize(const TKSValue& value, Format format, TKSError* error) override {
    return replaced_.before().serialize(value, format, error);
  }
  std::optional<TKSDictionary> readDictionary(std::string_view path, TKSError* error) override {
    return replaced_.before().readDictionary(path, error);
  }
  bool writeDictionary(const TKSDictionary& dictionary, std::string_view path, TKSError* error) override {
    return !writeFails && replaced_.before().writeDictionary(dictionary, path, error);
  }

 private:
  tks::platform::Replaced<tks::platform::PropertyLists> replaced_{*this};
};

TEST_F(PropertyListFile, AFailedWriteLeavesTheOldFile) {
  write({{"old", 1}});
  FailingLists lists;
  lists.writeFails = true;
  EXPECT_FALSE(TKSUtilBase::setPlist({"new"}, 1, path_));
  EXPECT_THAT(log_.lines(), ElementsAre(failed()));
  EXPECT_EQ(read(), (TKSDictionary{{"old", 1}}));
}

TEST_F(PropertyListFile, AFullDiskLeavesTheOldList) {
  const SmallVolume volume("64k");
  if (!volume.isThere()) GTEST_SKIP() << "needs the right to mount";
  path_ = volume / "list.plist";
  ASSERT_TRUE(TKSUtilBase::setPlist({"old"}, 1, path_));
  for (int round = 0; round < 3; ++round) {
    log_.clear();
    EXPECT_FALSE(TKSUtilBase::setPlist({"new"}, std::string(100'000, 'x'), path_));
    EXPECT_THAT(log_.lines(), ElementsAre(failed()));
    EXPECT_EQ(read(), (TKSDictionary{{"old", 1}}));
    EXPECT_EQ(std::distance(fs::directory_iterator(volume.path()), {}), 1) << "something half-written is left";
  }
  EXPECT_TRUE(TKSUtilBase::setPlist({"new"}, 2, path_));
  EXPECT_EQ(read(), (TKSDictionary{{"old", 1}, {"new", 2}}));
}

}  // namespace
