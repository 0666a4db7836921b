#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessTable.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

class ParameterFile : public ::testing::Test {
 protected:
  std::optional<TKSDictionary> read(std::string_view content) {
    tks::test::writeFile(path_, content);
    return TKSUtilBase::getParamDictFromPath(path_);
  }

  /// The line that says so, masked as it is.
  static LogLine skipped(const std::string& line) { return {4, "-=-[VALUE]-=- not found. Line: " + line}; }

  tks::test::TemporaryFolder folder_;
  std::string path_ = folder_ / "params.txt";
  LogRecorder log_;
};

TEST_F(ParameterFile, EachLineGivesAKeyAndItsValue) {
  EXPECT_EQ(read("[KEY]-=- site-=-[VALUE]-=-a.example-=-\n123456789name-=-[VALUE]-=-some value---\n"),
            (TKSDictionary{{"site", "a.example"}, {"name", "some value"}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParameterFile, AByteOrderMarkAtItsBeginningIsSkipped) {
  EXPECT_EQ(read("\xEF\xBB\xBF"
                 "123456789a-=-[VALUE]-=-1xyz\n123456789b\xEF\xBB\xBF-=-[VALUE]-=-2xyz"),
            (TKSDictionary{{"a", "1"}, {"b\xEF\xBB\xBF", "2"}}));
  EXPECT_EQ(read("\xEF\xBB\xBF"), TKSDictionary());
}

TEST_F(ParameterFile, LinesEndAtAnyLineEnd) {
  EXPECT_EQ(read("123456789a-=-[VALUE]-=-1xyz\r\n123456789b-=-[VALUE]-=-2xyz\r123456789c-=-[VALUE]-=-3xyz\n\n\r\r"
                 "123456789d-=-[VALUE]-=-4xyz"),
            (TKSDictionary{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParameterFile, EmptyKeysAndValuesAreStored) {
  EXPECT_EQ(read("123456789a-=-[VALUE]-=-xyz\n123456789-=-[VALUE]-=-vxyz"), (TKSDictionary{{"a", ""}, {"", "v"}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParameterFile, ALaterLineReplacesAnEarlierOneWithItsKey) {
  EXPECT_EQ(read("123456789a-=-[VALUE]-=-1xyz\n123456789a-=-[VALUE]-=-2xyz"), (TKSDictionary{{"a", "2"}}));
}

TEST_F(ParameterFile, TheFirstMarkerOfALineCounts) {
  EXPECT_EQ(read("123456789a-=-[VALUE]-=-b-=-[VALUE]-=-cxyz"), (TKSDictionary{{"a", "b-=-[VALUE]-=-c"}}));
}

TEST_F(ParameterFile, ALineWithoutTheMarkerIsSkippedAndLoggedMasked) {
  EXPECT_EQ(read("123456789jane@a.example\n123456789a-=-[VALUE]-=-1xyz"), (TKSDictionary{{"a", "1"}}));
  EXPECT_THAT(log_.lines(), ElementsAre(skipped("123**********@a.example")));
}

TEST_F(ParameterFile, ALineThatCannotBeCutIsSkippedAndLogged) {
  EXPECT_EQ(read("12345678-=-[VALUE]-=-1xyz\n123456789a-=-[VALUE]-=-xy\n-=-[VALUE]-=-\n123456789b-=-[VALUE]-=-"),
            TKSDictionary());
  EXPECT_THAT(log_.lines(), ElementsAre(skipped("12345678-=-[VALUE]-=-1xyz"), skipped("123456789a-=-[VALUE]-=-xy"),
                                        skipped("-=-[VALUE]-=-"), skipped("123456789b-=-[VALUE]-=-")));
}

TEST_F(ParameterFile, PrefixAndSuffixAreCountedInUtf16Units) {
  EXPECT_EQ(read("\u20ac2345678\u00e9a-=-[VALUE]-=-v\u20ac\u00e9z\n"), (TKSDictionary{{"a", "v"}}));
  EXPECT_EQ(read("\U0001F600345678\u00e9b-=-[VALUE]-=-vz\U0001F600\n"), (TKSDictionary{{"b", "v"}}));
  EXPECT_EQ(read("\u20ac\u20ac\u20ac-=-[VALUE]-=-vxyz\n"), TKSDictionary());
  EXPECT_EQ(read("123456789c-=-[VALUE]-=-\u20ac\u20ac\n"), TKSDictionary());
}

TEST_F(ParameterFile, AMissingFileGivesNothing) {
  EXPECT_EQ(TKSUtilBase::getParamDictFromPath(folder_ / "missing"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::getParamDictFromPath(""), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParameterFile, AFileThatCannotBeReadAsTextGivesAnEmptyDictionary) {
  EXPECT_EQ(read(""), TKSDictionary());
  EXPECT_EQ(read("123456789a-=-[VALUE]-=-\xFFxyz"), TKSDictionary());
  EXPECT_EQ(TKSUtilBase::getParamDictFromPath(folder_.path()), TKSDictionary());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ParameterFile, LinesThatAreCutAnywhereAndNULBytesDoNoHarm) {
  const std::string line = "123456789a-=-[VALUE]-=-some valuexyz";
  for (std::size_t size = 0; size <= line.size(); ++size) {
    const bool whole = size >= line.size() - std::string("some valuexyz").size() + 3;
    const std::string left = "some valuexyz";
    const std::string value = whole ? left.substr(0, left.size() - (line.size() - size) - 3) : "";
    EXPECT_EQ(read(line.substr(0, size)), whole ? (TKSDictionary{{"a", value}}) : TKSDictionary()) << size;
  }
  using namespace std::string_literals;
  EXPECT_EQ(read("12345678\0a\0b-=-[VALUE]-=-v\0wxyz\n"s), (TKSDictionary{{"a\0b"s, "v\0w"s}}));
  EXPECT_EQ(read(std::string(1000, '\0')), TKSDictionary());
}

TEST_F(ParameterFile, AFileOfAHundredMebibytesIsNotReadAtAll) {
  tks::test::writeFile(path_, "123456789a-=-[VALUE]-=-1xyz\n");
  std::filesystem::resize_file(path_, std::size_t{100} << 20);
  const std::size_t before = tks::test::residentBytes();
  EXPECT_EQ(TKSUtilBase::getParamDictFromPath(path_), TKSDictionary());
  EXPECT_LT(tks::test::residentBytes(), before + (std::size_t{40} << 20));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
