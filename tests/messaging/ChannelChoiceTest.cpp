#include <gmock/gmock.h>

#include <barrier>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ScopedValue.h"
#include "tests/support/TemporaryFolder.h"

// Which channel a message host talks over, and where its files lie.

namespace {

using namespace std::string_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::FakeHostProcess;
using tks::test::LogLine;
using tks::test::LogRecorder;

class ChoosingTheChannelTest : public testing::Test {
 protected:
  FakeHostProcess process_;
  LogRecorder log_;
};

TEST_F(ChoosingTheChannelTest, ProcessOutsideOfABundleUsesThePipe) {
  const TKSMessageHost host(tksMessageHostTypeInterface);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_FALSE(host.isOpened);
  EXPECT_EQ(host.type, 0u);
  EXPECT_EQ(host.pendingDataSize, 0u);
  EXPECT_THAT(host.receivedData, IsEmpty());
  EXPECT_THAT(host.tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{2, "Got bundleIdentifier:(null)"},
                  LogLine{2, "TKSInterface/Extension communicates with TKS by PIPE with standrad input and output."}));
}

TEST_F(ChoosingTheChannelTest, TeamMessagingHostsUseFilesAndReadNoArguments) {
  process_.arguments = {{"Communicate", "Pipe"}, {"TempIPCFilePath", "/tmp/elsewhere"}};
  for (const char* identifier : {"Tarvo-Systems.Ember", "Tarvo-Systems.Ember.Debug"}) {
    process_.bundleIdentifier = identifier;
    log_.clear();
    const TKSMessageHost host(tksMessageHostTypeInterface);
    EXPECT_TRUE(host.ipcByFile);
    EXPECT_THAT(host.tempIPCFileFullPathFromTKS2Interface, IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Got bundleIdentifier:"s + identifier},
                                          LogLine{2, "TKSInterface communicates with TKS by FILE."}));
  }
}

TEST_F(ChoosingTheChannelTest, IdentifiersAreComparedWhole) {
  process_.bundleIdentifier = "Tarvo-Systems.Ember.Beta";
  EXPECT_FALSE(TKSMessageHost(tksMessageHostTypeInterface).ipcByFile);
  process_.bundleIdentifier = "tarvo-systems.ember";
  EXPECT_FALSE(TKSMessageHost(tksMessageHostTypeInterface).ipcByFile);
}

TEST_F(ChoosingTheChannelTest, ArgumentsChooseFilesAndNameTheFolder) {
  process_.bundleIdentifier = "com.tarvo.kovra.Tarvo-Kovra-Start";
  process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", "/Users/jane/tmp/ipc/"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_TRUE(host.ipcByFile);
  EXPECT_EQ(host.type, 1u);
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/Users/jane/tmp/ipc/ipcFile_TKS2Interface");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "/Users/jane/tmp/ipc/ipcFile_Interface2TKS");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Got bundleIdentifier:com.tarvo.kovra.Tarvo-Kovra-Start"},
                          LogLine{2, "Got ipc way from launch args: '-Communicate File'"},
                          LogLine{2, "Got ipcFileFolderPath from launch args: '-TempIPCFilePath /Users/****/tmp/ipc/'"},
                          LogLine{2, "TKSInterface communicates with TKS by FILE."}));
}

TEST_F(ChoosingTheChannelTest, FilesWithoutAFolderAreKeptWithALine) {
  process_.arguments = {{"Communicate", "File"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_TRUE(host.ipcByFile);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Got bundleIdentifier:(null)"},
                                        LogLine{2, "Got ipc way from launch args: '-Communicate File'"},
                                        LogLine{8, "ipcFileFolderPath is nil or empty while ipc by file!"},
                                        LogLine{2, "TKSInterface communicates with TKS by FILE."}));
}

TEST_F(ChoosingTheChannelTest, AnyOtherWayMeansThePipeAndTheFolderIsNotedAllTheSame) {
  process_.arguments = {{"Communicate", "file"}, {"TempIPCFilePath", "/tmp/ipc"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/tmp/ipc/ipcFile_TKS2Interface");
  EXPECT_TRUE(log_.has(2, "Got ipc way from launch args: '-Communicate file'"));
  EXPECT_TRUE(log_.has(2, "Got ipcFileFolderPath from launch args: '-TempIPCFilePath /tmp/ipc'"));
}

TEST_F(ChoosingTheChannelTest, EmptyArgumentsAreLikeMissingOnes) {
  process_.arguments = {{"Communicate", ""}, {"TempIPCFilePath", ""}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_THAT(log_.lines().size(), 2u);
}

TEST_F(ChoosingTheChannelTest, FolderGivesBothPaths) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath("/a/b");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/a/b/ipcFile_TKS2Interface");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "/a/b/ipcFile_Interface2TKS");
  host.setIPCFileFolderPath("/");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/ipcFile_TKS2Interface");
  host.setIPCFileFolderPath("");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "");
}

TEST_F(ChoosingTheChannelTest, SharedHostIsOneOfTheLaunchersType) {
  EXPECT_EQ(&TKSMessageHost::sharedMessengeHost(), &TKSMessageHost::sharedMessengeHost());
  EXPECT_EQ(TKSMessageHost::sharedMessengeHost().type, 1u);
}

TEST(SharedHost, IsMadeOnceHoweverManyThreadsAskForItAtOnce) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  constexpr std::size_t kThreads = 16;
  std::barrier begin(kThreads);
  std::vector<TKSMessageHost*> hosts(kThreads);
  std::vector<std::thread> threads;
  for (TKSMessageHost*& host : hosts) {
    threads.emplace_back([&] {
      begin.arrive_and_wait();
      host = &TKSMessageHost::sharedMessengeHost();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(hosts, testing::Each(hosts.front()));
  EXPECT_EQ(hosts.front()->type, 1u);
  EXPECT_EQ(log.texts(2).size(), 2u) << "the lines of one construction";
}

}  // namespace
