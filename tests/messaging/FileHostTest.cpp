#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ProcessState.h"
#include "tests/support/ScopedValue.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

// A message host that talks over files.

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using tks::test::contentOf;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FakeHome;
using tks::test::FakeHostProcess;
using tks::test::frame;
using tks::test::header;
using tks::test::kHello;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::messageOf;
using tks::test::RecordingDelegate;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

class FileHostTest : public testing::Test {
 protected:
  std::unique_ptr<TKSMessageHost> makeHost(std::int32_t type) {
    process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", ipc_}};
    auto host = std::make_unique<TKSMessageHost>(type);
    log_.clear();
    return host;
  }
  std::string fromLauncher() const { return ipc_ + "/ipcFile_TKS2Interface"; }
  std::string fromInterface() const { return ipc_ + "/ipcFile_Interface2TKS"; }
  static mode_t modeOf(const std::string& path) {
    struct stat facts {};
    return ::lstat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
  }
  static void append(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
  }

  FakeHome home_;
  FakeHostProcess process_;
  TemporaryFolder folder_;
  std::string ipc_ = folder_ / "deep/ipc";
  RecordingDelegate delegate_;
  LogRecorder log_;
};

TEST_F(FileHostTest, InterfaceMakesFolderAndFilesForItselfAloneWhateverTheUmask) {
  const mode_t before = ::umask(0);
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  ::umask(before);
  EXPECT_EQ(modeOf(ipc_), 0700u);
  EXPECT_EQ(modeOf(fromLauncher()), 0600u);
  EXPECT_EQ(modeOf(fromInterface()), 0600u);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Open message host with handler."},
                                        LogLine{2, "Create directory:" + ipc_ + " successfully!"},
                                        LogLine{2, "Create ipcFile_TKS2Interface successfully!"},
                                        LogLine{2, "Create ipcFile_Interface2TKS successfully!"},
                                        LogLine{2, "Open message host with handler done."}));
}

TEST_F(FileHostTest, ExistingFolderAndFilesAreLoggedAndLeftAsTheyAre) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), frame(kHello));
  writeFile(fromInterface(), "kept");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Open message host with handler."},
                                        LogLine{8, "Error! Ipc file directory:" + ipc_ + " already exists!"},
                                        LogLine{8, "Error! IpcFile_TKS2Interface already exists!"},
                                        LogLine{8, "Error! ipcFile_Interface2TKS already exists!"},
                                        LogLine{2, "Open message host with handler done."}));
  host->sendMessage(messageOf("hello"));
  EXPECT_EQ(contentOf(fromInterface()), "kept" + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return !delegate_.messages.empty(); }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello")) << "frames written before are read from the beginning";
}

TEST_F(FileHostTest, FolderThatCannotBeMadeIsLoggedAndNothingElseGoesWrong) {
  writeFile(folder_ / "deep", "a file in the way");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host->isOpened);
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_GE(errors.size(), 3u);
  EXPECT_THAT(errors[0], MatchesRegex("Failed to create directory:.*/deep/ipc, error: Error Domain=.*\\."));
  EXPECT_EQ(errors[1], "Create ipcFile_TKS2Interface failed!");
  EXPECT_EQ(errors[2], "Create ipcFile_Interface2TKS failed!");
}

TEST_F(FileHostTest, LauncherLooksAtTheFilesAndMakesNone) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), "");
  writeFile(fromInterface(), "");
  auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{2, "Open message host with handler."}, LogLine{2, "Ipc file directory:" + ipc_ + " exists."},
                  LogLine{2, "ipcFile_TKS2Interface exists."}, LogLine{2, "ipcFile_Interface2TKS exists."},
                  LogLine{2, "Open message host with handler done."}));
}

TEST_F(FileHostTest, LauncherReportsWhatIsMissing) {
  const auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host->isOpened);
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_GE(errors.size(), 3u);
  EXPECT_EQ(errors[0], "Error! Ipc file directory:" + ipc_ + " doesn't exist!");
  EXPECT_EQ(errors[1], "Error! ipcFile_TKS2Interface:" + fromLauncher() + " doesn't exist!");
  EXPECT_EQ(errors[2], "Error! ipcFile_Interface2TKS:" + fromInterface() + " doesn't exist!");
  EXPECT_FALSE(std::filesystem::exists(ipc_));
}

TEST_F(FileHostTest, PathsInLinesAreMasked) {
  ipc_ = folder_ / "Users/jane/ipc";
  const std::string shown = folder_ / "Users/****/ipc";
  const auto launcher = makeHost(tksMessageHostTypeTKS);
  launcher->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(8, "Error! Ipc file directory:" + shown + " doesn't exist!"));
  EXPECT_TRUE(log_.has(8, "Error! ipcFile_TKS2Interface:" + shown + "/ipcFile_TKS2Interface doesn't exist!"));
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(2, "Create directory:" + shown + " successfully!"));
  for (const LogLine& line : log_.lines()) EXPECT_THAT(line.text, testing::Not(testing::HasSubstr("/jane/")));
}

TEST_F(FileHostTest, BothEndsTalkThroughTheFiles) {
  const auto interface = makeHost(tksMessageHostTypeInterface);
  const auto launcher = makeHost(tksMessageHostTypeTKS);
  RecordingDelegate launchersDelegate;
  interface->openWithMessengeHandler(&delegate_);
  launcher->openWithMessengeHandler(&launchersDelegate);
  interface->sendMessage(messageOf("hello"));
  ASSERT_TRUE(drainUntil([&] { return !launchersDelegate.messages.empty(); }));
  launcher->sendMessage(messageOf("hello_ack"));
  launcher->sendMessage(messageOf("disconnect_ack"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(launchersDelegate.types(), ElementsAre("hello"));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello_ack", "disconnect_ack"));
  EXPECT_EQ(contentOf(fromInterface()), frame(kHello)) << "appended, never cut";
}

TEST_F(FileHostTest, BytesAppendedWhileNobodyReadsAreReadLater) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  append(fromLauncher(), frame(kHello).substr(0, 20));
  ASSERT_TRUE(drainUntil([&] { return host->pendingDataSize > 0; }));
  append(fromLauncher(), frame(kHello).substr(20) + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(FileHostTest, EmptyPieceIsIgnored) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->onMessage("");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "On message."},
                          LogLine{2, "messageData is nil or empty and ipc by File, ignore this message!"}));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(FileHostTest, IdleFileDeliversNoPiece) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  drainFor(100ms);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileHostTest, InterfacesCloseRemovesTheFolderAndForgetsThePaths) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  EXPECT_TRUE(std::filesystem::exists(folder_ / "deep"));
  EXPECT_THAT(host->tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(host->tempIPCFileFullPathFromInterface2TKS, IsEmpty());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Close message host."}, LogLine{2, "destroyFileHandle"},
                          LogLine{2, "Succeed to remove ipc file folder."}, LogLine{2, "Close message host done."}));
}

TEST_F(FileHostTest, LaunchersCloseLeavesTheFolderAndForgetsThePaths) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), "");
  writeFile(fromInterface(), "");
  const auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_TRUE(std::filesystem::exists(fromLauncher()));
  EXPECT_THAT(host->tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Close message host."}, LogLine{2, "destroyFileHandle"},
                                        LogLine{2, "Close message host done."}));
}

TEST_F(FileHostTest, FolderThatIsGoneAlreadyIsReportedAtClose) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  std::filesystem::remove_all(ipc_);
  host->close();
  ASSERT_EQ(log_.texts(8).size(), 1u);
  EXPECT_THAT(log_.texts(8)[0], MatchesRegex("Removing ipcFile folder has error:Error Domain=.*"));
}

TEST_F(FileHostTest, CloseRemovesOnlyWhatAConversationMakes) {
  writeFile(ipc_ + "/letter", "dear");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_EQ(contentOf(ipc_ + "/letter"), "dear");
  EXPECT_FALSE(std::filesystem::exists(fromLauncher()));
  EXPECT_FALSE(std::filesystem::exists(fromInterface()));
  EXPECT_THAT(log_.texts(8), ElementsAre(MatchesRegex("Removing ipcFile folder has error:.*Directory not empty.*")));
}

TEST_F(FileHostTest, CloseRemovesAFolderOfItsOwnWithItsContents) {
  const std::string elsewhere = folder_ / "elsewhere";
  writeFile(elsewhere + "/letter", "dear");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  writeFile(ipc_ + "/folder/of the launcher", "x");
  std::filesystem::create_directory_symlink(elsewhere, ipc_ + "/link");
  host->openWithMessengeHandler(&delegate_);  // once more, by the same conversation
  log_.clear();
  host->close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  EXPECT_EQ(contentOf(elsewhere + "/letter"), "dear");
  EXPECT_THAT(log_.texts(8), IsEmpty());
}

TEST_F(FileHostTest, CloseRemovesNothingOfAFolderThatWasPutInThePlaceOfItsOwn) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  std::filesystem::remove_all(ipc_);
  writeFile(folder_ / "elsewhere/letter", "dear");
  std::filesystem::create_directory_symlink(folder_ / "elsewhere", ipc_);
  host->close();
  EXPECT_EQ(contentOf(folder_ / "elsewhere/letter"), "dear");
}

TEST_F(FileHostTest, TheHomeIsKeptHoweverItIsSpelled) {
  const tks::test::ScopedWorkingFolder here(home_.realHome());
  for (const std::string& folder : {home_.realHome(), home_.realHome() + "/.", home_.realHome() + "//", "."s, "./"s,
                                    home_ / "../home", home_ / "Library/.."}) {
    std::filesystem::create_directories(home_ / "Library");
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.ipcByFile = true;
    host.setIPCFileFolderPath(folder);
    host.openWithMessengeHandler(&delegate_);
    log_.clear();
    host.close();
    EXPECT_TRUE(std::filesystem::exists(home_ / "Library")) << folder;
    EXPECT_EQ(log_.texts(8).size(), 1u) << folder;
    std::filesystem::remove(home_ / "Library");
    host.setIPCFileFolderPath(folder);
    host.openWithMessengeHandler(&delegate_);
    host.close();
    EXPECT_TRUE(std::filesystem::exists(home_.realHome())) << "also an empty one: " << folder;
  }
}

TEST_F(FileHostTest, OpeningWithoutAFolderLogsMakesNoHandleAndTouchesNothing) {
  const std::string before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  process_.bundleIdentifier = "Tarvo-Systems.Ember";
  for (const std::int32_t type : {tksMessageHostTypeInterface, tksMessageHostTypeTKS}) {
    TKSMessageHost host(type);
    log_.clear();
    host.openWithMessengeHandler(&delegate_);
    EXPECT_TRUE(host.isOpened);
    EXPECT_EQ(log_.texts(8).size(), 3u);
    log_.clear();
    host.sendMessage(messageOf("hello"));
    EXPECT_EQ(log_.texts(8).size(), 1u);
    drainFor(2ms);
    host.close();
  }
  EXPECT_THAT(delegate_.failures, IsEmpty());
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  std::filesystem::current_path(before);
}

TEST_F(FileHostTest, OpeningAgainWithoutAFolderLetsGoOfTheEarlierFiles) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  host->setIPCFileFolderPath("");
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->sendMessage(messageOf("hello"));
  EXPECT_EQ(log_.texts(8).size(), 1u);
  EXPECT_THAT(contentOf(fromInterface()), IsEmpty());
}

TEST_F(FileHostTest, TypeThatIsNeitherMakesNoHandle) {
  process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", ipc_}};
  TKSMessageHost host(7);
  host.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host.isOpened);
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  host.sendMessage(messageOf("hello"));
  EXPECT_EQ(log_.texts(8).size(), 1u);
  host.close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
}

TEST_F(FileHostTest, LinkedFilesAreRefused) {
  std::filesystem::create_directories(ipc_);
  writeFile(folder_ / "victim", "precious");
  std::filesystem::create_symlink(folder_ / "victim", fromInterface());
  std::filesystem::create_symlink(folder_ / "victim", fromLauncher());
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_EQ(log_.texts(8).size(), 5u);
  EXPECT_THAT(log_.texts(8)[3], StartsWith("Open message channel failed: "));
  EXPECT_THAT(log_.texts(8)[4], StartsWith("Open message channel failed: "));
  host->sendMessage(messageOf("hello"));
  drainFor(2ms);
  EXPECT_EQ(contentOf(folder_ / "victim"), "precious");
  EXPECT_THAT(delegate_.messages, IsEmpty());
  host->close();
  EXPECT_EQ(contentOf(folder_ / "victim"), "precious") << "links are removed, not what they point to";
}

TEST_F(FileHostTest, DanglingLinkIsNotFollowedWhenFilesAreMade) {
  std::filesystem::create_directories(ipc_);
  std::filesystem::create_symlink(folder_ / "elsewhere", fromInterface());
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(8, "Create ipcFile_Interface2TKS failed!"));
  host->sendMessage(messageOf("hello"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "elsewhere"));
}

TEST_F(FileHostTest, FileThatIsCutReplacedOrRemovedIsAFatalError) {
  const std::function<void()> faults[] = {
      [this] { std::filesystem::resize_file(fromLauncher(), 3); },
      [this] { std::filesystem::remove(fromLauncher()); },
      [this] {
        writeFile(folder_ / "other", frame(kHello));
        std::filesystem::rename(folder_ / "other", fromLauncher());
      },
  };
  for (const auto& fault : faults) {
    delegate_.failures.clear();
    delegate_.messages.clear();
    const auto host = makeHost(tksMessageHostTypeInterface);
    host->openWithMessengeHandler(&delegate_);
    append(fromLauncher(), frame(kHello));
    ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 1; }));
    fault();
    ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
    EXPECT_THAT(delegate_.failures.front(), StartsWith("Read message failed: Error Domain="));
    EXPECT_EQ(delegate_.messages.size(), 1u);
    host->close();
  }
}

TEST_F(FileHostTest, NextConversationStartsWithNewFiles) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  delegate_.onMessage = [&](const TKSMessage&) { host->close(); };
  append(fromLauncher(), frame(kHello) + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return !host->isOpened; }));
  delegate_.onMessage = nullptr;
  host->setIPCFileFolderPath(ipc_);
  host->openWithMessengeHandler(&delegate_);
  append(fromLauncher(), frame(R"({"message_type":"fresh","message":""})"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "fresh"));
}

/// A host that its identifier tells to use files; the folder is named to it.
class TeamMessagingHostTest : public FileHostTest {
 protected:
  TeamMessagingHostTest() { process_.bundleIdentifier = "Tarvo-Systems.Ember"; }
};

TEST_F(TeamMessagingHostTest, FolderHasToBeNamedAgainBeforeTheNextOpening) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath(folder_ / "first");
  host.openWithMessengeHandler(&delegate_);
  host.close();
  log_.clear();
  host.openWithMessengeHandler(&delegate_);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "first"));
  EXPECT_EQ(log_.texts(8).size(), 3u);
  host.close();

  log_.clear();
  host.setIPCFileFolderPath(folder_ / "second");
  host.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(std::filesystem::exists(folder_ / "second/ipcFile_TKS2Interface"));
  EXPECT_THAT(log_.texts(8), IsEmpty());
  host.close();
}

TEST_F(TeamMessagingHostTest, ClosingAndDestroyingLetGoOfEveryHandle) {
  TKSMainLoop::descriptor();
  const std::set<int> before = tks::test::openDescriptors();
  TKSMessageHost host(tksMessageHostTypeInterface);
  for (const char* name : {"first", "second"}) {
    host.setIPCFileFolderPath(folder_ / name);
    host.openWithMessengeHandler(&delegate_);
    EXPECT_GT(tks::test::openDescriptors().size(), before.size());
    host.close();
    EXPECT_EQ(tks::test::openDescriptors(), before);
  }
  {
    TKSMessageHost unclosed(tksMessageHostTypeInterface);
    unclosed.setIPCFileFolderPath(folder_ / "third");
    unclosed.openWithMessengeHandler(&delegate_);
  }
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

TEST_F(TeamMessagingHostTest, OneFileThatIsThereAlreadyDoesNotKeepTheOtherFromBeingMade) {
  for (const auto& [there, line, other] : std::initializer_list<std::tuple<std::string, std::string, std::string>>{
           {"ipcFile_TKS2Interface", "Error! IpcFile_TKS2Interface already exists!",
            "Create ipcFile_Interface2TKS successfully!"},
           {"ipcFile_Interface2TKS", "Error! ipcFile_Interface2TKS already exists!",
            "Create ipcFile_TKS2Interface successfully!"},
       }) {
    const std::string ipc = folder_ / there;
    std::filesystem::create_directories(ipc);
    tks::test::writeFile(ipc + "/" + there, "");
    log_.clear();
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.setIPCFileFolderPath(ipc);
    host.openWithMessengeHandler(&delegate_);
    EXPECT_THAT(log_.texts(8), ElementsAre("Error! Ipc file directory:" + ipc + " already exists!", line));
    EXPECT_THAT(log_.texts(2), Contains(other));
    host.close();
  }
}

TEST_F(TeamMessagingHostTest, FirstPieceOfOneToThreeBytesIsAFatalErrorOnFilesToo) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath(folder_ / "ipc");
  host.openWithMessengeHandler(&delegate_);
  host.onMessage("abc");
  EXPECT_THAT(delegate_.failures, ElementsAre("Message data size ( 3 ) less than 'sizeOfSize', no pending data."));
  host.onMessage(header(5) + "ab");
  host.onMessage("");
  EXPECT_EQ(delegate_.failures.size(), 1u) << "an empty piece inside of a message is ignored as well";
  EXPECT_EQ(host.pendingDataSize, 3u);
  host.close();
}

}  // namespace
