#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/property_lists.h"
#include "tests/support/KilledAtEachCall.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using tks::platform::files;
using tks::test::contentOf;
using tks::test::killedAtEachCall;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

TEST(KilledAtAnySystemCall, AWriterLeavesOneContentOrTheOther) {
  const TemporaryFolder folder;
  const std::string path = folder / "file";
  const std::vector<std::uint8_t> bytes = {'n', 'e', 'w'};
  writeFile(path, "old");
  bool replaced = false;
  const int deaths = killedAtEachCall([&] { files().writeAtomically(path, bytes, nullptr); },
                                      [&] {
                                        const std::string content = contentOf(path);
                                        EXPECT_TRUE(content == "old" || content == "new") << content;
                                        replaced = replaced || content == "new";
                                        writeFile(path, "old");
                                      });
  if (deaths < 0) GTEST_SKIP() << "processes may not be traced here";
  EXPECT_GT(deaths, 8);
  EXPECT_TRUE(replaced);
}

TEST(KilledAtAnySystemCall, AProcessThatSetsAValueLeavesTheOldListOrTheNewOne) {
  const TemporaryFolder folder;
  const std::string path = folder / "list.plist";
  const TKSDictionary before{{"old", 1}};
  const TKSDictionary after{{"old", 1}, {"new", std::string(50'000, 'x')}};
  tks::platform::PropertyLists& lists = tks::platform::propertyLists();
  int unchanged = 0;
  int changed = 0;
  ASSERT_TRUE(lists.writeDictionary(before, path, nullptr));
  const int deaths = killedAtEachCall([&] { TKSUtilBase::setPlist({"new"}, std::string(50'000, 'x'), path); },
                                      [&] {
                                        const std::optional<TKSDictionary> list = lists.readDictionary(path, nullptr);
                                        EXPECT_TRUE(list == before || list == after);
                                        ++(list == before ? unchanged : changed);
                                        EXPECT_TRUE(lists.writeDictionary(before, path, nullptr));
                                      });
  if (deaths < 0) GTEST_SKIP() << "processes may not be traced here";
  EXPECT_GT(unchanged, 5);
  EXPECT_GT(changed, 1);
}

}  // namespace
