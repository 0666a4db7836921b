#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSILog.h>

#include "install/Progress.h"
#include "tests/c/CHost.h"
#include "tests/support/FakeHome.h"
#include "tests/support/LogRecorder.h"

// Texts, versions and the log of the C interface.

namespace {

using namespace tks::test;
using testing::ElementsAre;

TEST(CVersions, OfHeaderAndLibraryAreTheProjects) {
  EXPECT_STREQ(tks_version_text(), TKS_VERSION_OF_THE_PROJECT);
  EXPECT_EQ(tks_version(), TKS_VERSION);
  EXPECT_EQ(tks_c_version(), TKS_C_VERSION_MAJOR * 1000 + TKS_C_VERSION_MINOR);
}

TEST(CNumbers, AreThoseOfTheOtherInterface) {
  EXPECT_EQ(TKS_STATUS_UNCONNECTED, 1);
  EXPECT_EQ(TKS_STATUS_LAUNCHING, 4);
  EXPECT_EQ(TKS_LOG_TRACE, TKSILogLevelTrace);
  EXPECT_EQ(TKS_LOG_INFO, TKSILogLevelInfo);
  EXPECT_EQ(TKS_LOG_WARNING, TKSILogLevelWarning);
  EXPECT_EQ(TKS_LOG_ERROR, TKSILogLevelError);
}

/// What a callback in C is told.
struct InstallNews {
  std::vector<std::uint64_t> told;
  int released = 0;

  static void note(void* context, std::int32_t step, std::int32_t steps, std::uint64_t done, std::uint64_t total) {
    auto& told = static_cast<InstallNews*>(context)->told;
    told.insert(told.end(), {static_cast<std::uint64_t>(step), static_cast<std::uint64_t>(steps), done, total});
  }
  static void release(void* context) { ++static_cast<InstallNews*>(context)->released; }
};

TEST(CInstallProgress, IsToldWithItsContextUntilAnotherOneTakesItsPlace) {
  InstallNews news;
  tks_set_install_progress(&InstallNews::note, &news, &InstallNews::release);
  tks::install::tellProgress(TKSInstallStep::unpacking, 3, 7);
  EXPECT_EQ(news.released, 0);
  tks_set_install_progress(nullptr, nullptr, nullptr);
  EXPECT_EQ(news.released, 1);
  tks::install::tellProgress(TKSInstallStep::checking);
  EXPECT_THAT(news.told, ElementsAre(TKS_INSTALL_UNPACKING, 6, 3, 7));
}

TEST(CMasking, MasksPersonalData) {
  EXPECT_EQ(taken(tks_mask("Opened /Users/jane.doe/x")),
            TKSILog::removeSensitiveInformation("Opened /Users/jane.doe/x"));
  EXPECT_EQ(taken(tks_mask("Opened /Users/jane.doe/x")).find("jane.doe"), std::string::npos);
  EXPECT_EQ(taken(tks_mask("")), "");
  EXPECT_EQ(taken(tks_add_mask("secret")), "sec***");
}

TEST(CMasking, OfNoTextIsNoText) {
  EXPECT_EQ(tks_mask(nullptr), nullptr);
  EXPECT_EQ(tks_add_mask(nullptr), nullptr);
  tks_free(nullptr);
}

TEST(CMasking, TakesTextsThatAreNoUtf8) { EXPECT_EQ(taken(tks_mask("\xff\xfe plain")), "\xff\xfe plain"); }

TEST(CLog, GetsLinesOfLibraryAndHost) {
  LogRecorder before;
  CHost host;
  tks_set_log(&CHost::log, &host, &CHost::release);
  tks_log(TKS_LOG_WARNING, "a line of 100%@ the host's own");
  TKSILog::logWithLevel(TKSILogLevelInfo, "%@", "of the library");
  tks_log(TKS_LOG_INFO, nullptr);
  EXPECT_EQ(host.released, 0);
  tks_set_log(nullptr, nullptr, nullptr);
  tks_log(TKS_LOG_INFO, "unheard");
  EXPECT_THAT(host.lines, ElementsAre("4 a line of 100%@ the host's own", "2 of the library", "2 "));
  EXPECT_EQ(host.released, 1);
  EXPECT_EQ(host.afterRelease, 0);
}

TEST(CLog, ThatIsReplacedReleasesTheOneBefore) {
  LogRecorder before;
  CHost first, second;
  tks_set_log(&CHost::log, &first, &CHost::release);
  tks_set_log(&CHost::log, &second, &CHost::release);
  EXPECT_EQ(first.released, 1);
  EXPECT_EQ(second.released, 0);
  tks_set_log(nullptr, &first, nullptr);
  EXPECT_EQ(first.released, 1);
  EXPECT_EQ(second.released, 1);
}

TEST(CLog, ThatReplacesItselfWhileItIsCalledIsReleasedAfterwards) {
  LogRecorder before;
  struct Replacing : CHost {
    bool wasReleasedInside = false;
    static void replace(void* context, std::int32_t, const char*) {
      auto& host = *static_cast<Replacing*>(context);
      tks_set_log(nullptr, nullptr, nullptr);
      host.wasReleasedInside = host.released > 0;
    }
  } host;
  tks_set_log(&Replacing::replace, static_cast<CHost*>(&host), &CHost::release);
  tks_log(TKS_LOG_INFO, "line");
  EXPECT_FALSE(host.wasReleasedInside);
  EXPECT_EQ(host.released, 1);
}

TEST(CLauncher, IsTheOneThatWasSet) {
  FakeHome home;
  const std::string standard = taken(tks_launcher());
  tks_set_launcher("/nowhere/A.app");
  EXPECT_EQ(taken(tks_launcher()), "/nowhere/A.app");
  tks_set_launcher(nullptr);
  EXPECT_EQ(taken(tks_launcher()), "");
  tks_set_launcher(standard.c_str());
}

}  // namespace
