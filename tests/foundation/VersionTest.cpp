#include "foundation/Versions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

const LogLine kOtherFormat{4, "Version format different, consider as newer version."};
const LogLine kOtherFormatWithLetters{4,
                                      "Version format different, and contains more parts, consider as newer version."};

struct Comparison {
  const char* candidate;
  const char* local;
  bool isNewer;
};

void expectWithLines(const std::vector<Comparison>& comparisons, const std::vector<LogLine>& lines) {
  for (const Comparison& comparison : comparisons) {
    const LogRecorder log;
    EXPECT_EQ(TKSUtilBase::isNewerVersion(comparison.candidate, comparison.local), comparison.isNewer)
        << comparison.candidate << " against " << comparison.local;
    EXPECT_EQ(log.lines(), lines) << comparison.candidate << " against " << comparison.local;
  }
}

TEST(NewerVersion, EqualTextsAreNotNewer) {
  expectWithLines({{"4.2", "4.2", false}, {"", "", false}, {"beta", "beta", false}}, {});
}

TEST(NewerVersion, AnAbsentVersionOnEitherSideMakesTheCandidateNewer) {
  expectWithLines({{"", "4.2", true}, {"4.2", "", true}}, {});
}

TEST(NewerVersion, PartsCompareAsNumbersFromTheFirst) {
  expectWithLines({{"4.2.10", "4.2.9", true},
                   {"4.2.9", "4.2.10", false},
                   {"43.10", "43.9", true},
                   {"5.0", "4.99", true},
                   {"4.99", "5.0", false},
                   {"1.2.3.4", "1.2.3.3", true}},
                  {});
}

TEST(NewerVersion, NumbersThatAreEqualAreNotNewerHoweverTheyAreWritten) {
  expectWithLines({{"4.02", "4.2", false}, {"4-2", "4.2", false}, {"V4-2", "4.2", false}, {"4.2 ", "4.2", false}}, {});
}

TEST(NewerVersion, AnotherNumberOfPartsIsNewerWhicheverWay) {
  expectWithLines({{"4.2.0", "4.2", true},
                   {"4.2", "4.2.0", true},
                   {"4.3", "4.2.9", true},
                   {"4.1", "4.2.9", true},
                   {"1", "9.9", true},
                   {"4,2,1", "4.2", true},
                   {".", "4", true},
                   {"4", ".", true}},
                  {kOtherFormat});
}

TEST(NewerVersion, WithUnusualCharactersOnlyMorePartsAreNewer) {
  expectWithLines({{"4.2 (10)", "4.3", true},
                   {"4.2-b", "4.2.9", false},
                   {"V4", "4.2", false},
                   {"V4.2.1", "4.2", true},
                   {"beta", "4", false},
                   {"4\u00e4", "3.9", false}},
                  {kOtherFormatWithLetters});
}

TEST(NewerVersion, OnlyTheCandidatesCharactersDecideAboutTheFormat) {
  expectWithLines({{"4.2", "V4", true}, {"4", "4.2-b", true}}, {kOtherFormat});
}

TEST(NewerVersion, WithoutAnyDigitNothingIsNewer) {
  expectWithLines({{"beta", "alpha", false}, {".", "-", false}, {" ", ".", false}}, {});
}

TEST(NewerVersion, BlanksInsideANumberDoNotDivideIt) {
  expectWithLines({{"4 2", "41", true}, {"4 2", "42", false}, {"1 0.5", "9.9", true}}, {});
}

TEST(NewerVersion, PartsSaturateAt32Bits) {
  expectWithLines({{"2147483648", "2147483647", false},
                   {"99999999999999999999", "2147483646", true},
                   {"2147483646", "99999999999999999999", false}},
                  {});
}

TEST(NewerVersion, OnlyAsciiDigitsAreDigits) {
  expectWithLines({{"\u0664.2", "4.2", false}}, {kOtherFormatWithLetters});
}

TEST(VersionParts, AreTheNumbersBetweenAllOtherCharacters) {
  EXPECT_THAT(tks::versions::parts("4.2.10"), ElementsAre("4", "2", "10"));
  EXPECT_THAT(tks::versions::parts("4.2 (10)"), ElementsAre("4", "2", "10"));
  EXPECT_THAT(tks::versions::parts("V4-2"), ElementsAre("4", "2"));
  EXPECT_THAT(tks::versions::parts("..4..2.."), ElementsAre("4", "2"));
  EXPECT_THAT(tks::versions::parts("beta"), IsEmpty());
  EXPECT_THAT(tks::versions::parts(""), IsEmpty());
}

TEST(VersionParts, WithOtherCharactersCompareAsTexts) {
  const LogRecorder log;
  EXPECT_TRUE(tks::versions::isNewerByParts({"4", "b10"}, {"4", "b9"}));
  EXPECT_FALSE(tks::versions::isNewerByParts({"4", "b9"}, {"4", "b10"}));
  const LogLine line{4, "Version contains non digits, consider as newer version when version string different."};
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
  EXPECT_FALSE(tks::versions::isNewerByParts({"4", "b"}, {"4", "b"}));
  EXPECT_THAT(log.lines(), ::testing::SizeIs(2));
}

// ---- Against the rules written down once more, as simply as possible.

std::vector<std::string> simpleParts(const std::string& version) {
  std::vector<std::string> found;
  std::string part;
  for (const char byte : version + ".") {
    if (byte == ' ') continue;
    if (std::string("0123456789").find(byte) != std::string::npos) {
      part += byte;
    } else if (!part.empty()) {
      found.push_back(part);
      part = "";
    }
  }
  return found;
}

std::int64_t simpleNumber(const std::string& part) {
  std::int64_t number = 0;
  for (const char digit : part) number = std::min<std::int64_t>(number * 10 + (digit - '0'), INT32_MAX);
  return number;
}

bool simpleIsNewer(const std::string& candidate, const std::string& local) {
  if (candidate == local) return false;
  if (candidate.empty()) return true;
  if (local.empty()) return true;
  const std::vector<std::string> a = simpleParts(candidate);
  const std::vector<std::string> b = simpleParts(local);
  if (a.size() != b.size()) {
    const bool unusual = candidate.find_first_not_of("0123456789 ,.") != std::string::npos;
    return unusual ? a.size() > b.size() : true;
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (simpleNumber(a[i]) > simpleNumber(b[i])) return true;
    if (simpleNumber(a[i]) < simpleNumber(b[i])) return false;
  }
  return false;
}

TEST(NewerVersion, AgreesWithASimpleVersionOfTheRules) {
  std::mt19937 random(1);
  const auto below = [&random](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  const std::vector<std::string> pieces = {"0",      "1",   "2", "9", "10", "07", "2147483648", "99999999999999999999",
                                           ".",      ".",   ".", " ", ",",  "-",  "(",          "b",
                                           "\u0664", "\xFF"};
  const auto version = [&] {
    std::string text;
    for (std::size_t left = below(8); left > 0; --left) text += pieces[below(pieces.size())];
    return text;
  };
  for (int i = 0; i < 50000; ++i) {
    const std::string candidate = version();
    const std::string local = below(4) == 0 ? candidate : version();
    ASSERT_EQ(TKSUtilBase::isNewerVersion(candidate, local), simpleIsNewer(candidate, local))
        << candidate << " against " << local;
  }
}

}  // namespace
