#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/c/CHost.h"
#include "tests/reach/SignedLauncher.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"

// Each context is released once, when nothing calls back with it any more, whatever becomes of the call. Real
// launchers.

namespace {

using namespace tks::test;

constexpr const char* kMeeting = R"({"gpcsitedomain": "https://meet.tarvo.example", "meetingkey": "123"})";

/// A host whose launcher the maker signed.
struct World {
  World() { tks_set_launcher(launcher.bundle().c_str()); }
  ~World() {
    CHost goodbye;
    tks_stop(&CHost::finish, &CHost::fail, &goodbye, &CHost::release);
    drainUntil([&] { return goodbye.isOver(); });
  }

  void orders(const std::string& words) { ::setenv("TKS_FAKE_LAUNCHER", words.c_str(), 1); }
  bool isUnconnected() const { return tks_status() == TKS_STATUS_UNCONNECTED; }

  FakeHome home;
  SignedLauncher launcher;
};

void expectOver(const CHost& host, int finished, int failed) {
  ASSERT_TRUE(drainUntil([&] { return host.isOver(); }, std::chrono::seconds(30)));
  EXPECT_EQ(host.finished, finished);
  EXPECT_EQ(host.failed, failed) << host.text;
  EXPECT_EQ(host.released, 1);
  EXPECT_EQ(host.afterRelease, 0);
  EXPECT_EQ(host.releasedOn, std::this_thread::get_id());
}

TEST(CContexts, OfALaunchThatSucceedsAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  CHost host, pid;
  static std::int32_t started = 0;
  tks_set_pid_callback([](void*, std::int32_t number) { started = number; }, &pid, &CHost::release);
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 1, 0);
  EXPECT_TRUE(drainUntil([&] { return world.isUnconnected(); }));
  EXPECT_GT(started, 0);
  EXPECT_EQ(pid.released, 0);
  tks_set_pid_callback(nullptr, nullptr, nullptr);
  EXPECT_EQ(pid.released, 1);
}

TEST(CContexts, OfALaunchThatTheLauncherRefusesAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  world.orders("--error-code 2003");
  CHost host;
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 0, 1);
  EXPECT_EQ(host.domain, "TKSITKSDomain");
  EXPECT_EQ(host.code, 2003);
}

TEST(CContexts, OfALaunchWhoseLauncherDiesAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  world.orders("--exit-before launch_meeting_ack");
  CHost host;
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 0, 1);
}

TEST(CContexts, OfALaunchWithoutALauncherAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  tks_set_launcher("/nowhere/A.app");
  CHost host;
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 0, 1);
  EXPECT_EQ(host.reason, "notInstalled");
}

TEST(CContexts, OfALaunchFromAnotherThreadAreReleasedOnTheMainThread) {
  TKS_IN_FRESH_PROCESS();
  World world;
  CHost host;
  std::thread([&] { tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release); }).join();
  expectOver(host, 1, 0);
}

TEST(CContexts, OfALaunchWithMissingParametersAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  CHost host;
  tks_launch(nullptr, &CHost::finish, &CHost::fail, &host, &CHost::release);
  ASSERT_TRUE(drainUntil([&] { return host.isOver() && world.isUnconnected(); }, std::chrono::seconds(30)));
  EXPECT_GE(host.failed, 1);
  EXPECT_EQ(host.released, 1);
  EXPECT_EQ(host.afterRelease, 0);
}

TEST(CContexts, OfASecondStartThatIsRefusedAreReleasedAtOnce) {
  TKS_IN_FRESH_PROCESS();
  World world;
  CHost first, second;
  tks_start(&CHost::finish, &CHost::fail, &first, &CHost::release);
  tks_start(&CHost::finish, &CHost::fail, &second, &CHost::release);
  EXPECT_EQ(second.text, "Unexpected app status: 2");
  EXPECT_EQ(second.released, 1);
  expectOver(first, 1, 0);
  EXPECT_EQ(tks_status(), TKS_STATUS_CONNECTED);
  EXPECT_GT(tks_connected_pid(), 0);
}

TEST(CContexts, OfALaunchAfterAnUpdateAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  CHost host;
  tks_launch_after_update(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 1, 0);
}

TEST(CContexts, OfALaunchWhoseLauncherUpdatesItselfAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  world.orders("--update-once");
  CHost host;
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &host, &CHost::release);
  expectOver(host, 1, 0);
}

TEST(CContexts, OfALaunchThatIsGivenUpAreReleased) {
  TKS_IN_FRESH_PROCESS();
  World world;
  world.orders("--mute-after hello_ack");
  CHost given, next;
  tks_launch(kMeeting, &CHost::finish, &CHost::fail, &given, &CHost::release);
  ASSERT_TRUE(drainUntil([] { return tks_status() == TKS_STATUS_LAUNCHING; }));
  tks_launch(R"({"gpcdownloadonly": "1"})", &CHost::finish, &CHost::fail, &next, &CHost::release);
  expectOver(next, 0, 1);
  EXPECT_EQ(next.reason, "busy");
  world.launcher.endAll();
  expectOver(given, 0, 1);
}

}  // namespace
