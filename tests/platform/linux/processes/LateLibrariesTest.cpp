#include "platform/linux/processes/late_library.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/files/curl_download.h"
#include "platform/linux/processes/late_functions.h"
#include "platform/platform.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"

// What happens when a library that is opened on first use is not installed, and when it is installed after all.

namespace {

/// Names of the files that dlopen does not find.
std::set<std::string>& hidden() {
  static std::set<std::string> names;
  return names;
}

}  // namespace

/// Stands in front of the C library's own for all of this program.
extern "C" void* dlopen(const char* file, int mode) noexcept {
  using Open = void* (*)(const char*, int);
  static const auto original = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "dlopen"));
  const bool isHidden = file != nullptr && hidden().contains(file);
  return original(isHidden ? ("hidden-" + std::string(file)).c_str() : file, mode);
}

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tks::gnulinux::LateLibrary;
using tks::platform::DownloadResult;
using tks::test::LogRecorder;
using tks::test::writeFile;
using Match = tks::platform::Text::Match;

/// Hides a library for a scope.
class Hidden {
 public:
  explicit Hidden(LateLibrary library) : name_(tks::gnulinux::fileNameOf(library)) { hidden().insert(name_); }
  ~Hidden() { hidden().erase(name_); }
  Hidden(const Hidden&) = delete;
  Hidden& operator=(const Hidden&) = delete;

 private:
  std::string name_;
};

DownloadResult download(const std::string& address) {
  tks::platform::DownloadRequest request;
  request.url = TKSURL::URLWithString(address).value_or(TKSURL());
  std::promise<DownloadResult> answer;
  tks::gnulinux::CurlDownload().start(request, [&](DownloadResult result) { answer.set_value(std::move(result)); });
  return answer.get_future().get();
}

TEST(LateLibraries, ADownloadWithoutItsLibraryFailsWithWhatIsMissingAndLeavesNothing) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::FakeHome home;
  writeFile(home / "list", "the list");
  const std::string address = "file://" + (home / "list");
  {
    const Hidden library(LateLibrary::curl);
    const DownloadResult result = download(address);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, "NSURLErrorDomain");
    EXPECT_EQ(result.error->code, -1);
    EXPECT_EQ(result.error->reason, TKSErrorReason::toolMissing);
    EXPECT_THAT(result.error->localizedDescription,
                AllOf(HasSubstr("download \"" + address + "\": "), HasSubstr("libcurl"), HasSubstr("No such file")));
    EXPECT_THAT(result.location, IsEmpty());
    EXPECT_TRUE(std::filesystem::is_empty(tks::platform::knownFolders().temporary()));
  }
  const DownloadResult result = download(address);
  EXPECT_FALSE(result.error) << "it has been installed meanwhile";
  EXPECT_EQ(tks::test::contentOf(result.location), "the list");
}

TEST(LateLibraries, ATarWithoutItsLibraryIsNotReadAndTheErrorSaysWhatIsMissing) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::TemporaryFolder folder;
  writeFile(folder / "file", "content");
  ASSERT_EQ(std::system(("cd '" + folder.path() + "' && tar cf a.tar file").c_str()), 0);
  std::vector<std::string> names;
  const auto inspect = [&](TKSError* error) {
    return tks::platform::archives().inspect(
        folder / "a.tar", tks::platform::ArchiveFormat::tar,
        [&](const tks::platform::ArchiveEntry& entry) {
          names.push_back(entry.name);
          return true;
        },
        error);
  };
  TKSError error;
  {
    const Hidden library(LateLibrary::archive);
    EXPECT_FALSE(inspect(&error));
    EXPECT_FALSE(inspect(nullptr));
  }
  EXPECT_EQ(error.reason, TKSErrorReason::toolMissing);
  EXPECT_THAT(error.localizedDescription, AllOf(HasSubstr("read archive"), HasSubstr("libarchive")));
  EXPECT_THAT(names, IsEmpty());
  EXPECT_TRUE(inspect(&error)) << "it has been installed meanwhile";
  EXPECT_THAT(names, ElementsAre("file"));
}

TEST(LateLibraries, TextsFollowTheRulesOfAsciiWithoutTheirsAndOneLineSaysSo) {
  TKS_IN_FRESH_PROCESS();
  tks::platform::Text& text = tks::platform::text();
  const LogRecorder log;
  {
    const Hidden library(LateLibrary::icuCommon);
    EXPECT_EQ(text.lowerCase("STRA\u00dfE \u00c4"), "stra\u00dfe \u00c4");
    EXPECT_TRUE(text.equalIgnoringCase("\u00c4b", "\u00c4B"));
    EXPECT_FALSE(text.equalIgnoringCase("\u00c4", "\u00e4"));
    EXPECT_GT(text.compareNumerically("\u00c4 44.10", "\u00c4 44.9"), 0);
    EXPECT_EQ(text.utf16Length("\u00c4"), 2u);
    EXPECT_EQ(text.findPattern("a", "a", std::chrono::steady_clock::time_point::max()), Match::notMatched);
    EXPECT_EQ(text.decimal(1234), "1234");
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::Field(&tks::test::LogLine::text,
                                           AllOf(HasSubstr("Library cannot be opened"), HasSubstr("libicuuc")))));
  }
  EXPECT_EQ(text.lowerCase("\u00c4"), "\u00e4") << "it has been installed meanwhile";
  EXPECT_EQ(text.findPattern("a", "A", std::chrono::steady_clock::time_point::max()), Match::matched);
}

TEST(LateLibraries, PatternsAndNumbersWithoutTheirsMatchNothingAndStayPlain) {
  TKS_IN_FRESH_PROCESS();
  const Hidden library(LateLibrary::icuI18n);
  const LogRecorder log;
  tks::platform::Text& text = tks::platform::text();
  EXPECT_EQ(text.lowerCase("\u00c4"), "\u00e4");
  EXPECT_EQ(text.findPattern("a", "a", std::chrono::steady_clock::time_point::max()), Match::notMatched);
  EXPECT_EQ(text.decimal(1234.5), "1234.5");
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(LateLibraries, TextsInAsciiNeedNone) {
  TKS_IN_FRESH_PROCESS();
  const Hidden common(LateLibrary::icuCommon);
  const LogRecorder log;
  tks::platform::Text& text = tks::platform::text();
  EXPECT_EQ(text.lowerCase("ABC"), "abc");
  EXPECT_TRUE(text.equalIgnoringCase("Abc", "aBC"));
  EXPECT_GT(text.compareNumerically("44.10", "44.9"), 0);
  EXPECT_EQ(text.utf16Length("abc"), 3u);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(LateLibraries, AMissingFunctionIsNamed) {
  TKS_IN_FRESH_PROCESS();
  constexpr const char* kNames[] = {"curl_easy_init", "curl_easy_fly"};
  void* found[2];
  std::string reason;
  EXPECT_FALSE(tks::gnulinux::openLibrary(LateLibrary::curl, kNames, found, reason));
  EXPECT_THAT(reason, HasSubstr("curl_easy_fly"));
}

TEST(LateLibraries, ManyThreadsMayAskFirst) {
  TKS_IN_FRESH_PROCESS();
  std::vector<std::thread> threads;
  std::vector<const tks::gnulinux::IcuCommonFunctions*> found(8);
  for (auto& place : found) {
    threads.emplace_back([&place] {
      std::string reason;
      place = tks::gnulinux::lateFunctions<tks::gnulinux::IcuCommonFunctions>(reason);
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_NE(found[0], nullptr);
  EXPECT_THAT(found, testing::Each(found[0]));
}

}  // namespace
