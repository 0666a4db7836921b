#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include <tksinterface/tksinterface.h>

#include "tests/codesign/Fixtures.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LaunchedMeeting.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessFacts.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SmallStack.h"

// The state of the host's process belongs to the host: each operation, the first time that it is used and afterwards,
// and whether it succeeds or not, leaves all of it as it was.

namespace {

using namespace tks::test;
namespace fs = std::filesystem;

/// What the operations work on.
struct World {
  World() {
    writeFile(folder / "list.plist", "<plist version=\"1.0\"><dict><key>a</key><string>b</string></dict></plist>");
    writeFile(folder / "params", "mtgkey = \"value\"\n");
    makeApp(app, elfProgram());
    signAs(app);
  }

  FakeHome home;
  TemporaryFolder folder;
  const std::string app = folder / "A.app";
  LogRecorder log;
};

struct Operations {
  const char* name;
  std::function<void(World& world)> call;
};

void PrintTo(const Operations& operations, std::ostream* out) { *out << operations.name; }

void writeLog(World&) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "%@ %i", "text", 7);
  TKSILog::removeSensitiveInformation("/Users/jane.doe/x jane@tarvo.example");
  TKSILog::addMask("secret");
}

void workWithValues(World&) {
  TKSError error;
  const TKSValue value = TKSUtilBase::JSONStringToObject(R"({"a":[1,2.5,"x",null]})", &error);
  TKSUtilBase::objectToJSONString(value, &error);
  TKSUtilBase::JSONStringToObject("{", &error);
  TKSUtilBase::isNewerVersion("4.2.9", "4.10");
  TKSUtilBase::getURLQueryDict("https://tarvo.example/?a=b");
  TKSUtilBase::isMatchedToRegex("^a+$;(a+)+$", std::string(40, 'a') + "b");
  TKSUtilBase::checkAndDecodeBase64("e30=");
  TKSUtilBase::encodeURLString("a b");
  TKSUtilBase::isCaseInsensitiveTrue("TRUE", {"true"});
  TKSUtilBase::getClientPackageParam("e30=", {"a"});
}

void readFoldersAndTheSystem(World&) {
  TKSUtilBase::getRealHomeDirectory();
  TKSUtilBase::getStandardTKSPath();
  TKSUtilBase::getTempFolderPath();
  TKSUtilBase::sortedLocalFMVersions();
  TKSUtilBase::getSystemLanguage();
  TKSUtilBase::createUUID();
  TKSUtilBase::isLabDevice();
  TKSUtilBase::getDeviceInfo();
  TKSUtilBase::formatedSize(1234567);
  TKSUtilBase::checkDiskSpaceInfo();
  TKSUtilBase::isAppleSiliconDevice();
  TKSUtilBase::getTKSBuildArchitecture();
}

void readAndWriteLists(World& world) {
  const std::string path = world.folder / "list.plist";
  TKSUtilBase::getValueFormPlist({"a"}, path);
  TKSUtilBase::setPlist({"a", "b"}, 7, path);
  TKSUtilBase::setPlist({"a"}, 7, "/nowhere/at/all.plist");
  TKSUtilBase::setPreference({"TKSTest", "inner"}, "value");
  TKSUtilBase::getPreference({"TKSTest", "inner"});
  TKSUtilBase::getBundleVersion(world.app);
  TKSUtilBase::getParamDictFromPath(world.folder / "params");
}

void workWithFiles(World& world) {
  TKSError error;
  TKSUtilBase::copyFileAtPath(world.app, world.folder / "deep/er/B.app", &error);
  TKSUtilBase::moveFileAtPath(world.folder / "deep/er/B.app", world.folder / "C.app", &error);
  TKSUtilBase::moveFileAtPath(world.app, world.folder / "C.app", &error);
  TKSUtilBase::removeQuarantineAttribute(world.folder / "C.app");
  TKSUtilBase::addReadAndWritePermissionToFile(world.folder / "list.plist");
  TKSUtilBase::removeFileAtPath(world.folder / "C.app", &error);
  TKSUtilBase::cleanUpFolderPath(world.folder / "deep", true);
  TKSUtilBase::getDownloadURLFromFile(world.folder / "list.plist");
  TKSUtilBase::checkLaunchService();
}

void askForTrust(World& world) {
  TKSError error;
  std::string message;
  TKSUtilBase::checkTrust(world.app, &error);
  TKSUtilBase::checkTrustForLaunch(world.app, &error);
  TKSUtilBase::checkTrust("/nowhere", &error);
  KVRXCodeSignUtil::codeSignInfo(TKSURL::fileURLWithPath(world.app), &message);
  TKSUtilBase::isTestModeTKS();
}

void askForHealth(World& world) {
  TKSUtilBase::isBrokenApp(world.app);
  TKSUtilBase::willShowVerifyDialogFor(world.app);
  TKSUtilBase::appHaveBeenUsed(world.app);
  TKSUtilBase::hashFilePropertiesWithAppPath(world.app);
}

void unpackAndInstall(World& world) {
  const std::string zip = world.folder / "launcher.zip";
  const std::string launcher = world.folder / "Tarvo Kovra Start.app";
  fs::rename(world.app, launcher);
  if (!fs::exists("/usr/bin/zip")) GTEST_SKIP() << "there is no zip";
  ASSERT_EQ(ChildProcess::run("/bin/sh", {"-c", R"(cd "$1" && zip -qry launcher.zip *.app)", "sh", world.folder.path()})
                .wait(),
            0);
  TKSUtilBase::unzip(zip, world.folder / "out");
  EXPECT_TRUE(fs::exists(world.folder / "out/Tarvo Kovra Start.app"));
  TKSUtilBase::untar(zip, world.folder / "out");
  TKSUtilBase::installTKSVersion("44.1.0", zip, world.folder / "target/A.app");
  TKSUtilBase::installTKSVersion("44.1.0", "/nowhere.zip", world.folder / "target/A.app");
}

void lookForUpdates(World& world) {
  TKSError error;
  TKSUtilBase::avaliableDeltaUpdates("http://127.0.0.1:1", &error);
  TKSUtilBase::avaliableDeltaUpdates("file://" + world.folder.path(), &error);
}

void startAndEndProcesses(World& world) {
  const FakeLauncher launcher({"--mute", "--wont-die"});
  TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  TKSError error;
  const auto child = TKSUtilBase::launchAppWithExePath(launcher.executable(), {}, &error);
  ASSERT_TRUE(child) << error.description();
  TKSUtilBase::forceTerminateApp(child);
  const auto application = TKSUtilBase::launchApp(launcher.bundle(), {}, &error);
  ASSERT_TRUE(application) << error.description();
  TKSUtilBase::forceTerminateApp(application);
  TKSUtilBase::launchAppWithExePath(world.folder / "nothing", {}, &error);
  TKSUtilBase::launchAppWithExePath("/nowhere", {}, TKSLaunchResultBlock());
  TKSUtilBase::forceTerminateApp(std::nullopt);
  EXPECT_TRUE(drainUntil([] { return children().empty(); }, std::chrono::seconds(30)));
}

void talkOverFiles(World& world) {
  FakeHostProcess process;
  process.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", world.folder / "ipc"}};
  TKSIMessageHandler handler;
  handler.startMessageHost();
  handler.sendHelloMessage([] {}, [](const TKSError&) {});
  drainFor(std::chrono::milliseconds(20));
  fs::remove_all(world.folder / "ipc");
  drainFor(std::chrono::milliseconds(20));
  handler.stopMessageHost();
}

void runTheLoop(World&) {
  tks::platform::mainLoop().post([] { TKSMainLoop::stop(); });
  TKSMainLoop::run();
  TKSMainLoop::drain();
}

void askTheFacade(World& world) {
  TKSInterface facade;
  facade.setTKSAppPath(world.folder / "none/A.app");
  facade.setBackupTKSZipPath("/nowhere.zip", "44.1.0");
  bool told = false;
  facade.launchMeetingWithParam(
      TKSDictionary{{"gpcurlroot", "https://meet.tarvo.example"}}, [] {}, [&](const TKSError&) { told = true; });
  EXPECT_TRUE(drainUntil([&] { return told; }, std::chrono::seconds(30)));
  facade.getRecordedSites();
  facade.stop([] {}, [](const TKSError&) {});
}

const Operations kOperations[] = {
    {"Logging", writeLog},
    {"ValuesAndParsing", workWithValues},
    {"FoldersAndTheSystem", readFoldersAndTheSystem},
    {"ListsAndPreferences", readAndWriteLists},
    {"Files", workWithFiles},
    {"Trust", askForTrust},
    {"Health", askForHealth},
    {"Installing", unpackAndInstall},
    {"Updates", lookForUpdates},
    {"Processes", startAndEndProcesses},
    {"MessagesOverFiles", talkOverFiles},
    {"TheLoop", runTheLoop},
    {"TheFacade", askTheFacade},
};

class ProcessState : public testing::TestWithParam<Operations> {};

INSTANTIATE_TEST_SUITE_P(Of, ProcessState, testing::ValuesIn(kOperations),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(ProcessState, IsAsItWasAfterEveryOperation) {
  TKS_IN_FRESH_PROCESS();
  ::umask(027);
  World world;
  const std::string facts = processFacts();
  const std::string handles = standardHandleFacts();
  GetParam().call(world);
  EXPECT_EQ(processFacts(), facts);
  EXPECT_EQ(standardHandleFacts(), handles);
  EXPECT_EQ(children(), std::set<int>());
}

class SmallStack : public testing::TestWithParam<Operations> {};

INSTANTIATE_TEST_SUITE_P(Of, SmallStack, testing::ValuesIn(kOperations),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(SmallStack, IsEnoughForEveryOperation) {
  if (kSanitized) GTEST_SKIP() << "the sanitizers take more of it than the library";
  TKS_IN_FRESH_PROCESS();
  World world;
  constexpr std::size_t kStack = 64 * 1024;
  onSmallStack([&] { GetParam().call(world); }, kStack);
  EXPECT_EQ(children(), std::set<int>());
}

TEST(ProcessStateOverPipes, IsAsItWasExceptForInputAndOutput) {
  TKS_IN_FRESH_PROCESS();
  const FakeHome home;
  const FakeLauncher launcher;
  TKSUtilBase::setPreference({std::string(TKSUserDefaultsKeyIsLabDevice)}, true);
  const std::string facts = processFacts();
  const std::string errors = standardHandleFacts().substr(standardHandleFacts().find("2: "));
  TKSInterface facade;
  facade.setTKSAppPath(launcher.bundle());
  EXPECT_TRUE(tks::test::launchesAMeeting(facade));
  EXPECT_TRUE(drainUntil([] { return children().empty(); }, std::chrono::seconds(30)));
  EXPECT_EQ(processFacts(), facts);
  EXPECT_EQ(standardHandleFacts().substr(standardHandleFacts().find("2: ")), errors);
}

}  // namespace
