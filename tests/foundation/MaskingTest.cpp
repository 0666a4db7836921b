#include <tksinterface/MaskSensitiveInformation.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "foundation/logging/Logging.h"
#include "foundation/logging/Masking.h"
#include "tests/foundation/ReferenceMasking.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessTable.h"
#include "tests/support/Sanitized.h"

namespace {

using tks::test::referenceMask;
using tks::test::referenceRemovePII;

constexpr unsigned long kEndOfText = ~0UL;

struct Example {
  const char* what;
  std::string input;
  std::string masked;
};

std::string replaceAll(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

const Example kExamples[] = {
    {"a URL that names a ticket loses its query; the room's name is masked",
     "https://a.example/meet/jsmith?ticket=ABCDEF", "https://a.example/meet/jsm***"},
    {"without a question mark the query is cut at the comma", "http://a.example/join/room,password=x",
     "http://a.example/join/roo*"},
    {"a room's name is masked in any URL", "https://a.example/meet/jsmith", "https://a.example/meet/jsm***"},
    {"the user name ends at the ampersand", "Login username=john.doe&site=x", "Login username=joh*****&site=x"},
    {"only letters and digits before the marker are masked", "mail to jane.roe%40a.example",
     "mail to jane.***%40a.example"},
    {"an address at the start", "johndoe%40a.example", "joh****%40a.example"},
    {"four letters keep three", "user%40a.example", "use*%40a.example"},
    {"a user's folder is starred whole", "GET /users/12345/profile", "GET /users/*****/profile"},
    {"a user's folder without a closing slash stays", "GET /users/12345", "GET /users/12345"},
    {"nothing", "", ""},
    // First rule.
    {"the question mark is preferred to an earlier comma", "https://a.example/x,y?token=1", "https://a.example/x,y"},
    {"a question mark before the protocol cuts nothing", "why? http://a.example/token", "why? http://a.example/token"},
    {"the query is looked for after https, even when http stands before it",
     "http://a.example/?b https://a.example/c?ticket=1", "http://a.example/?b https://a.example/c"},
    {"a secret named before the URL cuts as well", "token for http://a.example/x?y=z", "token for http://a.example/x"},
    {"a secret with a blank in its name", "http://a.example/x?User Name=z", "http://a.example/x"},
    {"a URL without a secret keeps its query", "https://a.example/x?y=z,w", "https://a.example/x?y=z,w"},
    {"without a protocol the query stays", "a.example/x?ticket=1", "a.example/x?ticket=1"},
    {"the protocol is found in any case, the meeting key is not", "HTTPS://A.EXAMPLE/MEET/JSMITH",
     "HTTPS://A.EXAMPLE/MEET/JSMITH"},
    {"secrets are found in any case", "HTTPS://A.EXAMPLE/?PassWord=x", "HTTPS://A.EXAMPLE/"},
    {"everything after the first meeting key is masked", "http://a.example/join/abcd/meet/efgh",
     "http://a.example/join/abc***********"},
    {"a start page", "http://a.example/start/abcdef", "http://a.example/start/abc***"},
    {"a meeting key at the very end", "http://a.example/meet/", "http://a.example/meet/"},
    {"a meeting key without a URL", "/meet/jsmith", "/meet/jsmith"},
    // Second rule.
    {"a user name of three bytes is starred whole", "username=abc", "username=***"},
    {"the word alone", "the username", "the username"},
    {"the word and its separator alone", "username=", "username="},
    {"an ampersand decides even after a comma", "username=abcdef,x&y", "username=abc*****&y"},
    {"a comma decides even after a blank", "username=abcdef x,y", "username=abc*****,y"},
    {"a blank ends the user name", "username=abcdef x", "username=abc*** x"},
    {"only the first user name is handled", "username=abcdef&username=ghijkl", "username=abc***&username=ghijkl"},
    {"a marker before the value does not count", "a&b,c UserName:abcdef", "a&b,c UserName:abc***"},
    {"an empty value", "username=&x=abcdef", "username=&x=abcdef"},
    // Third rule.
    {"an at sign as first byte", "@a.example", "@a.example"},
    {"an escaped at sign as first bytes", "%40a.example", "%40a.example"},
    {"one letter becomes one star", "a@x", "*@x"},
    {"the first byte is not looked at", "-ab@x", "***@x"},
    {"the first byte stays when a stop byte follows it", "-.ab@x", "-.**@x"},
    {"an at sign is preferred to an earlier escaped one", "abcd%40efgh@x", "abcd%40e***@x"},
    {"escaped ones count after the last at sign", "abcd@x efgh%40y ijkl%40z", "abc*@x efg*%40y ijk*%40z"},
    {"an at sign directly after another one is passed over", "abcd@@x", "abc*@@x"},
    {"stop bytes before the marker", "a.@x", "a.@x"},
    // Fourth rule.
    {"an empty folder name at the end", "x /users//abc", "x /users//***"},
    {"an empty folder name with a closing slash", "x /users//abc/", "x /users//***/"},
    {"the key in any case", "/Users/jane/x", "/Users/****/x"},
    {"several folders", "/users/a/b /users/cde/f", "/users/*/b /users/***/f"},
    {"a closing slash is the next key's opening one", "/users/ab/users/cd/e", "/users/**/users/**/e"},
    {"a key inside a folder name is not seen twice", "/users/users/abc/", "/users/*****/abc/"},
    {"only the last folder is open", "/users/ab/x/users/cd", "/users/**/x/users/cd"},
    {"two slashes and nothing", "/users//", "/users//"},
    {"three slashes", "/users///abc/", "/users///abc/"},
    // All together.
    {"several rules at once", "/Users/jane/x jane.roe@a.example username=jane.roe, http://a.example/join/abcdef?x",
     "/Users/****/x jane.***@a.example username=jan*****, http://a.example/join/abc***"},
};

TEST(Masking, WorkedExamplesAreMaskedExactly) {
  for (const Example& example : kExamples) {
    EXPECT_EQ(removePII(example.input), example.masked) << example.what;
    EXPECT_EQ(removeSensitiveInformationCpp(example.input), example.masked) << example.what;
    EXPECT_EQ(removeSensitiveInformationCpp(example.input.c_str()), example.masked) << example.what;
    EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation(example.input), example.masked) << example.what;
    EXPECT_EQ(referenceRemovePII(example.input), example.masked) << example.what;
  }
}

TEST(Masking, AnAtSignGivesTheSameAsItsEscapedForm) {
  for (const Example& example : kExamples) {
    if (example.input.find('@') != std::string::npos || example.input.find("%40") == 0) continue;
    EXPECT_EQ(removePII(replaceAll(example.input, "%40", "@")), replaceAll(example.masked, "%40", "@")) << example.what;
  }
}

TEST(Masking, MissingTextsGiveTheEmptyText) {
  const char* none = nullptr;
  EXPECT_EQ(removeSensitiveInformationCpp(none), "");
  EXPECT_EQ(addMaskCpp(none), "");
  EXPECT_EQ(addMaskCpp(""), "");
  EXPECT_EQ(addMaskCpp(std::string()), "");
  EXPECT_EQ(removeSensitiveInformationCpp(std::string()), "");
  EXPECT_EQ(MaskSensitiveInformation::addMask({}), "");
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation({}), "");
}

TEST(Masking, TextsMayHoldNulBytes) {
  using namespace std::string_literals;
  EXPECT_EQ(removePII("a\0/users/bc/\0d@x"s), "a\0/users/**/\0*@x"s);
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("a\0/users/bc/\0d@x"s), "a\0/users/**/\0*@x"s);
}

TEST(Mask, OfARangeLongerThanThreeBytesTheFirstThreeStay) {
  EXPECT_EQ(mask("abc", 0, 3), "***");
  EXPECT_EQ(mask("abcd", 0, 4), "abc*");
  EXPECT_EQ(mask("secret", 0, 6), "sec***");
  EXPECT_EQ(mask("my secret", 3, 9), "my sec***");
  EXPECT_EQ(mask("my secret", 3, 6), "my ***ret");
  EXPECT_EQ(addMaskCpp("secret"), "sec***");
  EXPECT_EQ(addMaskCpp(std::string("abc")), "***");
  EXPECT_EQ(addMaskCpp("a"), "*");
}

TEST(Mask, AnEndWithAllBitsSetOrBeyondTheTextMeansTheEndOfTheText) {
  EXPECT_EQ(mask("secret", 2, kEndOfText), "secre*");
  EXPECT_EQ(mask("secret", 0, 99), "sec***");
  EXPECT_EQ(mask("ab", 0, 99), "**");
  EXPECT_EQ(mask("ab", 7, 99), "ab");
  EXPECT_EQ(mask("", 0, kEndOfText), "");
}

TEST(Mask, ARangeThatEndsBeforeItStartsLeavesTheTextUnchanged) {
  EXPECT_EQ(mask("secret", 4, 2), "secret");
  EXPECT_EQ(mask("secret", 7, kEndOfText), "secret");
  EXPECT_EQ(mask("secret", 2, 2), "secret");
}

TEST(Mask, ThePlainFunctionWorksOnBytes) { EXPECT_EQ(mask("ab\u20ac", 0, 5), "ab\xE2**"); }

TEST(ToLower, ChangesAsciiLettersOnly) {
  EXPECT_EQ(toLower("AZaz@[`{09 \xC3\x84\xFF"), "azaz@[`{09 \xC3\x84\xFF");
  EXPECT_EQ(toLower(""), "");
}

TEST(MaskedTexts, ACharacterThatIsCutIsStarredWhole) {
  EXPECT_EQ(MaskSensitiveInformation::addMask("ab\u20acd"), "ab****");
  EXPECT_EQ(MaskSensitiveInformation::addMask("a\u00e9d"), "a\u00e9*");
  EXPECT_EQ(MaskSensitiveInformation::addMask("\U0001F600"), "****");
  EXPECT_EQ(MaskSensitiveInformation::addMask("\u20acd"), "\u20ac*");
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("http://a/meet/ab\u20acd"), "http://a/meet/ab****");
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("username=a\U0001F600 x"), "username=a**** x");
}

TEST(MaskedTexts, NamesInFurtherUsersFoldersAreStarredLikeThoseInUsers) {
  const std::vector<std::string> folders = {"/home/team/", "/home/"};
  const auto masked = [&](std::string text) {
    tks::masking::removePersonalData(text, tks::masking::Unit::characters, folders);
    return text;
  };
  EXPECT_EQ(masked("Path: /home/jane/x, /users/joe/y"), "Path: /home/****/x, /users/***/y");
  EXPECT_EQ(masked("/HOME/jane/x/home/joe/y"), "/HOME/****/x/home/***/y");
  EXPECT_EQ(masked("/home/team/jane/x"), "/home/****/****/x");
  EXPECT_EQ(masked("/home//jane/x"), "/home//****/x");
  // A name that nothing closes stays, like in "/users/".
  EXPECT_EQ(masked("/home/jane"), "/home/jane");
  EXPECT_EQ(masked("/homes/jane/x"), "/homes/jane/x");
}

TEST(MaskedTexts, ThePlainFunctionsKnowNoFurtherUsersFolder) {
  EXPECT_EQ(removePII("/home/jane/x"), "/home/jane/x");
  EXPECT_EQ(removeSensitiveInformationCpp("/home/jane/x"), "/home/jane/x");
}

TEST(MaskedTexts, ACharacterWhoseFirstByteIsTakenForTheSeparatorIsStarredWhole) {
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("username\u00e9"), "username**");
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("username\u20aca"), "username****");
  EXPECT_EQ(MaskSensitiveInformation::removeSensitiveInformation("username\u20acab"), "username\u20aca*");
}

TEST(MaskedTexts, BrokenCharactersAreNoCharactersToKeepTogether) {
  EXPECT_EQ(MaskSensitiveInformation::addMask("ab\x80\x80"), "ab\x80*");
  EXPECT_EQ(MaskSensitiveInformation::addMask("\x80\x80\x80\x80"), "\x80\x80\x80*");
  EXPECT_EQ(MaskSensitiveInformation::addMask("\xC3\x80\x80\x80"), "\xC3\x80\x80*");
  EXPECT_EQ(MaskSensitiveInformation::addMask("ab\xC3"), "***");
  EXPECT_EQ(MaskSensitiveInformation::addMask("abc\xC3"), "abc*");
}

// ---- Against the literal rules, with texts that chance puts together.

class RandomTexts {
 public:
  explicit RandomTexts(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_); }

  std::string of(const std::vector<std::string>& pieces, std::size_t longest) {
    std::string text;
    for (std::size_t left = below(longest + 1); left > 0; --left) text += pieces[below(pieces.size())];
    return text;
  }

  std::string inSomeCase(std::string text) {
    for (char& byte : text) {
      if (below(2) == 0 && byte >= 'a' && byte <= 'z') byte = static_cast<char>(byte - 'a' + 'A');
    }
    return text;
  }

 private:
  std::mt19937 random_;
};

const std::vector<std::string> kMarks = {"https", "http",   "password", "email",   "username", "ticket", "user name",
                                         "token", "/meet/", "/join/",   "/start/", "?",        ",",      "&",
                                         " ",     "@",      "%40",      "/users/", "/"};

std::vector<std::string> fragmentsOf(const std::vector<std::string>& words) {
  std::vector<std::string> fragments;
  for (const std::string& word : words) {
    for (std::size_t begin = 0; begin < word.size(); ++begin) {
      for (std::size_t length = 1; begin + length <= word.size(); ++length)
        fragments.push_back(word.substr(begin, length));
    }
  }
  return fragments;
}

std::vector<std::string> withFiller(std::vector<std::string> pieces) {
  for (const char* filler : {"a", "B", "7", "abcd", ".", "-", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xFF",
                             "`", "\x0F", "\x10", "\x01", "\x02"}) {
    pieces.emplace_back(filler);
  }
  pieces.emplace_back(1, '\0');
  pieces.emplace_back(200, 'x');
  return pieces;
}

void expectLikeTheReference(const std::string& text) {
  const std::string masked = removePII(text);
  ASSERT_EQ(masked, referenceRemovePII(text)) << "of: " << text;
}

TEST(MaskingAgainstTheReference, TextsOfMarksAlone) {
  RandomTexts random(1);
  for (int i = 0; i < 60000; ++i) expectLikeTheReference(random.inSomeCase(random.of(kMarks, 12)));
}

TEST(MaskingAgainstTheReference, TextsOfFragmentsOfMarks) {
  RandomTexts random(2);
  const std::vector<std::string> pieces = fragmentsOf(kMarks);
  for (int i = 0; i < 60000; ++i) expectLikeTheReference(random.inSomeCase(random.of(pieces, 30)));
}

TEST(MaskingAgainstTheReference, TextsOfMarksAndOtherBytes) {
  RandomTexts random(3);
  const std::vector<std::string> pieces = withFiller(kMarks);
  for (int i = 0; i < 60000; ++i) expectLikeTheReference(random.of(pieces, 20));
}

TEST(MaskingAgainstTheReference, TextsOfAnyBytes) {
  RandomTexts random(4);
  for (int i = 0; i < 20000; ++i) {
    std::string text(random.below(300), '\0');
    for (char& byte : text) byte = static_cast<char>(random.below(256));
    expectLikeTheReference(text);
  }
}

TEST(MaskingAgainstTheReference, AMarkAtEveryPlaceOfALongText) {
  for (const std::string& mark : kMarks) {
    for (std::size_t length :
         {std::size_t{120}, std::size_t{127}, std::size_t{128}, std::size_t{129}, std::size_t{300}}) {
      for (std::size_t at = 0; at + mark.size() <= length; ++at) {
        std::string text(length, '.');
        text.replace(at, mark.size(), mark);
        expectLikeTheReference("http" + text + "abcd/ef");
        expectLikeTheReference(text);
      }
    }
  }
}

/// What the rules make of a text where names are masked in further folders.
std::string maskedIn(const std::vector<std::string>& usersFolders, std::string text) {
  tks::masking::removePersonalData(text, tks::masking::Unit::bytes, usersFolders);
  return text;
}

TEST(MaskingAgainstTheReference, TextsWithFurtherUsersFolders) {
  RandomTexts random(7);
  const std::vector<std::string> folders = {"/home/team/", "/home/", "/d/"};
  std::vector<std::string> pieces = fragmentsOf({"/home/", "/d/", "/users/"});
  for (const char* piece :
       {"/home/", "/home/team/", "/d/", "/users/", "/", "team", "ab", "c@", "http://", ".", "\xFF"}) {
    pieces.insert(pieces.end(), 6, piece);
  }
  for (int i = 0; i < 60000; ++i) {
    const std::string text = random.inSomeCase(random.of(pieces, 30));
    ASSERT_EQ(maskedIn(folders, text), referenceRemovePII(text, folders)) << "of: " << text;
  }
}

TEST(MaskingAgainstTheReference, AFurtherUsersFolderAtEveryPlaceOfALongText) {
  for (std::size_t length = 60; length < 200; length += 7) {
    for (std::size_t at = 0; at + 10 <= length; ++at) {
      std::string text(length, '.');
      text.replace(at, 10, "/Home/abc/");
      std::string masked = text;
      masked.replace(at, 10, "/Home/***/");
      ASSERT_EQ(maskedIn({"/home/"}, text), masked);
    }
  }
}

TEST(MaskingAgainstTheReference, RangesOfAnyKind) {
  RandomTexts random(5);
  for (int i = 0; i < 20000; ++i) {
    const std::string text(random.below(12), 'x');
    const std::size_t start = random.below(14);
    const std::size_t end = random.below(10) == 0 ? kEndOfText : random.below(14);
    ASSERT_EQ(mask(text, start, end), referenceMask(text, start, end)) << text << " " << start << " " << end;
  }
}

/// Bytes of broken characters aside: whole characters, and only those, are starred beyond what the bytes rule stars.
void expectWholeCharactersStarred(const std::string& text) {
  const std::string bytes = referenceRemovePII(text);
  const std::string characters = MaskSensitiveInformation::removeSensitiveInformation(text);
  ASSERT_EQ(characters.size(), bytes.size());
  for (std::size_t begin = 0; begin < bytes.size();) {
    std::size_t end = begin + 1;
    while (end < bytes.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    const bool touched = bytes.compare(begin, end - begin, text, begin, end - begin) != 0;
    const std::string expected = touched ? std::string(end - begin, '*') : text.substr(begin, end - begin);
    ASSERT_EQ(characters.substr(begin, end - begin), expected) << "of: " << text << " at " << begin;
    begin = end;
  }
}

TEST(MaskingAgainstTheReference, TextsKeepTheirCharactersWhole) {
  RandomTexts random(6);
  std::vector<std::string> pieces = kMarks;
  for (const char* character : {"a", "\u00e9", "\u20ac", "\U0001F600"}) pieces.insert(pieces.end(), 5, character);
  for (int i = 0; i < 60000; ++i) expectWholeCharactersStarred(random.of(pieces, 20));
}

// ---- Time.

std::string repeated(const std::string& mark, std::size_t times) {
  std::string text;
  text.reserve(mark.size() * times);
  for (std::size_t i = 0; i < times; ++i) text += mark;
  return text;
}

/// Processor time of this thread; the shortest of several runs: what the machine does beside us only ever adds.
double secondsFor(const std::string& text) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  double shortest = 1e9;
  for (int run = 0; run < 3; ++run) {
    const double before = now();
    const std::string masked = removePII(text);
    shortest = std::min(shortest, now() - before);
    EXPECT_LE(masked.size(), text.size());
  }
  return shortest;
}

/// Four times the text takes four times as long; sixteen times would betray a rule that reads it over and over.
void expectTimeInProportion(const std::string& mark, std::size_t times) {
  const double quarter = secondsFor(repeated(mark, times / 4));
  const double whole = secondsFor(repeated(mark, times));
  EXPECT_LT(whole, quarter * 8 + 0.001) << mark;
  EXPECT_LT(whole, 5) << mark;
}

TEST(MaskingTime, GrowsInProportionForMillionsOfMarks) {
  for (const std::string mark : {"%40", "/users/"}) expectTimeInProportion(mark, 3'000'000);
}

TEST(MaskingTime, GrowsInProportionForAnyMark) {
  for (const std::string mark : {"@", "/users//", "username=", "http", "https", "a@", "x%40", "/", "%", "http?token",
                                 "@%40", "/meet/", "ttp", "use", "user ", "a"}) {
    expectTimeInProportion(mark, 300'000);
  }
}

TEST(MaskingTime, TenMebibytesInOneLogLineTakeNoNoticeableTime) {
  const tks::test::LogRecorder log;
  const std::string text(10u << 20, 'a');
  const auto before = std::chrono::steady_clock::now();
  TKSILog::logWithLevel(TKSILogLevelInfo, "%@", tks::masked(text));
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(500));
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(MaskingMemory, TenMebibytesInOneLogLineTakeASmallMultipleOfThem) {
  if (tks::test::kSanitized) GTEST_SKIP() << "sanitizers keep what is freed";
  TKS_IN_FRESH_PROCESS();
  constexpr std::size_t kText = std::size_t{10} << 20;
  std::string text(kText, 'a');
  for (std::size_t at = 0; at + 30 < text.size(); at += 1000) text.replace(at, 21, "jane@a /users/jane/x?");
  std::size_t delivered = 0;
  TKSILog::sharedInstance().setLogBlock([&](std::int32_t, const std::string& message) { delivered = message.size(); });
  rusage before{};
  ::getrusage(RUSAGE_SELF, &before);
  TKSILog::logWithLevel(TKSILogLevelInfo, "%@", tks::masked(text));
  rusage after{};
  ::getrusage(RUSAGE_SELF, &after);
  TKSILog::sharedInstance().setLogBlock({});
  EXPECT_EQ(delivered, text.size());
  EXPECT_LT(static_cast<std::size_t>(after.ru_maxrss - before.ru_maxrss) * 1024, 6 * kText);
}

}  // namespace
