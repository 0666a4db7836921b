#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "tests/c/CHost.h"
#include "tests/reach/SignedLauncher.h"
#include "tests/support/FakeHome.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"

// What the functions of the C interface do with bad input, on the wrong thread and out of order.

namespace {

using namespace tks::test;

struct CArguments : testing::Test {
  FakeHome home;
  LogRecorder log;
  CHost host;
};

TEST_F(CArguments, LaunchParametersThatAreNoJsonAreRefused) {
  for (const char* bad : {"", "{", "no JSON", "{\"a\": \"\xff\"}", "{\"a\": 1} x"}) {
    CHost told;
    tks_launch(bad, &CHost::finish, &CHost::fail, &told, &CHost::release);
    EXPECT_EQ(told.failed, 1) << bad;
    EXPECT_FALSE(told.domain.empty()) << bad;
    EXPECT_FALSE(told.text.empty()) << bad;
    EXPECT_EQ(told.finished, 0) << bad;
    EXPECT_EQ(told.released, 1) << bad;
    EXPECT_EQ(told.afterRelease, 0) << bad;
  }
  EXPECT_EQ(tks_status(), TKS_STATUS_UNCONNECTED);
}

TEST_F(CArguments, LaunchParametersThatAreNoObjectAreRefused) {
  tks_launch_directly("[1, 2]", &CHost::finish, &CHost::fail, &host, &CHost::release);
  EXPECT_EQ(host.text, "Launch parameters are no JSON object.");
  EXPECT_EQ(host.reason, "invalidArgument");
  EXPECT_EQ(host.released, 1);
}

TEST_F(CArguments, ARefusalOnAnotherThreadComesOnTheMainThread) {
  std::thread([&] { tks_launch("{", &CHost::finish, &CHost::fail, &host, &CHost::release); }).join();
  EXPECT_EQ(host.failed, 0);
  ASSERT_TRUE(drainUntil([&] { return host.isOver(); }));
  EXPECT_EQ(host.failed, 1);
  EXPECT_EQ(host.releasedOn, std::this_thread::get_id());
}

TEST_F(CArguments, WithoutCallbacksAnythingMayFail) {
  tks_launch("{", nullptr, nullptr, nullptr, nullptr);
  tks_launch("{", nullptr, nullptr, &host, &CHost::release);
  EXPECT_EQ(host.released, 1);
  EXPECT_FALSE(tks_check_trust(nullptr, nullptr, nullptr));
  EXPECT_EQ(tks_delta_updates(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(CArguments, AMissingPathIsAnError) {
  EXPECT_FALSE(tks_check_trust(nullptr, &CHost::fail, &host));
  EXPECT_EQ(host.text, "Argument is missing: path");
  EXPECT_EQ(host.reason, "invalidArgument");
  EXPECT_FALSE(tks_check_trust_for_launch(nullptr, &CHost::fail, &host));
  EXPECT_EQ(tks_delta_updates(nullptr, &CHost::fail, &host), nullptr);
  EXPECT_EQ(host.text, "Argument is missing: base_url");
  EXPECT_EQ(host.failed, 3);
}

TEST_F(CArguments, APathWithoutAnythingIsNotTrusted) {
  EXPECT_FALSE(tks_check_trust((home / "nothing.app").c_str(), &CHost::fail, &host));
  EXPECT_EQ(host.failed, 1);
  EXPECT_EQ(host.domain, "com.tarvo.kovra.codesign");
}

TEST_F(CArguments, WhatTheMakerSignedIsTrusted) {
  const SignedLauncher launcher;
  EXPECT_TRUE(tks_check_trust(launcher.bundle().c_str(), &CHost::fail, &host)) << host.text;
  EXPECT_TRUE(tks_check_trust_for_launch(launcher.bundle().c_str(), &CHost::fail, &host)) << host.text;
}

TEST_F(CArguments, NothingIsInstalledWithoutVersionAndArchive) {
  EXPECT_FALSE(tks_install(nullptr, nullptr, nullptr));
  EXPECT_FALSE(tks_install("5.0", (home / "nothing.zip").c_str(), (home / "A.app").c_str()));
  EXPECT_FALSE(std::filesystem::exists(home / "A.app"));
}

TEST_F(CArguments, AServerThatIsNotThereIsAnError) {
  EXPECT_EQ(tks_delta_updates("http://127.0.0.1:1", &CHost::fail, &host), nullptr);
  EXPECT_EQ(host.failed, 1);
  CHost unasked;
  EXPECT_EQ(tks_delta_updates("", &CHost::fail, &unasked), nullptr);
  EXPECT_EQ(unasked.failed, 0);
}

TEST_F(CArguments, WhatBelongsToTheMainThreadSaysSoElsewhere) {
  std::thread([&] {
    EXPECT_EQ(tks_launcher(), nullptr);
    EXPECT_EQ(tks_recorded_sites(), nullptr);
  }).join();
  EXPECT_TRUE(log.has(8, "tks_launcher is for the main thread only."));
  EXPECT_TRUE(log.has(8, "tks_recorded_sites is for the main thread only."));
}

TEST_F(CArguments, SettingUpElsewhereIsDoneOnTheMainThreadLater) {
  const std::string before = taken(tks_launcher());
  std::thread([&] { tks_set_launcher("/nowhere/B.app"); }).join();
  EXPECT_TRUE(drainUntil([&] { return taken(tks_launcher()) == "/nowhere/B.app"; }));
  tks_set_launcher(before.c_str());
}

TEST_F(CArguments, NoSitesAreRecordedInAnEmptyHome) { EXPECT_EQ(tks_recorded_sites(), nullptr); }

TEST_F(CArguments, RecordedSitesAreAJsonObject) {
  writeFile(home / "Library/Application Support/Kovra Meetings/AppData/ClientVersions.plist",
            "<plist version=\"1.0\"><dict><key>Versions</key><dict><key>44.1</key><array><dict>"
            "<key>SiteDomain</key><string>a.example</string><key>LastLaunchTime</key><real>2.5</real></dict></array>"
            "</dict></dict></plist>");
  EXPECT_EQ(taken(tks_recorded_sites()), "{\"a.example\":2.5}");
}

TEST_F(CArguments, StoppingWhatNeverBeganIsDone) {
  tks_stop(&CHost::finish, &CHost::fail, &host, &CHost::release);
  EXPECT_EQ(host.finished, 1);
  EXPECT_EQ(host.released, 1);
  tks_clean_up_file_channel();
  EXPECT_EQ(tks_status(), TKS_STATUS_UNCONNECTED);
  EXPECT_EQ(tks_connected_pid(), 0);
}

TEST_F(CArguments, ALoopThatIsStoppedFirstReturnsAtOnce) {
  tks_main_loop_stop();
  tks_main_loop_run();
  tks_main_loop_drain();
  pollfd watched{.fd = tks_main_loop_descriptor(), .events = POLLIN, .revents = 0};
  EXPECT_GE(::poll(&watched, 1, 0), 0);
  EXPECT_GE(watched.fd, 0);
}

TEST_F(CArguments, WhatACallbackThrowsEndsInALine) {
  const auto thrower = [](void*, const tks_error*) { throw std::runtime_error("of the host"); };
  EXPECT_FALSE(tks_check_trust(nullptr, thrower, nullptr));
  EXPECT_TRUE(log.has(8, "Callback 'failed' threw an exception: of the host"));
  tks_launch("{", nullptr, thrower, &host, &CHost::release);
  EXPECT_TRUE(log.has(8, "Callback 'errorBlock' threw an exception: of the host"));
  EXPECT_EQ(host.released, 1);
  tks_launch("{", nullptr, nullptr, nullptr, [](void*) { throw std::runtime_error("of the release"); });
  EXPECT_TRUE(log.has(8, "Callback 'release' threw an exception: of the release"));
}

TEST_F(CArguments, TheOriginalHandlesAreNamed) {
  EXPECT_GT(tks_original_output(), 2);
  EXPECT_EQ(tks_original_output(), tks_original_output());
  tks_original_input();
}

}  // namespace
