#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "platform/linux/processes/tool_runner.h"
#include "platform/platform.h"
#include "tests/codesign/Fixtures.h"
#include "tests/support/BuildPaths.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"
#include "tests/support/RefusedSystemCalls.h"
#include "tests/support/Sanitized.h"

// A host that is short of processes, threads or descriptors for a moment, or that has no process table: whoever asked
// is told, nobody waits for what may never come, and a healthy launcher stays where it is.

namespace {

using namespace tks::test;
namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr uid_t kNobody = 65534;
constexpr const char* kSanitizersNeed = "sanitizers need descriptors and threads themselves";

/// A launcher that the maker signed and that the assessment accepts, and a facade that knows it.
class Shortage : public testing::Test {
 protected:
  void prepare() {
    home_.emplace();
    launcher_.emplace();
    fs::remove(launcher_->file("switches"));
    writeFile(launcher_->bundle() + "/Contents/CodeResources", "s8ch, as a stapled ticket begins");
    signAs(launcher_->bundle());
    facade_.emplace();
    facade_->setTKSAppPath(launcher_->bundle());
    TKSMainLoop::drain();
  }
  /// A thread of the pool that is there before there are no more.
  static void warmUp() {
    std::atomic<bool> ran = false;
    ASSERT_TRUE(tks::platform::backgroundWork().submit([&] { ran = true; }));
    ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
  }
  std::string failToStart() {
    std::vector<std::string> errors;
    facade_->start([] { ADD_FAILURE() << "started"; },
                   [&](const TKSError& error) { errors.push_back(error.localizedDescription); });
    EXPECT_TRUE(drainUntil([&] { return !errors.empty(); }, std::chrono::seconds(20)));
    drainFor(std::chrono::milliseconds(20));
    EXPECT_EQ(errors.size(), 1u);
    EXPECT_EQ(facade_->appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
    return errors.empty() ? "" : errors.front();
  }
  void expectUntouched() {
    EXPECT_TRUE(fs::exists(launcher_->executable()));
    EXPECT_FALSE(TKSUtilBaseHelper::hasHashValueWithAppPath(launcher_->bundle()));
    EXPECT_THAT(log_.texts(8), Not(Contains("App broken, about to clean up the broken tks app.")));
  }
  void expectNoVerdict(int times = 1) {
    EXPECT_THAT(log_.texts(8), Contains(StartsWith("No verdict of spctl, ")).Times(times));
  }

  std::optional<FakeHome> home_;
  std::optional<FakeLauncher> launcher_;
  std::optional<TKSInterface> facade_;
  /// The tools as they are installed, with the assessment's own program or without it.
  bool hasProgram_ = true;
  std::unique_ptr<tks::platform::SystemTools> tools_ = tks::gnulinux::makeSystemTools([this](tks::platform::Tool tool) {
    if (tool != tks::platform::Tool::spctl) return tks::gnulinux::standardToolPath(tool);
    return hasProgram_ ? buildFolder() + "/spctl" : std::string();
  });
  tks::platform::Replaced<tks::platform::SystemTools> replaced_{*tools_};
  LogRecorder log_;
};

/// With the assessment's program, and in a host that ships the library alone.
class ShortageOfAHost : public Shortage, public testing::WithParamInterface<bool> {
 protected:
  ShortageOfAHost() { hasProgram_ = GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Which, ShortageOfAHost, testing::Bool(), [](const auto& tested) {
  return std::string(tested.param ? "HasTheProgram" : "HasTheLibraryAlone");
});

TEST_P(ShortageOfAHost, OfProcessesLeavesAHealthyLauncher) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  warmUp();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  if (!refuseSystemCalls({SYS_clone, SYS_clone3, SYS_fork, SYS_vfork}, EAGAIN)) GTEST_SKIP() << "no filters here";
  EXPECT_THAT(failToStart(), HasSubstr("Getting pid failed, probably launch app by NSTask failed."));
  expectUntouched();
  // The library's own assessment needs no process.
  expectNoVerdict(hasProgram_ ? 1 : 0);
  EXPECT_FALSE(TKSUtilBase::isBrokenApp(launcher_->bundle()));
}

TEST_P(ShortageOfAHost, OfProcessesOfThisUserLeavesAHealthyLauncher) {
  TKS_IN_FRESH_PROCESS();
  if (::geteuid() != 0) GTEST_SKIP() << "has to become another user";
  prepare();
  fs::permissions(fs::path(launcher_->bundle()).parent_path(), fs::perms(0755));
  warmUp();
  const rlimit none{0, 0};
  ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &none), 0);
  ASSERT_EQ(::setresuid(kNobody, kNobody, 0), 0);
  EXPECT_THAT(failToStart(), StartsWith("Launch app failed. Path: "));
  expectUntouched();
  expectNoVerdict(hasProgram_ ? 1 : 0);
  ASSERT_EQ(::setresuid(0, 0, 0), 0);
}

TEST_P(ShortageOfAHost, OfDescriptorsLeavesAHealthyLauncher) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  warmUp();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  for (int left = 0; left <= 8; ++left) {
    log_.clear();
    // The lowest numbers are taken one after the other: beyond the limit there is none.
    const int next = ::dup(2);
    ASSERT_GE(next, 0);
    ::close(next);
    const rlimit tight{static_cast<rlim_t>(next + left), limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    bool ended = false;
    facade_->start([&] { ended = true; }, [&](const TKSError&) { ended = true; });
    EXPECT_TRUE(drainUntil([&] { return ended; }, std::chrono::seconds(40))) << left;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(fs::exists(launcher_->executable())) << left;
    EXPECT_THAT(log_.texts(8), Not(Contains("App broken, about to clean up the broken tks app."))) << left;
    if (facade_->isTKSAppSuspending()) break;  // it was enough
  }
  launcher_->endAll();
}

TEST_F(Shortage, OfThreadsEndsAStartWithItsErrorCallback) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  if (!refuseSystemCalls({SYS_clone, SYS_clone3}, EAGAIN)) GTEST_SKIP() << "no filters here";
  EXPECT_EQ(failToStart(),
            "Launch app failed. Path: " + launcher_->executable() + ". Error: No thread to launch the app on.");
  EXPECT_THAT(log_.texts(8),
              Contains("Cannot start a thread for background work: Resource temporarily unavailable").Times(1));
  expectUntouched();
  expectNoVerdict();
}

TEST_F(Shortage, OfThreadsEndsALaunchWithItsErrorCallback) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  if (!refuseSystemCalls({SYS_clone, SYS_clone3}, EAGAIN)) GTEST_SKIP() << "no filters here";
  std::vector<std::string> errors;
  facade_->launchMeetingWithParam(
      TKSDictionary(), [] { ADD_FAILURE() << "launched"; },
      [&](const TKSError& error) { errors.push_back(error.localizedDescription); });
  ASSERT_TRUE(drainUntil([&] { return !errors.empty(); }, std::chrono::seconds(20)));
  EXPECT_THAT(errors, ElementsAre(HasSubstr("No thread to launch the app on.")));
}

TEST_F(Shortage, OfThreadsEndsTheQuestionForUpdatesOnTheMainThread) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  if (!refuseSystemCalls({SYS_clone, SYS_clone3}, EAGAIN)) GTEST_SKIP() << "no filters here";
  TKSError error;
  EXPECT_EQ(TKSUtilBase::avaliableDeltaUpdates("http://127.0.0.1:9/updates", &error), std::nullopt);
  EXPECT_EQ(error.domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(error.code, EAGAIN);
  EXPECT_THAT(log_.texts(8), Contains(StartsWith("Get remote deltaList has error: ")));
}

TEST_F(Shortage, OfThreadsHandsTheResultOfALaunchToTheMainThread) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  if (kSanitized) GTEST_SKIP() << kSanitizersNeed;
  if (!refuseSystemCalls({SYS_clone, SYS_clone3}, EAGAIN)) GTEST_SKIP() << "no filters here";
  std::vector<std::string> results;
  TKSUtilBase::launchAppWithExePath(launcher_->executable(), {},
                                    [&](const auto& application, const std::optional<TKSError>& error) {
                                      EXPECT_FALSE(application);
                                      results.push_back(error ? error->localizedDescription : "none");
                                    });
  EXPECT_THAT(results, IsEmpty()) << "never inside the call";
  ASSERT_TRUE(drainUntil([&] { return !results.empty(); }));
  EXPECT_THAT(results, ElementsAre("No thread to launch the app on."));
}

/// Takes the process table away from this process; false where it may not.
bool hideProcessTable() {
  return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/proc", "tmpfs", 0, "size=4k") == 0;
}

TEST_F(Shortage, OfAProcessTableEndsAStartAtOnceAndStartsNothing) {
  TKS_IN_FRESH_PROCESS();
  prepare();
  if (!hideProcessTable()) GTEST_SKIP() << "needs the right to mount";
  const auto begin = std::chrono::steady_clock::now();
  const std::string error = failToStart();
  const auto time = std::chrono::steady_clock::now() - begin;
  ASSERT_EQ(::umount2("/proc", MNT_DETACH), 0);
  EXPECT_THAT(error, HasSubstr("Running apps can not be looked up, app is not launched: "));
  EXPECT_THAT(error, HasSubstr("\"/proc\""));
  EXPECT_LT(time, std::chrono::seconds(15)) << "the wait for a process takes twice as long";
  EXPECT_THAT(launcher_->processes(), IsEmpty());
  EXPECT_TRUE(fs::exists(launcher_->executable()));
}

}  // namespace
