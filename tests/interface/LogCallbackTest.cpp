#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/FreshProcess.h"

// A host's log callback may call anything. What it calls here is every public operation, from the lines of every other:
// none may wait for something that the thread has itself, and none may be made once while it is being made.

namespace {

using tks::test::FakeWorld;

struct Operation {
  const char* name;
  std::function<void()> call;
};

/// A world with nothing in it that takes time, and all that can be called in it.
class LogCallback : public ::testing::Test {
 protected:
  LogCallback() : host_(tksMessageHostTypeInterface) {
    tks_.setTKSAppPath(world_.bundle());
    tks::test::writeFile(file(), "x");
    addFolders();
    addValues();
    addSystem();
    addFiles();
    addLaunching();
    addConversation();
  }
  ~LogCallback() override { TKSILog::sharedInstance().setLogBlock({}); }

  std::string file() const { return world_.folder / "file"; }
  std::string missing() const { return world_.folder / "missing"; }

  void add(const char* name, std::function<void()> call) { operations_.push_back({name, std::move(call)}); }

  void addFolders() {
    add("getTempFolderPath", [] { TKSUtilBase::getTempFolderPath(); });
    add("getStandardTKSPath", [] { TKSUtilBase::getStandardTKSPath(); });
    add("sortedLocalFMFolders", [] { TKSUtilBase::sortedLocalFMFolders(); });
    add("sortedLocalFMVersions", [] { TKSUtilBase::sortedLocalFMVersions(); });
    add("forumPathWithVersion:", [] { TKSUtilBase::forumPathWithVersion("1"); });
    add("getClientBuildVersionOfFMPath:", [this] { TKSUtilBase::getClientBuildVersionOfFMPath(missing()); });
  }
  void addValues() {
    add("getPreference:", [] { TKSUtilBase::getPreference({}); });
    add("setPreference:value:", [] { TKSUtilBase::setPreference({"a", "b"}, 1); });
    add("getValueFormPlist:plistPath:", [this] { TKSUtilBase::getValueFormPlist({"a", "b"}, file()); });
    add("setPlist:value:plistPath:", [this] { TKSUtilBase::setPlist({"a", "b"}, 1, world_.folder / "list"); });
    add("setValueForDict:value:plistDict:", [] { TKSUtilBase::setValueForDict({"a", "b"}, 1, nullptr); });
    add("getBundleVersion:", [this] { TKSUtilBase::getBundleVersion(missing()); });
    add("getClientPackageParam:keyPath:", [] { TKSUtilBase::getClientPackageParam("", {}); });
    add("isNewerVersion:localVersion:", [] { TKSUtilBase::isNewerVersion("1", ""); });
    add("getURLQueryDict:", [] { TKSUtilBase::getURLQueryDict(""); });
    add("getQueryDict:", [] { TKSUtilBase::getQueryDict("flag"); });
    add("getParamDictFromPath:", [this] { TKSUtilBase::getParamDictFromPath(file()); });
    add("checkAndDecodeBase64:", [] { TKSUtilBase::checkAndDecodeBase64("!"); });
    add("canBeTransferedToNumFromString:", [] { TKSUtilBase::canBeTransferedToNumFromString(""); });
    add("isMatchedToRegex:forString:", [] { TKSUtilBase::isMatchedToRegex("(", "a"); });
    add("generateTKSInterfaceDefaultError:", [] { TKSUtilBase::generateTKSInterfaceDefaultError(""); });
    add("JSONStringToObject:error:", [] { TKSUtilBase::JSONStringToObject("{"); });
    add("objectToJSONString:error:", [] { TKSUtilBase::objectToJSONString(TKSValue()); });
    add("removeSensitiveInformation:", [] { TKSILog::removeSensitiveInformation("/users/a/b"); });
  }
  void addSystem() {
    add("getSystemLanguage", [] { TKSUtilBase::getSystemLanguage(); });
    add("createUUID", [] { TKSUtilBase::createUUID(); });
    add("isLabDevice", [] { TKSUtilBase::isLabDevice(); });
    add("getDeviceInfo", [] { TKSUtilBase::getDeviceInfo(); });
    add("formatedSize:", [] { TKSUtilBase::formatedSize(1); });
    add("checkDiskSpaceInfo:", [] { TKSUtilBase::checkDiskSpaceInfo(); });
    add("isAppleSiliconDevice", [] { TKSUtilBase::isAppleSiliconDevice(); });
    add("isTestModeTKS", [] { TKSUtilBase::isTestModeTKS(); });
    add("getTKSBuildArchitecture", [] { TKSUtilBase::getTKSBuildArchitecture(); });
    add("isArmArchitecturalApp:", [] { TKSUtilBase::isArmArchitecturalApp(""); });
  }
  void addFiles() {
    add("removeQuarantineAttribute:", [this] { TKSUtilBase::removeQuarantineAttribute(missing()); });
    add("addReadAndWritePermissionToFile:", [this] { TKSUtilBase::addReadAndWritePermissionToFile(missing()); });
    add("removeFileAtPath:error:", [this] { TKSUtilBase::removeFileAtPath(missing()); });
    add("copyFileAtPath:toPath:error:", [this] { TKSUtilBase::copyFileAtPath(missing(), file()); });
    add("moveFileAtPath:toPath:error:", [this] { TKSUtilBase::moveFileAtPath(missing(), file()); });
    add("cleanUpFolderPath:force:", [this] { TKSUtilBase::cleanUpFolderPath(missing(), false); });
    add("checkTrust:error:", [this] { TKSUtilBase::checkTrust(missing()); });
    add("checkTrustForLaunch:error:", [this] { TKSUtilBase::checkTrustForLaunch(missing()); });
    add("isBrokenApp:", [this] { TKSUtilBase::isBrokenApp(world_.bundle()); });
    add("hashFilePropertiesWithAppPath:", [this] { TKSUtilBase::hashFilePropertiesWithAppPath(world_.bundle()); });
    add("setHashValueOfAppPath:", [this] { TKSUtilBaseHelper::setHashValueOfAppPath(world_.bundle()); });
    add("getHashValueOfAppPath:", [] { TKSUtilBaseHelper::getHashValueOfAppPath(""); });
    add("installTKSVersion:backupZipPath:targetPath:",
        [this] { TKSUtilBase::installTKSVersion("43.1", file(), world_.folder / "T.app"); });
    add("isSafeToInstall:tellingVersion:error:", [this] { TKSUtilBase::isSafeToInstall(missing(), "1"); });
    add("isSupportedTKSVersion:", [] { TKSUtilBase::isSupportedTKSVersion("1"); });
    add("checkLaunchService", [] { TKSUtilBase::checkLaunchService(); });
    add("unzip:to:", [this] { TKSUtilBase::unzip(file(), world_.folder.path()); });
    add("untar:to:", [this] { TKSUtilBase::untar(file(), world_.folder.path()); });
    add("getDownloadURLFromFile:", [this] { TKSUtilBase::getDownloadURLFromFile(file()); });
    add("resetAppAccessWithPkgPath:", [this] { TKSUtilBase::resetAppAccessWithPkgPath(file()); });
    add("avaliableDeltaUpdates:error:", [] { TKSUtilBase::avaliableDeltaUpdates("no-such-scheme://x", nullptr); });
  }
  void addLaunching() {
    add("launchAppWithExePath:args:launchResult:",
        [this] { TKSUtilBase::launchAppWithExePath(missing(), {}, [](const auto&, const auto&) {}); });
    add("launchAppWithExePath:args:error:", [this] {
      TKSUtilBase::launchAppWithExePath(world_.executable(), {"-LaunchMethod", "SDK"}, nullptr);
    });
    add("launchApp:args:error:", [this] { TKSUtilBase::launchApp(missing(), {}, nullptr); });
    add("endLaunchModules", [] { TKSUtilBase::endLaunchModules(); });
    add("forceTerminateApp:", [] { TKSUtilBase::forceTerminateApp(std::nullopt); });
    add("TKSInterface sharedInstance", [] { TKSInterface::sharedInstance(); });
    add("start:errorBlock:", [this] { tks_.start({}, {}); });
    add("stop:errorBlock:", [this] { tks_.stop({}, {}); });
    add("launchMeetingWithParam:finishBlock:errorBlock:",
        [this] { tks_.launchMeetingWithParam(TKSDictionary(), {}, {}); });
    add("setTKSAppPath:", [this] { tks_.setTKSAppPath(world_.bundle()); });
    add("setBackupTKSZipPath:", [this] { tks_.setBackupTKSZipPath(file(), "43.1"); });
    add("isTKSAppSuspending", [this] { tks_.isTKSAppSuspending(); });
    add("connectedTKSAppPid", [this] { tks_.connectedTKSAppPid(); });
    add("getRecordedSites", [this] { tks_.getRecordedSites(); });
    add("setLogBlock:", [] { TKSILog::sharedInstance().setLogBlock(TKSILog::sharedInstance().logBlock()); });
  }
  void addConversation() {
    add("sharedMessengeHost", [] { TKSMessageHost::sharedMessengeHost(); });
    add("sendMessage:", [this] { host_.sendMessage(TKSMessage()); });
    add("parseJSONString:error:", [] { TKSMessage().parseJSONString("{"); });
    add("dumpJSONString:", [] { TKSMessage().dumpJSONString(); });
    add("TKSMainLoop drain", [] {
      if (tks::platform::mainLoop().isMainThread()) TKSMainLoop::drain();
    });
    add("openWithMessengeHandler:", [this] {
      if (tks::platform::mainLoop().isMainThread()) host_.openWithMessengeHandler(nullptr);
    });
    add("close", [this] {
      if (tks::platform::mainLoop().isMainThread()) host_.close();
    });
  }

  /// From now on each first line of a thread's operation calls everything. Lines of what is called call nothing more.
  void callEverythingFromLines() {
    TKSILog::sharedInstance().setLogBlock([this](std::int32_t, const std::string&) {
      static thread_local bool isInside = false;
      if (isInside || left_.fetch_sub(1) <= 0) return;
      isInside = true;
      for (const Operation& operation : operations_) operation.call();
      isInside = false;
      ++rounds_;
    });
  }
  /// How many lines of one operation call everything.
  static constexpr int kLinesOfAnOperation = 12;

  void callFromItsLines(const Operation& outer) {
    left_ = kLinesOfAnOperation;
    outer.call();
    TKSMainLoop::drain();
  }

  /// Whatever the operations have begun in the background is over before the world goes.
  void settle() {
    left_ = 0;
    TKSILog::sharedInstance().setLogBlock({});
    tks_.stop({}, {});
    EXPECT_TRUE(tks::test::drainUntil([this] { return background_.isIdle(); }, std::chrono::seconds(60)));
    TKSMainLoop::drain();  // the results of the last
  }

  FakeWorld world_;
  tks::test::CountedBackgroundWork background_;
  TKSInterface tks_;
  TKSMessageHost host_;
  std::vector<Operation> operations_;
  std::atomic<int> left_ = 0;
  std::atomic<int> rounds_ = 0;
};

TEST_F(LogCallback, MayCallEveryOperationFromEveryOther) {
  TKS_IN_FRESH_PROCESS();
  callEverythingFromLines();
  for (const Operation& outer : operations_) callFromItsLines(outer);
  EXPECT_GT(rounds_, 60);
  settle();
}

/// What is made once per process is made while a line of it calls everything, itself included.
class LogCallbackOfAFirstCall : public LogCallback, public ::testing::WithParamInterface<const char*> {};

TEST_P(LogCallbackOfAFirstCall, MayCallEveryOperation) {
  TKS_IN_FRESH_PROCESS();
  callEverythingFromLines();
  for (const Operation& outer : operations_) {
    if (std::string_view(outer.name) == GetParam()) callFromItsLines(outer);
  }
  EXPECT_GT(rounds_, 0);
  settle();
}

INSTANTIATE_TEST_SUITE_P(Once, LogCallbackOfAFirstCall,
                         ::testing::Values("isAppleSiliconDevice", "getTKSBuildArchitecture",
                                           "TKSInterface sharedInstance", "sharedMessengeHost"));

/// A host guards its own things with a mutex in its callback and around its calls.
TEST_F(LogCallback, MayWaitForAnotherThreadThatCallsTheSame) {
  TKS_IN_FRESH_PROCESS();
  std::atomic<int> asked = 0;
  TKSILog::sharedInstance().setLogBlock([&](std::int32_t, const std::string&) {
    if (asked++ > 0) return;
    std::thread([] {
      TKSUtilBase::isAppleSiliconDevice();
      TKSUtilBase::getTKSBuildArchitecture();
      TKSInterface::sharedInstance();
      TKSMessageHost::sharedMessengeHost();
    }).join();
  });
  TKSUtilBase::isAppleSiliconDevice();
  EXPECT_GT(asked, 0);
}

/// What only several threads make at once is one thing all the same.
TEST_F(LogCallback, OfSeveralThreadsThatMakeTheSharedHostAtOnceSeesOneBeingMade) {
  TKS_IN_FRESH_PROCESS();
  std::atomic<int> made = 0;
  TKSILog::sharedInstance().setLogBlock([&](std::int32_t, const std::string& text) {
    if (text.starts_with("Got bundleIdentifier:")) ++made;
  });
  std::vector<std::thread> threads;
  std::mutex mutex;
  std::vector<TKSMessageHost*> hosts;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      TKSMessageHost& host = TKSMessageHost::sharedMessengeHost();
      const std::scoped_lock lock(mutex);
      hosts.push_back(&host);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(hosts, ::testing::Each(hosts.front()));
  EXPECT_EQ(made, 1);
}

}  // namespace
