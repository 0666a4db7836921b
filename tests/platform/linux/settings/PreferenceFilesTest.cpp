#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>

#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"
#include "tests/support/PropertyListSamples.h"

// Where this system keeps preferences, and what stands in for the platform's own.

namespace {

using namespace tks::test;

tks::platform::Preferences& preferences() { return tks::platform::preferences(); }

/// HOME: stores one value as a user without rights there, when this one may take another's identity.
int storeWithoutRights(const Arguments& arguments) {
  const FakeHome home(arguments.at(0));
  constexpr uid_t kNobody = 65534;
  if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) return 3;
  TKSError error;
  const bool stored = preferences().set("key", 1, &error);
  std::cout << error.localizedDescription << "\n" << preferences().value("key").description();
  return stored ? 0 : 1;
}
const ChildRole kStoreWithoutRights("store-without-rights", storeWithoutRights);

class PreferenceFiles : public testing::Test {
 protected:
  void writeList(const std::string& path, const TKSDictionary& dictionary) {
    std::filesystem::create_directories(folder_);
    ASSERT_TRUE(tks::platform::propertyLists().writeDictionary(dictionary, path, nullptr));
  }

  FakeHome home_;
  std::string folder_ = home_ / "Library/Preferences";
  std::string own_ = folder_ + "/" + std::filesystem::path(ownExecutable()).filename().string() + ".plist";
  std::string global_ = folder_ + "/.GlobalPreferences.plist";
};

TEST_F(PreferenceFiles, AProgramOutsideOfABundleHasADomainOfItsOwnName) {
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  EXPECT_EQ(tks::platform::propertyLists().readDictionary(own_, nullptr), (TKSDictionary{{"key", 1}}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
}

TEST_F(PreferenceFiles, OthersCannotReadThem) {
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  struct stat status {};
  ASSERT_EQ(::stat(own_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 077, mode_t{0});
  ASSERT_EQ(::stat(folder_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 077, mode_t{0});
}

TEST_F(PreferenceFiles, TheOwnDomainComesBeforeTheGlobalOne) {
  writeList(global_, {{"both", "global"}, {"global", 1}});
  writeList(own_, {{"both", "own"}, {"own", 2}});
  EXPECT_EQ(preferences().value("both"), TKSValue("own"));
  EXPECT_EQ(preferences().value("global"), TKSValue(1));
  EXPECT_EQ(preferences().value("own"), TKSValue(2));
  const TKSDictionary all = preferences().dictionaryRepresentation();
  EXPECT_EQ(all["both"], TKSValue("own"));
  EXPECT_EQ(all["global"], TKSValue(1));
  EXPECT_EQ(all["own"], TKSValue(2));
}

TEST_F(PreferenceFiles, StoringLeavesTheGlobalDomainAlone) {
  writeList(global_, {{"key", "global"}});
  const std::string before = contentOf(global_);
  ASSERT_TRUE(preferences().set("key", "own", nullptr));
  EXPECT_EQ(preferences().value("key"), TKSValue("own"));
  ASSERT_TRUE(preferences().set("key", TKSValue(), nullptr));
  EXPECT_EQ(preferences().value("key"), TKSValue("global"));
  EXPECT_EQ(contentOf(global_), before);
}

TEST_F(PreferenceFiles, WhatOtherProgramsStoredIsKept) {
  writeList(own_, {{"theirs", TKSDictionary{{"a", 1}}}});
  ASSERT_TRUE(preferences().set("mine", 1, nullptr));
  EXPECT_EQ(preferences().value("theirs"), TKSValue(TKSDictionary{{"a", 1}}));
}

TEST_F(PreferenceFiles, ADamagedFileReadsAsEmptyAndIsKeptAsideWhenItIsReplaced) {
  writeFile(own_, "no property list");
  EXPECT_TRUE(preferences().value("key").isNothing());
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  EXPECT_EQ(preferences().value("key"), TKSValue(1));
  EXPECT_EQ(contentOf(own_ + ".damaged"), "no property list");
}

TEST_F(PreferenceFiles, BeyondTheBoundsAreKeptAndNothingIsStored) {
  const std::string large = plist::xml("<dict><key>a</key><string>" + std::string(17u << 20, 'x') + "</string></dict>");
  for (const std::string& content : {large, plist::nestedDictionariesXml(600)}) {
    writeFile(own_, content);
    TKSError error;
    EXPECT_FALSE(preferences().set("key", 1, &error));
    EXPECT_EQ(error.code, EFBIG);
    EXPECT_TRUE(contentOf(own_) == content);
    EXPECT_FALSE(std::filesystem::exists(own_ + ".damaged"));
  }
}

TEST_F(PreferenceFiles, BehindALinkStayThere) {
  writeList(home_ / "elsewhere.plist", {{"old", 1}});
  std::filesystem::create_directories(folder_);
  std::filesystem::create_symlink("../../elsewhere.plist", own_);
  ASSERT_TRUE(preferences().set("key", 2, nullptr));
  EXPECT_TRUE(std::filesystem::is_symlink(own_));
  EXPECT_EQ(tks::platform::propertyLists().readDictionary(home_ / "elsewhere.plist", nullptr),
            (TKSDictionary{{"key", 2}, {"old", 1}}));
}

TEST_F(PreferenceFiles, ALargeUnsignedNumberSurvivesItsNeighbour) {
  writeFile(own_, plist::xml("<dict><key>large</key><integer>18446744073709551615</integer></dict>"));
  ASSERT_TRUE(preferences().set("key", 2, nullptr));
  EXPECT_NE(contentOf(own_).find("<integer>18446744073709551615</integer>"), std::string::npos);
}

TEST_F(PreferenceFiles, AnEmptyFileIsNotDamaged) {
  writeFile(own_, "");
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  EXPECT_FALSE(std::filesystem::exists(own_ + ".damaged"));
}

TEST_F(PreferenceFiles, AFolderOrFifoInTheirPlaceIsAnErrorAtOnce) {
  std::filesystem::create_directories(own_);
  TKSError error;
  EXPECT_FALSE(preferences().set("key", 1, &error));
  EXPECT_FALSE(error.localizedDescription.empty());
  std::filesystem::remove(own_);
  ASSERT_EQ(::mkfifo(own_.c_str(), 0600), 0);
  error = {};
  EXPECT_FALSE(preferences().set("key", 1, &error));
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_TRUE(preferences().value("key").isNothing());
  EXPECT_TRUE(std::filesystem::is_fifo(own_));
}

TEST_F(PreferenceFiles, AProcessThatNeverGivesTheLockBackIsNotWaitedForForEver) {
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  const tks::posix::FileDescriptor holder(::open(own_.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
  const auto before = std::chrono::steady_clock::now();
  TKSError error;
  EXPECT_FALSE(preferences().set("key", 2, &error));
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
  EXPECT_EQ(error.code, ETIMEDOUT);
  EXPECT_EQ(preferences().value("key"), TKSValue(1));
}

struct LocaleCase {
  const char* name;
  Arguments environment;
  const char* locale;
  friend std::ostream& operator<<(std::ostream& out, const LocaleCase& locale) { return out << locale.name; }
};

class LocaleOfEnvironment : public PreferenceFiles, public testing::WithParamInterface<LocaleCase> {};

TEST_P(LocaleOfEnvironment, StandsInForAppleLocale) {
  Arguments environment{"LC_ALL", "LC_MESSAGES", "LANG"};
  environment.insert(environment.end(), GetParam().environment.begin(), GetParam().environment.end());
  ChildProcess child = ChildProcess::inRole("print-preferences", {home_.realHome(), "AppleLocale"}, environment);
  ASSERT_EQ(child.wait(), 0);
  const std::string locale = GetParam().locale;
  EXPECT_EQ(child.output(), "AppleLocale=" + locale + "," + locale + ",(null)\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, LocaleOfEnvironment,
    testing::Values(LocaleCase{"None", {}, "(null)"}, LocaleCase{"Lang", {"LANG=de_DE"}, "de_DE"},
                    LocaleCase{"WithEncoding", {"LANG=de_DE.UTF-8"}, "de_DE"},
                    LocaleCase{"WithModifier", {"LANG=de_DE@euro"}, "de_DE"},
                    LocaleCase{"LanguageOnly", {"LANG=fr"}, "fr"},
                    LocaleCase{"MessagesBeforeLang", {"LANG=de_DE", "LC_MESSAGES=en_US.UTF-8"}, "en_US"},
                    LocaleCase{"AllBeforeMessages", {"LC_MESSAGES=en_US", "LC_ALL=fr_FR"}, "fr_FR"},
                    LocaleCase{"EmptySaysNothing", {"LC_ALL=", "LC_MESSAGES=", "LANG=de_DE"}, "de_DE"},
                    LocaleCase{"C", {"LANG=C"}, "(null)"}, LocaleCase{"CWithEncoding", {"LANG=C.UTF-8"}, "(null)"},
                    LocaleCase{"Posix", {"LANG=POSIX"}, "(null)"},
                    LocaleCase{"CBeforeLang", {"LC_ALL=C", "LANG=de_DE"}, "(null)"}),
    [](const auto& locale) { return locale.param.name; });

TEST_F(PreferenceFiles, AStoredAppleLocaleComesBeforeTheEnvironment) {
  writeList(global_, {{"AppleLocale", "nl_NL"}});
  ChildProcess child = ChildProcess::inRole("print-preferences", {home_.realHome(), "AppleLocale"}, {"LANG=de_DE"});
  ASSERT_EQ(child.wait(), 0);
  EXPECT_EQ(child.output(), "AppleLocale=nl_NL,nl_NL,(null)\n");
}

TEST_F(PreferenceFiles, ThereAreAlwaysLanguages) {
  const std::pair<const char*, const char*> cases[] = {
      {"LANG=C", "(\n    en\n)"}, {"LANG=fr", "(\n    fr\n)"}, {"LANG=de_DE.UTF-8", "(\n    \"de-DE\"\n)"}};
  for (const auto& [variable, languages] : cases) {
    ChildProcess child = ChildProcess::inRole("print-preferences", {home_.realHome(), "AppleLanguages"},
                                              {"LC_ALL", "LC_MESSAGES", variable});
    ASSERT_EQ(child.wait(), 0);
    EXPECT_EQ(child.output(), "AppleLanguages=" + std::string(languages) + "," + languages + ",(null)\n");
  }
  writeList(global_, {{"AppleLanguages", TKSArray{"nl"}}});
  EXPECT_EQ(preferences().value("AppleLanguages"), TKSValue(TKSArray{"nl"}));
  EXPECT_EQ(preferences().dictionaryRepresentation()["AppleLanguages"], TKSValue(TKSArray{"nl"}));
}

TEST_F(PreferenceFiles, AMissingHomeIsAnErrorAndIsNotMade) {
  const std::string missing = home_ / "nobody/here";
  const FakeHome home(missing);
  TKSError error;
  EXPECT_FALSE(preferences().set("key", 1, &error));
  EXPECT_NE(error.localizedDescription.find(missing), std::string::npos) << error.localizedDescription;
  EXPECT_TRUE(preferences().value("key").isNothing());
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(PreferenceFiles, AHomeWithoutRightsIsAnErrorAndReadsAsEmpty) {
  using std::filesystem::perms;
  std::filesystem::permissions(home_.realHome(), perms::owner_read | perms::owner_exec);
  // It cannot remove what it makes for itself, which goes with this home.
  ChildProcess child =
      ChildProcess::inRole("store-without-rights", {home_.realHome()}, {"TMPDIR=" + home_.temporary()});
  EXPECT_EQ(child.wait(), 1);
  EXPECT_TRUE(child.output().ends_with("\n(null)")) << child.output();
  EXPECT_GT(child.output().size(), std::string_view("\n(null)").size());
  std::filesystem::permissions(home_.realHome(), perms::owner_all);
}

}  // namespace
