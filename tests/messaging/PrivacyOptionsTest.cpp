#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "messaging/FatalErrors.h"
#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ScopedOptions.h"
#include "tests/support/TemporaryFolder.h"

// What a host may ask to be kept out of lines, errors and the volume, each by itself.

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FakeHostProcess;
using tks::test::frame;
using tks::test::LogRecorder;
using tks::test::messageOf;
using tks::test::RecordingDelegate;
using tks::test::ScopedOptions;
using tks::test::TemporaryFolder;

constexpr const char* kPersonal = R"({"message":"mail jane.doe@example.com","message_type":"jane.doe@example.com"})";
constexpr const char* kNoJson = "meetingpassword=hunter2 jane.doe@example.com {";

class ReceivedText : public tks::test::PipeHostTest {
 protected:
  void receive(const std::string& text) {
    open();
    delegate_.failures.clear();
    host_.onMessage(frame(text));
  }
};

TEST_F(ReceivedText, IsInItsLineAsItCameWithoutTheOption) {
  receive(kPersonal);
  EXPECT_THAT(log_.texts(2), Contains(std::string("Receive message string: ") + kPersonal));
}

TEST_F(ReceivedText, IsMaskedInEveryLineAndError) {
  const ScopedOptions scope({.maskReceived = true});
  receive(kPersonal);
  EXPECT_THAT(log_.texts(2), Contains(StartsWith("Receive message string: ")));
  receive(kNoJson);
  ASSERT_EQ(delegate_.failures.size(), 1u);
  EXPECT_THAT(delegate_.failures, Each(Not(HasSubstr("jane.doe"))));
  EXPECT_THAT(delegate_.failures, Each(HasSubstr("meetingpassword=")));
  for (const tks::test::LogLine& line : log_.lines()) EXPECT_THAT(line.text, Not(HasSubstr("jane.doe")));
}

TEST_F(ReceivedText, ReachesTheHostUnmaskedWhateverTheOption) {
  const ScopedOptions scope({.maskReceived = true});
  receive(kPersonal);
  ASSERT_EQ(delegate_.messages.size(), 1u);
  EXPECT_EQ(delegate_.messages[0].message, TKSValue("mail jane.doe@example.com"));
}

TEST_F(ReceivedText, IsInNoErrorWhereTheHostWantsThat) {
  receive(kNoJson);
  EXPECT_THAT(delegate_.failures, ElementsAre(HasSubstr("hunter2"))) << "as described";
  const ScopedOptions scope({.noMessagesInErrors = true});
  receive(kNoJson);
  EXPECT_THAT(delegate_.failures, ElementsAre(tks::test::parseFailure("(46 bytes)")));
  EXPECT_EQ(tks::messaging::reasonOfFatalError(delegate_.failures[0]), TKSErrorReason::badMessage);
  EXPECT_THAT(log_.texts(8), Each(Not(HasSubstr("hunter2"))));
}

/// Both ends of a conversation over files, in one process.
class NamelessFiles : public testing::Test {
 protected:
  void openBoth() {
    process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", ipc_}};
    interface_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
    launcher_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeTKS);
    interface_->openWithMessengeHandler(&atInterface_);
    launcher_->openWithMessengeHandler(&atLauncher_);
  }
  /// The launcher answers the greeting, by which both sides are known to have both files open.
  void greet() {
    interface_->sendMessage(messageOf("hello"));
    ASSERT_TRUE(drainUntil([&] { return atLauncher_.messages.size() == 1; }));
    EXPECT_TRUE(std::filesystem::exists(ipc_ + "/ipcFile_TKS2Interface"));
    launcher_->sendMessage(messageOf("hello_ack"));
    ASSERT_TRUE(drainUntil([&] { return atInterface_.messages.size() == 1; }));
  }
  void talk(int count) {
    const std::size_t before = atInterface_.messages.size();
    for (int i = 0; i < count; ++i) {
      interface_->sendMessage(messageOf("ping"));
      launcher_->sendMessage(messageOf("pong"));
    }
    EXPECT_TRUE(drainUntil([&] { return atInterface_.messages.size() == before + static_cast<std::size_t>(count); }));
    EXPECT_TRUE(drainUntil([&] { return atLauncher_.messages.size() == before + static_cast<std::size_t>(count); }));
    drainFor(std::chrono::milliseconds(60));
    EXPECT_THAT(atInterface_.failures, IsEmpty());
    EXPECT_THAT(atLauncher_.failures, IsEmpty());
  }

  FakeHostProcess process_;
  TemporaryFolder folder_;
  std::string ipc_ = folder_ / "deep/ipc";
  RecordingDelegate atInterface_;
  RecordingDelegate atLauncher_;
  LogRecorder log_;
  std::unique_ptr<TKSMessageHost> interface_;
  std::unique_ptr<TKSMessageHost> launcher_;
};

TEST_F(NamelessFiles, KeepTheirNamesWithoutTheOption) {
  openBoth();
  greet();
  EXPECT_TRUE(std::filesystem::exists(ipc_ + "/ipcFile_TKS2Interface"));
  EXPECT_TRUE(std::filesystem::exists(ipc_ + "/ipcFile_Interface2TKS"));
  talk(3);
}

TEST_F(NamelessFiles, AreGoneOnceTheGreetingIsAnsweredAndTheConversationGoesOn) {
  const ScopedOptions scope({.unlinkMessageFiles = true});
  openBoth();
  greet();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  talk(20);
  log_.clear();
  interface_->sendMessage(messageOf("disconnect"));
  launcher_->sendMessage(messageOf("disconnect_ack"));
  EXPECT_TRUE(drainUntil([&] { return atInterface_.types().back() == "disconnect_ack"; }));
  interface_->close();
  EXPECT_THAT(log_.texts(2), Contains("Succeed to remove ipc file folder."));
  EXPECT_THAT(log_.texts(8), IsEmpty());
}

TEST_F(NamelessFiles, CountAsRemovedWhenTheHostClosesTheConversation) {
  const ScopedOptions scope({.unlinkMessageFiles = true});
  openBoth();
  greet();
  talk(1);
  interface_->close();
  ASSERT_TRUE(drainUntil([&] { return !atLauncher_.failures.empty(); }));
  EXPECT_THAT(atLauncher_.failures, ElementsAre(HasSubstr("the file was removed")));
}

TEST_F(NamelessFiles, OfAFolderWithOtherThingsLeaveThese) {
  const ScopedOptions scope({.unlinkMessageFiles = true});
  tks::test::writeFile(ipc_ + "/letter", "dear");
  openBoth();
  greet();
  EXPECT_FALSE(std::filesystem::exists(ipc_ + "/ipcFile_TKS2Interface"));
  EXPECT_FALSE(std::filesystem::exists(ipc_ + "/ipcFile_Interface2TKS"));
  EXPECT_EQ(tks::test::contentOf(ipc_ + "/letter"), "dear");
  EXPECT_THAT(log_.texts(4), Contains(StartsWith("The files of the conversation keep their place: ")));
  talk(2);
}

}  // namespace
