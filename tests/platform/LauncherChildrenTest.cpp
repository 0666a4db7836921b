#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "platform/platform.h"
#include "tests/platform/ChildProcessesTest.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// What options ask of children: to be ended, to be looked at, private pipes, and a smaller environment. On macOS the
// open files of a process are asked of libproc, which tells only of the user's own.

namespace {

using namespace std::string_literals;
using tks::platform::ChannelIdentity;
using tks::platform::channels;
using tks::platform::ChildEnd;
using tks::platform::childProcesses;
using tks::platform::ChildRequest;
using tks::test::Child;
using tks::test::ChildProcesses;
using tks::test::drainUntil;
using tks::test::FakeLauncher;
using tks::test::openDescriptors;
using tks::test::waitUntil;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(ChildProcesses, ChildIsAskedToEndAndKilled) {
  for (const bool force : {false, true}) {
    const FakeLauncher launcher({"--no-read", "60s"});  // or it would notice the end of an input without a host
    Child child;
    ASSERT_TRUE(child.start(launcher.executable()));
    EXPECT_TRUE(childProcesses().end(child.pid, force));
    ASSERT_TRUE(child.waitForEnd());
    EXPECT_EQ(child.ends[0].how, ChildEnd::How::killed);
    EXPECT_EQ(child.ends[0].number, force ? SIGKILL : SIGTERM);
    EXPECT_FALSE(childProcesses().end(child.pid, true)) << "it is gone";
  }
}

TEST_F(ChildProcesses, OtherProcessesAreNeverEnded) {
  EXPECT_FALSE(childProcesses().end(0, true));
  EXPECT_FALSE(childProcesses().end(-1, true));
  EXPECT_FALSE(childProcesses().end(::getppid(), false));
  // A child of the host's own.
  const pid_t foreign = ::fork();
  if (foreign == 0) {
    ::pause();
    ::_exit(0);
  }
  EXPECT_FALSE(childProcesses().end(foreign, true));
  EXPECT_EQ(::kill(foreign, 0), 0);
  ::kill(foreign, SIGKILL);
  ::waitpid(foreign, nullptr, 0);
}

TEST_F(ChildProcesses, ChildThatHasEndedAndIsNotCollectedIsNotEnded) {
  const FakeLauncher launcher({"--exit", "0"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  ASSERT_TRUE(waitUntil([&] { return !childProcesses().end(child.pid, false); }));
  ASSERT_TRUE(child.waitForEnd());
}

ChannelIdentity identityOf(const std::string& path) {
  struct stat facts {};
  EXPECT_EQ(::stat(path.c_str(), &facts), 0);
  return {static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino)};
}

TEST_F(ChildProcesses, FileThatAProcessHasOpenForWritingIsSeen) {
  const tks::test::TemporaryFolder folder;
  const std::string path = folder / "file";
  tks::test::writeFile(path, "");
  const ChannelIdentity file = identityOf(path);
  const auto isOpen = [&] { return childProcesses().hasOpenForWriting(::getpid(), file); };
  EXPECT_FALSE(isOpen());
  const int reading = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_FALSE(isOpen());
  for (const int flags : {O_WRONLY, O_RDWR, O_WRONLY | O_APPEND}) {
    const int writing = ::open(path.c_str(), flags | O_CLOEXEC);
    EXPECT_TRUE(isOpen()) << flags;
    EXPECT_FALSE(childProcesses().hasOpenForWriting(::getppid(), file));
    ::close(writing);
    EXPECT_FALSE(isOpen()) << flags;
  }
  ::close(reading);
}

TEST_F(ChildProcesses, NothingIsSeenOfProcessesThatAreNotThere) {
  EXPECT_FALSE(childProcesses().hasOpenForWriting(0, {}));
  EXPECT_FALSE(childProcesses().hasOpenForWriting(-1, {}));
  EXPECT_FALSE(childProcesses().hasOpenForWriting(1 << 29, {}));
}

TEST_F(ChildProcesses, LauncherThatTalksOverFilesHasItsFileOpen) {
  const tks::test::TemporaryFolder folder;
  for (const char* name : {"ipcFile_TKS2Interface", "ipcFile_Interface2TKS"}) tks::test::writeFile(folder / name, "");
  const FakeLauncher launcher;
  Child child;
  ASSERT_TRUE(child.start(launcher.executable(), {"-Communicate", "File", "-TempIPCFilePath", folder.path()}));
  const ChannelIdentity written = identityOf(folder / "ipcFile_TKS2Interface");
  EXPECT_TRUE(waitUntil([&] { return childProcesses().hasOpenForWriting(child.pid, written); }));
  EXPECT_FALSE(childProcesses().hasOpenForWriting(child.pid, identityOf(folder / "ipcFile_Interface2TKS")));
  launcher.endAll();
  EXPECT_TRUE(child.waitForEnd());
}

TEST_F(ChildProcesses, EnvironmentIsReducedToNames) {
  ::setenv("TKS_KEPT", "a=b\nc", 1);
  ::setenv("TKS_EMPTY", "", 1);
  const FakeLauncher launcher({"--dump-environment", "environment", "--exit", "0"});
  ChildRequest request{launcher.executable(), {}, false};
  request.environment = {"TKS_KEPT", "TKS_MISSING", "TKS_EMPTY"};
  ASSERT_GT(childProcesses().start(request, {}, nullptr), 0);
  EXPECT_EQ(launcher.report("environment"), "TKS_KEPT=a=b\nc\0TKS_EMPTY=\0"s);
  const FakeLauncher another({"--dump-environment", "environment", "--exit", "0"});
  request.executable = another.executable();
  request.environment.emplace();
  ASSERT_GT(childProcesses().start(request, {}, nullptr), 0);
  EXPECT_EQ(another.report("environment"), "");
  EXPECT_TRUE(drainUntil([] { return tks::test::children().empty(); }));
}

// Private pipes.

std::string identityOf(int descriptor) {
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0) return "closed";
  return std::to_string(facts.st_dev) + ":" + std::to_string(facts.st_ino);
}

std::int32_t startPrivate(const FakeLauncher& launcher) {
  ChildRequest request{launcher.executable(), {"-Communicate", "Pipe"}, true};
  request.keepPipesPrivate = true;
  return childProcesses().start(request, {}, nullptr);
}

/// Says hello over the channels of the process, and hears the launcher's answer.
bool converses() {
  const auto source = channels().standardInput(nullptr);
  const auto sink = channels().standardOutput(nullptr);
  const std::string hello = tks::test::frame(R"({"message_type":"hello","message":"hello"})");
  if (!source || !sink || sink->write(hello).count != hello.size()) return false;
  std::string heard;
  return waitUntil([&] {
    std::string piece(4096, '\0');
    heard.append(piece, 0, source->read(piece).count);
    return heard.find("hello_ack") != std::string::npos;
  });
}

void endTalk(bool inGoodOrder) {
  const auto source = channels().standardInput(nullptr);
  ASSERT_TRUE(source);
  channels().endOfTalk(source->identity(), inGoodOrder);
}

TEST(PrivatePipes, CarryTheTalkAndLeaveTheStandardHandlesAsTheyAre) {
  TKS_IN_FRESH_PROCESS();
  const std::string input = identityOf(0);
  const std::string output = identityOf(1);
  const FakeLauncher launcher;
  ASSERT_GT(startPrivate(launcher), 0);
  EXPECT_TRUE(converses());
  EXPECT_EQ(identityOf(0), input);
  EXPECT_EQ(identityOf(1), output);
  endTalk(true);
  EXPECT_TRUE(converses()) << "the child lives and may be talked to again";
  EXPECT_EQ(identityOf(1), output);
}

TEST(PrivatePipes, AreClosedWhenTheChildHasEndedAndTheTalkIsOver) {
  TKS_IN_FRESH_PROCESS();
  TKSMainLoop::descriptor();
  const std::set<int> before = openDescriptors();
  const FakeLauncher launcher;
  for (const bool talkEndsFirst : {true, false}) {
    ASSERT_GT(startPrivate(launcher), 0);
    ASSERT_TRUE(converses());
    if (talkEndsFirst) endTalk(true);
    launcher.endAll();
    ASSERT_TRUE(drainUntil([] { return tks::test::children().empty(); }));
    if (!talkEndsFirst) endTalk(false);
    EXPECT_TRUE(drainUntil([&] { return openDescriptors() == before; }));
  }
}

TEST(PrivatePipes, OfASecondStartTakeThePlaceOfTheFirst) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher first;
  const FakeLauncher second;
  ASSERT_GT(startPrivate(first), 0);
  ASSERT_TRUE(converses());
  ASSERT_GT(startPrivate(second), 0);
  EXPECT_TRUE(waitUntil([&] { return first.processes().empty(); })) << "its host is gone";
  EXPECT_TRUE(converses());
}

TEST(PrivatePipes, OfAStartThatFailsLeaveNothing) {
  TKS_IN_FRESH_PROCESS();
  TKSMainLoop::descriptor();
  const std::set<int> before = openDescriptors();
  ChildRequest request{"/nowhere", {}, true};
  request.keepPipesPrivate = true;
  EXPECT_EQ(childProcesses().start(request, {}, nullptr), 0);
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
