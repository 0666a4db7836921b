#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <tksinterface/tksinterface.h>

#include "platform/platform.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LaunchedMeeting.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"
#include "tests/support/RefusedSystemCalls.h"

// The library on a kernel that is older than some of the calls that it would like to use, and under a filter that
// forbids them: everything works all the same.

namespace {

using namespace tks::test;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

struct Refusal {
  const char* name;
  int number;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

constexpr Refusal kRefusals[] = {{"NoSuchCall", ENOSYS}, {"NotPermitted", EPERM}};

class OldKernel : public testing::TestWithParam<Refusal> {
 protected:
  static bool refuseNewerCalls() {
    return refuseSystemCalls({SYS_pidfd_open, SYS_pidfd_send_signal, SYS_close_range, SYS_renameat2, SYS_inotify_init1,
                              SYS_inotify_init, SYS_eventfd2, SYS_timerfd_create},
                             GetParam().number);
  }
};

INSTANTIATE_TEST_SUITE_P(Says, OldKernel, testing::ValuesIn(kRefusals),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(OldKernel, AMeetingIsLaunchedOverPipes) {
  TKS_IN_FRESH_PROCESS();
  if (!refuseNewerCalls()) GTEST_SKIP() << "no filters here";
  const FakeHome home;
  const FakeLauncher launcher({"--dump-descriptors", "descriptors"});
  TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  TKSInterface facade;
  facade.setTKSAppPath(launcher.bundle());
  ASSERT_TRUE(tks::test::launchesAMeeting(facade));
  EXPECT_TRUE(drainUntil([&] { return !facade.isTKSAppProcessing(); }, std::chrono::seconds(30)));
  EXPECT_TRUE(drainUntil([] { return children().empty(); }, std::chrono::seconds(30)));
  const std::string descriptors = launcher.report("descriptors");
  EXPECT_EQ(std::count(descriptors.begin(), descriptors.end(), '\n'), 3) << descriptors;
}

TEST_P(OldKernel, TheEndOfALauncherIsNoticed) {
  TKS_IN_FRESH_PROCESS();
  if (!refuseNewerCalls()) GTEST_SKIP() << "no filters here";
  const FakeHome home;
  const FakeLauncher launcher({"--mute-after", "hello_ack", "--fork-holder"});
  TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  TKSInterface facade;
  facade.setTKSAppPath(launcher.bundle());
  std::vector<std::string> errors;
  std::int32_t pid = 0;
  facade.launchedTKSPidBlock([&](std::int32_t number) { pid = number; });
  facade.launchMeetingWithParam(TKSDictionary(), nullptr,
                                [&](const TKSError& error) { errors.push_back(error.localizedDescription); });
  ASSERT_TRUE(drainUntil([&] { return facade.isTKSAppProcessing(); }, std::chrono::seconds(30)));
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  ASSERT_TRUE(drainUntil([&] { return !errors.empty(); }, std::chrono::seconds(30)));
  EXPECT_THAT(errors, ElementsAre("Launcher process ended while message host is still open. (signal: 9)"));
}

TEST_P(OldKernel, MessagesGoThroughFiles) {
  TKS_IN_FRESH_PROCESS();
  if (!refuseNewerCalls()) GTEST_SKIP() << "no filters here";
  const TemporaryFolder folder;
  FakeHostProcess process;
  process.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", folder / "ipc"}};
  RecordingDelegate here;
  RecordingDelegate there;
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.openWithMessengeHandler(&here);
  TKSMessageHost launcher(tksMessageHostTypeTKS);
  launcher.openWithMessengeHandler(&there);
  TKSMessage message;
  message.messageType = "hello";
  message.message = "hello";
  host.sendMessage(message);
  ASSERT_TRUE(drainUntil([&] { return there.messages.size() == 1; }));
  launcher.sendMessage(message);
  ASSERT_TRUE(drainUntil([&] { return here.messages.size() == 1; }));
  fs::remove(folder / "ipc/ipcFile_TKS2Interface");
  EXPECT_TRUE(drainUntil([&] { return !here.failures.empty(); }));
}

TEST_P(OldKernel, FilesAndBundlesAreMovedAndExchanged) {
  TKS_IN_FRESH_PROCESS();
  if (!refuseNewerCalls()) GTEST_SKIP() << "no filters here";
  const TemporaryFolder folder;
  writeFile(folder / "A.app/Contents/file", "a");
  writeFile(folder / "B.app/Contents/file", "b");
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::moveFileAtPath(folder / "A.app", folder / "C.app", &error)) << error.description();
  EXPECT_FALSE(TKSUtilBase::moveFileAtPath(folder / "B.app", folder / "C.app", &error)) << "nothing is moved over it";
  EXPECT_TRUE(tks::platform::files().exchange(folder / "B.app", folder / "C.app", &error)) << error.description();
  EXPECT_EQ(contentOf(folder / "B.app/Contents/file"), "a");
  EXPECT_EQ(contentOf(folder / "C.app/Contents/file"), "b");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2);
  EXPECT_TRUE(TKSUtilBase::setPlist({"a"}, 1, folder / "list.plist"));
}

TEST_P(OldKernel, ToolsRun) {
  TKS_IN_FRESH_PROCESS();
  if (!refuseNewerCalls()) GTEST_SKIP() << "no filters here";
  tks::platform::ToolRequest request;
  request.tool = tks::platform::Tool::shasum;
  const tks::platform::ToolResult result = tks::platform::systemTools().run(request);
  EXPECT_TRUE(result.started) << result.error.description();
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(children(), IsEmpty());
}

// A volume without extended attributes.

class NoAttributes : public testing::Test {
 protected:
  static bool refuseAttributes(int number) {
    return refuseSystemCalls(
        {SYS_listxattr, SYS_llistxattr, SYS_flistxattr, SYS_getxattr, SYS_lgetxattr, SYS_fgetxattr, SYS_setxattr,
         SYS_lsetxattr, SYS_fsetxattr, SYS_removexattr, SYS_lremovexattr, SYS_fremovexattr},
        number);
  }
};

TEST_F(NoAttributes, AreNoReasonNotToGoOn) {
  TKS_IN_FRESH_PROCESS();
  const TemporaryFolder folder;
  writeFile(folder / "A.app/Contents/file", "x");
  ::setxattr((folder / "A.app").c_str(), "user.com.apple.quarantine", "x", 1, 0);
  if (!refuseAttributes(ENOTSUP)) GTEST_SKIP() << "no filters here";
  const LogRecorder log;
  TKSUtilBase::removeQuarantineAttribute(folder / "A.app");
  EXPECT_THAT(log.lines(), IsEmpty()) << "there is no mark, and that is no error";
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::copyFileAtPath(folder / "A.app", folder / "B.app", &error)) << error.description();
  EXPECT_EQ(contentOf(folder / "B.app/Contents/file"), "x");
  EXPECT_TRUE(TKSUtilBase::getDownloadURLFromFile(folder / "A.app").isNothing());
  EXPECT_FALSE(TKSUtilBase::appHaveBeenUsed(folder / "A.app"));
}

TEST_F(NoAttributes, ThatCanBeReadAreAnErrorLineWithTheReason) {
  TKS_IN_FRESH_PROCESS();
  const TemporaryFolder folder;
  fs::create_directory(folder / "A.app");
  if (!refuseAttributes(EIO)) GTEST_SKIP() << "no filters here";
  const LogRecorder log;
  TKSUtilBase::removeQuarantineAttribute(folder / "A.app");
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{8, "Fail to get quarantine property of " + (folder / "A.app") +
                                         ". Error: Error Domain=NSPOSIXErrorDomain Code=5 \"read the attributes of \"" +
                                         (folder / "A.app") + "\": Input/output error\"."}));
}

}  // namespace
