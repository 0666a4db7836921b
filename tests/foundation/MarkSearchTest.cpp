#include "foundation/logging/MarkSearch.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "foundation/logging/Masking.h"
#include "tests/foundation/ReferenceMasking.h"
#include "tests/support/ScopedValue.h"

// The search for marks with each set of instructions that this processor has: what is found is the same, and so is what
// is masked.

namespace {

using tks::masking::Mark;
using tks::masking::PairFinder;
using tks::masking::PairPlaces;
using tks::masking::PairScan;
using tks::masking::PairTables;
using tks::test::referenceRemovePII;

constexpr std::array<Mark, 4> kWords = {Mark{"http", 2}, Mark{"/users/", 5}, Mark{"@", 0},
                                        Mark{"/Meet/", 4, Mark::Case::same}};

PairTables tablesOfWords() {
  PairTables tables;
  for (std::size_t i = 0; i < kWords.size(); ++i) tables.add(i, kWords[i]);
  return tables;
}

std::string randomText(std::mt19937& random, std::size_t pieces) {
  static const std::vector<std::string> all = {"http",
                                               "HtTp",
                                               "htt",
                                               "/users/",
                                               "/USERS/",
                                               "s/",
                                               "@",
                                               "`",
                                               "%40",
                                               "%4",
                                               "/Meet/",
                                               "/meet/",
                                               "tp",
                                               "x",
                                               "\xF4",
                                               "O",
                                               "P",
                                               "\x0F",
                                               std::string(1, '\0'),
                                               "username=jo ",
                                               "/home/",
                                               " jane.roe@mail.example/",
                                               "https",
                                               ",",
                                               "ticket",
                                               "?a,b&"};
  std::string text;
  for (std::size_t i = 0; i < pieces; ++i) text += all[random() % all.size()];
  return text;
}

class EachFinder : public ::testing::TestWithParam<PairFinder> {
 protected:
  tks::test::ScopedValue<PairFinder> inForce{tks::masking::pairFinder(), GetParam()};
  std::mt19937 random{7};
};

/// Every place of a word, in order.
std::vector<std::size_t> placesOf(const Mark& word, std::size_t group, const std::string& text) {
  const PairTables tables = tablesOfWords();
  PairScan scan(text, tables);
  std::vector<std::size_t> places;
  for (std::size_t at = scan.find(group, word); at != std::string::npos; at = scan.find(group, word, at + 1)) {
    places.push_back(at);
  }
  return places;
}

std::vector<std::size_t> placesOneByOne(const Mark& word, const std::string& text) {
  std::vector<std::size_t> places;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (word.standsAt(at, text)) places.push_back(at);
  }
  return places;
}

TEST_P(EachFinder, FindsEveryWordOfAnyText) {
  for (int i = 0; i < 3000; ++i) {
    const std::string text = randomText(random, random() % 60);
    for (std::size_t group = 0; group < kWords.size(); ++group) {
      ASSERT_EQ(placesOf(kWords[group], group, text), placesOneByOne(kWords[group], text)) << text;
    }
  }
}

TEST_P(EachFinder, FindsAWordAtEveryPlaceAroundTheEndOfAStretchAndOfABlock) {
  for (std::size_t around : {PairPlaces::kBlock, PairPlaces::kStretch, 2 * PairPlaces::kStretch}) {
    for (std::size_t at = around - 10; at < around + 10; ++at) {
      for (std::size_t after : {0, 1, 63, 64, 65, 5000}) {
        const std::string text = std::string(at, 'x') + "/uSers/" + std::string(after, '.');
        ASSERT_EQ(placesOf(kWords[1], 1, text), std::vector<std::size_t>{at}) << after;
      }
    }
  }
}

TEST_P(EachFinder, MasksLikeTheReference) {
  const std::vector<std::string> folders = {"/longer/homes/", "/srv/home/", "/export/",
                                            "/home/",         "/h/",        "/mail.example/"};
  for (int i = 0; i < 6000; ++i) {
    std::string text = randomText(random, random() % 30);
    if (i % 10 == 0) text.insert(random() % (text.size() + 1), 4000 + random() % 200, 'x');
    // Long enough to be cut by what its beginning shows, or by what comes after that.
    if (i % 3 == 0) text.append(1000 + random() % 200, 'x').append(randomText(random, random() % 30));
    const std::string expected = referenceRemovePII(text, folders);
    std::string masked = text;
    tks::masking::removePersonalData(masked, tks::masking::Unit::bytes, folders);
    ASSERT_EQ(masked, expected) << "of: " << text;
  }
}

TEST_P(EachFinder, MasksMarksInARowLikeTheReference) {
  const std::vector<std::string> all = {"%40", "%40", "%40", "@",    "@@",       "%4",    "%",      "4",
                                        "0",   "a",   "Zz9", "\xC3", "abcdefgh", "{[`:/", "http?@", "username=@b "};
  for (int i = 0; i < 6000; ++i) {
    // Few kinds in a row: many marks of one kind in each block.
    const std::size_t kinds = 1 + random() % all.size();
    const std::size_t first = random() % all.size();
    std::string text;
    for (std::size_t left = random() % 200; left > 0; --left) text += all[(first + random() % kinds) % all.size()];
    std::string masked = text;
    tks::masking::removePersonalData(masked, tks::masking::Unit::bytes, {});
    ASSERT_EQ(masked, referenceRemovePII(text)) << "of: " << text;
  }
}

TEST_P(EachFinder, LooksAtTheTextAsItIsAfterACut) {
  std::string text = std::string(5000, 'x') + "http@";
  const PairTables tables = tablesOfWords();
  PairScan scan(text, tables);
  text.resize(5002);
  EXPECT_EQ(scan.find(0, kWords[0]), std::string::npos);
  EXPECT_EQ(scan.find(2, kWords[2]), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Instructions, EachFinder, ::testing::ValuesIn(tks::masking::pairFinders()),
                         [](const auto& finder) { return finder.param.name; });

TEST(Finders, EndWithOneThatEveryProcessorHas) { EXPECT_STREQ(tks::masking::pairFinders().back().name, "plain"); }

TEST(Finders, TheQuickestIsInForce) {
  EXPECT_EQ(tks::masking::pairFinder().find, tks::masking::pairFinders().front().find);
}

}  // namespace
