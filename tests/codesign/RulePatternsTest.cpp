#include "codesign/resources/rule_patterns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include <random>
#include <string>

#include "codesign/requirement/requirement.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::codesign::Requirement;
using tks::codesign::RequirementContext;
using tks::codesign::RulePatterns;

TEST(RulePatternsTest, AllExpressionsThatOccurAreFoundAtOnce) {
  RulePatterns patterns;
  for (const char* pattern : {"^.*", "^Resources/", "^Resources/.*\\.lproj/", "^(.*/)?\\.DS_Store$", "^[^/]+$"}) {
    ASSERT_TRUE(patterns.add(pattern)) << pattern;
  }
  EXPECT_THAT(patterns.find("Resources/en.lproj/A.strings"), ElementsAre(0, 1, 2));
  EXPECT_THAT(patterns.find("Resources/.DS_Store"), ElementsAre(0, 1, 3));
  EXPECT_THAT(patterns.find(".DS_Store"), ElementsAre(0, 3, 4));
  EXPECT_THAT(patterns.find("resources/x"), ElementsAre(0));
}

TEST(RulePatternsTest, AgreesWithTheCLibraryOnRandomExpressions) {
  std::mt19937 random(1);
  const char* atoms[] = {
      "a",           "b",       ".",       "[ab]",     "[^a]", "(a|b)", "(",     "|",    ")",           "*",
      "+",           "?",       "^",       "$",        "\\.",  "{2}",   "{0,1}", "{1,}", "[[:punct:]]", "[^[:punct:]]",
      "[[:alpha:]]", "[[.a.]]", "[[=b=]]", "[[.a.]-c]"};
  const auto pick = [&](std::size_t count) { return static_cast<std::size_t>(random() % count); };
  int compared = 0;
  for (int i = 0; i < 40000; ++i) {
    std::string pattern;
    int depth = 0;
    bool usable = true;
    for (std::size_t k = 1 + pick(8); k > 0; --k) {
      const std::string atom = atoms[pick(std::size(atoms))];
      depth += atom == "(" ? 1 : atom == ")" ? -1 : 0;
      usable &= depth >= 0;  // a closing parenthesis of its own means different things to different libraries
      pattern += atom;
    }
    regex_t expression;
    if (!usable) continue;
    const bool compiles = ::regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB) == 0;
    RulePatterns patterns;
    EXPECT_EQ(patterns.add(pattern), compiles) << pattern;
    if (!compiles) continue;
    for (int t = 0; t < 4; ++t) {
      std::string text;
      for (std::size_t k = 1 + pick(5); k > 0; --k) text += "abc./"[pick(5)];
      const bool expected = ::regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
      EXPECT_EQ(!patterns.find(text).empty(), expected) << pattern << " in " << text;
      ++compared;
    }
    ::regfree(&expression);
  }
  EXPECT_GT(compared, 10000);
}

TEST(RulePatternsTest, HostileExpressionsAreRefusedOrBounded) {
  RulePatterns patterns;
  EXPECT_TRUE(patterns.add(std::string(2000, '(') + "a" + std::string(2000, ')')));
  EXPECT_FALSE(patterns.add("(((((a{200}){200}){200}){200}){200})"));
  EXPECT_FALSE(patterns.add(std::string(5000, 'a')));
  for (const char* broken : {"(", "[", "[a", "a{2", "a{3,2}", "*", "[b-a]", "[[:nothing:]]", "\\"}) {
    EXPECT_FALSE(RulePatterns().add(broken)) << broken;
  }
  RulePatterns runaway;
  ASSERT_TRUE(runaway.add("(a+)+$"));
  ASSERT_TRUE(runaway.add("(a|b)*a(a|b){20}$"));
  std::string text(4000, 'a');
  EXPECT_THAT(runaway.find(text), ElementsAre(0, 1));
  text.back() = '!';
  EXPECT_THAT(runaway.find(text), IsEmpty());
}

bool isMet(const std::string& text, const RequirementContext& context) {
  const std::optional<Requirement> requirement = Requirement::fromText(text);
  EXPECT_TRUE(requirement) << text;
  if (!requirement) return false;
  // The binary form says the same, and so does the text that it prints.
  const std::optional<Requirement> again = Requirement::fromBlob(requirement->blob());
  EXPECT_TRUE(again) << text;
  if (!again) return false;
  EXPECT_EQ(again->text(), requirement->text());
  const std::optional<Requirement> reread = Requirement::fromText(again->text());
  EXPECT_TRUE(reread && reread->isMetBy(context) == again->isMetBy(context)) << again->text();
  return again->isMetBy(context);
}

TEST(RequirementTest, ExpressionsBindAsTheyAreMeantTo) {
  RequirementContext context;
  context.identifier = "com.example.a";
  context.cdHash = {0xab, 0xcd};
  context.info.set("CFBundleVersion", "44.10");
  context.entitlements.set("x", TKSArray{"one", "two"});
  context.entitlements.set("no", false);
  context.roots = &tks::codesign::AppleRoots::builtIn();
  const struct {
    const char* text;
    bool met;
  } rows[] = {
      {"always", true},
      {"never", false},
      {"identifier \"com.example.a\"", true},
      {"identifier com.example.a", true},
      {"identifier \"COM.example.a\"", false},
      {"always or never and never", true},
      {"(always or never) and never", false},
      {"! never and always", true},
      {"! (never or always)", false},
      {"always /* a comment */ and always", true},
      {"cdhash H\"abcd\"", true},
      {"cdhash H\"abce\"", false},
      {"info[CFBundleVersion] = \"44\"*", true},
      {"info[CFBundleVersion] = *\"10\"", true},
      {"info[CFBundleVersion] = *\".1\"*", true},
      {"info[nothing]", false},
      {"info[nothing] absent", true},
      {"info[CFBundleVersion] exists", true},
      {"entitlement[\"x\"] = two", true},
      {"entitlement[\"no\"]", false},
      {"anchor apple generic", false},
      {"anchor apple", false},
      {"certificate leaf[subject.OU] = ABC", false},
      {"certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */", false},
      {"certificate root = H\"0011223344556677889900112233445566778899\"", false},
  };
  for (const auto& row : rows) EXPECT_EQ(isMet(row.text, context), row.met) << row.text;
}

TEST(RequirementTest, NumbersInTextsCountByTheirValue) {
  RequirementContext context;
  context.info.set("v", "44.10");
  for (const char* met : {">= \"44.9\"", "<= \"44.10\"", ">= \"44.10\"", "> \"44.9\"", "< \"45\"", "< \"44.010.1\""}) {
    EXPECT_TRUE(isMet(std::string("info[v] ") + met, context)) << met;
  }
  for (const char* unmet : {"< \"44.9\"", "< \"44.10\"", "<= \"44.9\"", "> \"44.10\"", ">= \"44.11\"", ">= \"45\""}) {
    EXPECT_FALSE(isMet(std::string("info[v] ") + unmet, context)) << unmet;
  }
}

TEST(RequirementTest, AWordOfHexadecimalDigitsStandsForItsBytes) {
  RequirementContext context;
  context.info.set("key", "AB");
  EXPECT_TRUE(isMet("info[key] = 0x4142", context));
  EXPECT_TRUE(isMet("info[key] = \"AB\"", context));
  EXPECT_FALSE(isMet("info[key] = \"0x4142\"", context));
  for (const char* digits : {"0x414", "0x41g2", "0x4g42", "0x4142gg"}) {
    EXPECT_FALSE(Requirement::fromText(std::string("info[key] = ") + digits)) << digits;
  }
}

TEST(RequirementTest, MalformedOnesAreNone) {
  for (const char* text :
       {"", "and", "always and", "always always", "(always", "always)", "identifier", "cdhash \"ab\"", "certificate",
        "certificate leaf", "certificate leaf[", "info[x] =", "\"open", "anchor google"}) {
    EXPECT_FALSE(Requirement::fromText(text)) << text;
  }
  EXPECT_FALSE(Requirement::fromText(std::string(1000000, '(')));
  EXPECT_FALSE(Requirement::fromText(std::string(1000000, '!')));
  TKSData blob = Requirement::fromText("always and never")->blob();
  for (std::size_t size = 0; size < blob.size(); ++size) {
    EXPECT_FALSE(Requirement::fromBlob(tks::codesign::Bytes(blob).first(size)));
  }
}

TEST(RequirementTest, BlobsThatDoNotSayWhatTheyAreAreNone) {
  const TKSData blob = Requirement::fromText("always and never")->blob();
  ASSERT_TRUE(Requirement::fromBlob(blob));
  for (std::size_t at = 0; at < 12; ++at) {
    TKSData other = blob;
    other[at] ^= 1;
    EXPECT_FALSE(Requirement::fromBlob(other)) << at;
  }
  TKSData longer = blob;
  longer.push_back(0);
  EXPECT_FALSE(Requirement::fromBlob(longer));
  // Cut with a length that fits: a term is missing, or half of it.
  for (std::size_t size = 12; size < blob.size(); ++size) {
    TKSData cut(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(size));
    cut[7] = static_cast<std::uint8_t>(size);
    EXPECT_FALSE(Requirement::fromBlob(cut)) << size;
  }
}

}  // namespace
