#include "messaging/MessageFiles.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "messaging/Transport.h"
#include "platform/platform.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// The files of a conversation over files: whose they are, and what becomes of them.

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tks::messaging::Transport;
using tks::test::ChildProcess;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::LogRecorder;
using tks::test::RecordingDelegate;
using tks::test::writeFile;

namespace fs = std::filesystem;

constexpr const char* kStamp = "/ipcFile_0315142233045";

TKSMessage message(std::string_view type) {
  TKSMessage made;
  made.messageType = type;
  made.message = type;
  return made;
}

class MessageFilesTest : public testing::Test {
 protected:
  MessageFilesTest() { process_.bundleIdentifier = "Tarvo-Systems.Ember"; }

  std::string conversations() const { return folder_ / "Tarvo-Systems.Ember"; }
  /// An interface's host that has opened a conversation of its own.
  std::string open(TKSMessageHost& host, const std::string& name = kStamp) {
    std::string folder = Transport::of(host).useNewFolder(conversations() + name);
    host.openWithMessengeHandler(&delegate_);
    return folder;
  }

  tks::test::FakeHome home_;
  tks::test::FakeHostProcess process_;
  tks::test::TemporaryFolder folder_;
  RecordingDelegate delegate_;
  LogRecorder log_;
};

TEST_F(MessageFilesTest, HarmedFileIsToldOnceForEachOpening) {
  const std::string ipc = folder_ / "ipc";
  const std::string fromLauncher = ipc + "/ipcFile_TKS2Interface";
  const std::function<void()> faults[] = {
      [&] { fs::resize_file(fromLauncher, 3); },
      [&] { fs::remove(fromLauncher); },
      [&] {
        writeFile(folder_ / "other", frame("{}"));
        fs::rename(folder_ / "other", fromLauncher);
      },
  };
  TKSMessageHost host(tksMessageHostTypeInterface);
  for (const auto& fault : faults) {
    delegate_.failures.clear();
    delegate_.messages.clear();
    host.setIPCFileFolderPath(ipc);
    host.openWithMessengeHandler(&delegate_);
    writeFile(fromLauncher, frame(R"({"message_type":"a","message":""})"));
    ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 1; }));
    fault();
    ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
    drainFor(60ms);
    EXPECT_THAT(delegate_.failures, ElementsAre(StartsWith("Read message failed: Error Domain=")));
    host.close();
  }
}

TEST_F(MessageFilesTest, RemovalAfterTheFarewellIsTheEndAndNoFailure) {
  TKSMessageHost interface(tksMessageHostTypeInterface);
  const std::string folder = open(interface);
  RecordingDelegate launchers;
  TKSMessageHost launcher(tksMessageHostTypeTKS);
  launcher.setIPCFileFolderPath(folder);
  launcher.openWithMessengeHandler(&launchers);
  launcher.sendMessage(message("disconnect_ack"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 1; }));
  fs::remove_all(folder);
  drainFor(100ms);
  EXPECT_THAT(launchers.failures, IsEmpty()) << "the launcher has said farewell";
  EXPECT_THAT(delegate_.failures, IsEmpty()) << "the interface has heard it";
  launcher.close();
  interface.close();

  // The farewell belongs to its opening.
  delegate_.messages.clear();
  open(interface, "/ipcFile_0315142233046");
  fs::remove_all(conversations());
  ASSERT_TRUE(drainUntil([&] { return delegate_.failures.size() == 1; }));
}

TEST_F(MessageFilesTest, FilesThatCannotBeMadeAreTheOpeningsFailureWithoutOtherLines) {
  writeFile(conversations(), "a file in the way");
  TKSMessageHost host(tksMessageHostTypeInterface);
  log_.clear();
  EXPECT_EQ(open(host), conversations() + kStamp);
  EXPECT_THAT(log_.texts(8),
              ElementsAre(StartsWith("Failed to create directory:"), "Create ipcFile_TKS2Interface failed!",
                          "Create ipcFile_Interface2TKS failed!"));
  const auto failure = Transport::of(host).openingFailure();
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->localizedDescription, HasSubstr("Not a directory"));
  host.close();

  fs::remove(conversations());
  open(host);
  EXPECT_FALSE(Transport::of(host).openingFailure());
  host.close();
  host.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(Transport::of(host).openingFailure()) << "no folder was named";
}

// Whose a folder is.

TEST_F(MessageFilesTest, FolderOfTheSameMillisecondCountsOneMore) {
  TKSMessageHost first(tksMessageHostTypeInterface);
  TKSMessageHost second(tksMessageHostTypeInterface);
  TKSMessageHost third(tksMessageHostTypeInterface);
  log_.clear();
  EXPECT_EQ(open(first), conversations() + "/ipcFile_0315142233045");
  EXPECT_EQ(open(second), conversations() + "/ipcFile_0315142233046");
  EXPECT_EQ(open(third, "/ipcFile_0315142233999"), conversations() + "/ipcFile_0315142233999");
  TKSMessageHost fourth(tksMessageHostTypeInterface);
  EXPECT_EQ(open(fourth, "/ipcFile_0315142233999"), conversations() + "/ipcFile_0315142234000");
  EXPECT_THAT(log_.texts(8), IsEmpty());
  EXPECT_TRUE(log_.has(2, "Create directory:" + conversations() + "/ipcFile_0315142233046 successfully!"));
  for (TKSMessageHost* host : {&first, &second, &third, &fourth}) host->close();
  EXPECT_TRUE(fs::is_empty(conversations()));
}

/// Opens a conversation with the time stamp of all others, says where and waits until it may go.
int hostOfTheSameMillisecond(const tks::test::Arguments& arguments) {
  tks::test::FakeHostProcess process;
  process.bundleIdentifier = "Tarvo-Systems.Ember";
  RecordingDelegate delegate;
  TKSMessageHost host(tksMessageHostTypeInterface);
  const std::string conversations = arguments.at(0);
  while (!fs::exists(conversations + ".begin")) std::this_thread::sleep_for(1ms);
  const std::string folder = Transport::of(host).useNewFolder(conversations + kStamp);
  host.openWithMessengeHandler(&delegate);
  host.sendMessage(message("hello"));
  std::cout << folder << std::flush;
  writeFile(conversations + ".open/" + fs::path(folder).filename().string(), "");
  while (!fs::exists(conversations + ".end")) std::this_thread::sleep_for(1ms);
  if (arguments.at(1) == "close") host.close();
  if (arguments.at(1) == "die") ::raise(SIGKILL);
  return 0;
}
const tks::test::ChildRole kHostOfTheSameMillisecond("host-of-the-same-millisecond", hostOfTheSameMillisecond);

TEST_F(MessageFilesTest, HostsThatStartAtOnceNeverShareAConversation) {
  constexpr std::size_t kHosts = 20;
  std::vector<ChildProcess> hosts;
  for (std::size_t i = 0; i < kHosts; ++i) {
    hosts.push_back(ChildProcess::inRole("host-of-the-same-millisecond", {conversations(), "close"}));
  }
  writeFile(conversations() + ".begin", "");
  ASSERT_TRUE(tks::test::waitUntil(
      [&] {
        std::error_code none;
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(conversations() + ".open", none), {})) ==
               kHosts;
      },
      30s));
  writeFile(conversations() + ".end", "");
  std::set<std::string> folders;
  for (ChildProcess& host : hosts) {
    EXPECT_EQ(host.wait(), 0);
    folders.insert(host.output());
  }
  EXPECT_EQ(folders.size(), kHosts);
  EXPECT_TRUE(fs::is_empty(conversations()));
}

TEST_F(MessageFilesTest, FolderOfAHostThatDiedIsRemovedByTheNextOpeningAndALivingOnesNever) {
  // One that lives, in another process.
  writeFile(conversations() + ".begin", "");
  ChildProcess living = ChildProcess::inRole("host-of-the-same-millisecond", {conversations(), "close"});
  const std::string livingFolder = conversations() + kStamp;
  ASSERT_TRUE(tks::test::waitUntil([&] { return fs::exists(conversations() + ".open/ipcFile_0315142233045"); }, 30s));
  // One that dies.
  const std::string other = folder_ / "other";
  fs::create_directories(other + ".begin");
  fs::create_directories(other + ".end");
  ASSERT_EQ(ChildProcess::inRole("host-of-the-same-millisecond", {other, "die"}).wait(), 128 + SIGKILL);
  const std::string dead = conversations() + "/ipcFile_0101000000000";
  fs::rename(other + kStamp, dead);
  ASSERT_EQ(tks::test::payloads(tks::test::contentOf(dead + "/ipcFile_Interface2TKS")).size(), 1u);
  // What no conversation made.
  writeFile(conversations() + "/ipcFile_notes/ipcFile_Interface2TKS", "");
  writeFile(conversations() + "/ipcFile_0101000000001/ipcFile_Interface2TKS", "");
  writeFile(conversations() + "/ipcFile_0101000000001/letter", "kept");

  TKSMessageHost host(tksMessageHostTypeInterface);
  log_.clear();
  const std::string own = open(host, "/ipcFile_0401000000000");
  EXPECT_FALSE(fs::exists(dead));
  EXPECT_TRUE(log_.has(2, "Removed the message folder of a host that is gone: " + dead));
  EXPECT_TRUE(fs::exists(livingFolder + "/ipcFile_Interface2TKS"));
  EXPECT_TRUE(fs::exists(own + "/ipcFile_Interface2TKS"));
  EXPECT_TRUE(fs::exists(conversations() + "/ipcFile_notes/ipcFile_Interface2TKS"));
  EXPECT_TRUE(fs::exists(conversations() + "/ipcFile_0101000000001/letter"));
  EXPECT_THAT(log_.texts(4), ElementsAre(StartsWith("The message folder of a host that is gone stays: ")));
  EXPECT_THAT(log_.texts(8), IsEmpty());

  // Another conversation of this very process is a living one as well.
  TKSMessageHost second(tksMessageHostTypeInterface);
  const std::string next = open(second, "/ipcFile_0401000000001");
  EXPECT_TRUE(fs::exists(own + "/ipcFile_Interface2TKS"));
  second.close();
  host.close();
  writeFile(conversations() + ".end", "");
  EXPECT_EQ(living.wait(), 0);
}

TEST_F(MessageFilesTest, HostThatLooksThroughTheFoldersIsWaitedForAndNotForLong) {
  fs::create_directories(conversations());
  std::unique_ptr<tks::platform::FileLock> busy;
  std::thread([&] { busy = tks::platform::files().lock(conversations(), 0ms, nullptr); }).join();
  ASSERT_TRUE(busy);
  const std::string leftBehind = conversations() + "/ipcFile_0101000000000";
  fs::create_directories(leftBehind);
  TKSMessageHost host(tksMessageHostTypeInterface);
  open(host);
  EXPECT_FALSE(Transport::of(host).openingFailure());
  EXPECT_THAT(log_.texts(4),
              ElementsAre("Wait for another host that looks through message folders: " + conversations()));
  EXPECT_TRUE(fs::exists(leftBehind)) << "that is left to the one who holds the lock";
  host.close();
}

TEST_F(MessageFilesTest, EmptyFolderThatWasLeftBehindIsRemovedToo) {
  fs::create_directories(conversations() + "/ipcFile_0101000000000");
  TKSMessageHost host(tksMessageHostTypeInterface);
  open(host);
  EXPECT_FALSE(fs::exists(conversations() + "/ipcFile_0101000000000"));
  host.close();
}

/// Keeps nobody out.
class NoLock final : public tks::platform::FileLock {
 public:
  bool isEffective() const override { return false; }
};

/// A volume that has no locks: everybody gets one.
class FilesWithoutLocks final : public tks::test::ForwardingFiles {
 public:
  std::unique_ptr<tks::platform::FileLock> lock(std::string_view, std::chrono::milliseconds, TKSError*) override {
    return std::make_unique<NoLock>();
  }
};

TEST_F(MessageFilesTest, NothingIsTakenForLeftBehindWhereThereAreNoLocks) {
  const std::string other = conversations() + "/ipcFile_0101000000000";
  writeFile(other + "/ipcFile_Interface2TKS", "");
  const FilesWithoutLocks files;
  TKSMessageHost host(tksMessageHostTypeInterface);
  open(host);
  EXPECT_TRUE(fs::exists(other + "/ipcFile_Interface2TKS"));
  host.close();
}

}  // namespace
