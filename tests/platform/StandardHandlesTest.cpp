#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include <tksinterface/TKSMainLoop.h>

#include "platform/child_processes.h"
#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

// One code for both systems, over the back end that starts children.

namespace {

using tks::platform::ChildEnd;
using tks::platform::childProcesses;
using tks::platform::ChildRequest;
using tks::test::drainUntil;
using tks::test::FakeLauncher;
using tks::test::openDescriptors;
using tks::test::waitUntil;

using ::testing::IsEmpty;

const std::string kHello = R"({"message_type":"hello","message":"hello"})";
const std::string kHelloAck = R"({"message_type":"hello_ack","message":"hello_ack"})";

/// Which file a descriptor is.
std::string identity(int descriptor) {
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0) return "closed";
  return std::to_string(facts.st_dev) + ":" + std::to_string(facts.st_ino);
}

bool isCloseOnExec(int descriptor) { return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0; }

/// Starts a launcher on this process's own standard handles.
std::int32_t startJoined(const FakeLauncher& launcher, TKSError* error = nullptr) {
  const ChildRequest request{launcher.executable(), {"-Communicate", "Pipe"}, true};
  return childProcesses().start(request, {}, error);
}

/// Reads from standard input what a launcher sends; "" at the end, and when nothing comes for five seconds.
std::string receive() {
  std::string bytes;
  while (bytes.size() < 4 || tks::test::payloads(bytes).front().size() + 4 != bytes.size()) {
    std::array<char, 4096> piece;
    pollfd watched{0, POLLIN, 0};
    if (::poll(&watched, 1, 5000) <= 0) return {};
    const ssize_t count = ::read(0, piece.data(), piece.size());
    if (count <= 0) return {};
    bytes.append(piece.data(), static_cast<std::size_t>(count));
  }
  return bytes.substr(4);
}

/// Says hello to the launcher that is joined now, and hears its answer.
bool converses() {
  const std::string frame = tks::test::frame(kHello);
  return ::write(1, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size()) && receive() == kHelloAck;
}

/// Stands for another peer on the host's own standard handles: a pipe each.
class Peer {
 public:
  Peer() {
    if (::pipe2(toHost_.data(), O_CLOEXEC) != 0 || ::pipe2(fromHost_.data(), O_CLOEXEC) != 0) std::abort();
    ::dup2(toHost_[0], 0);
    ::dup2(fromHost_[1], 1);
    ::close(toHost_[0]);
    ::close(fromHost_[1]);
    ::fcntl(fromHost_[0], F_SETFL, O_NONBLOCK);
  }
  void say(const std::string& text) { EXPECT_EQ(::write(toHost_[1], text.data(), text.size()), std::ssize(text)); }
  /// All that has arrived here by now.
  std::string heard() {
    std::string text(4096, '\0');
    const ssize_t count = ::read(fromHost_[0], text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }

 private:
  std::array<int, 2> toHost_{};
  std::array<int, 2> fromHost_{};
};

TEST(StandardHandles, OriginalsHaveTheSameNumbersBeforeAndAfterAStart) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const int input = childProcesses().originalStandardInput();
  const int output = childProcesses().originalStandardOutput();
  EXPECT_GT(input, 2);
  EXPECT_GT(output, 2);
  EXPECT_EQ(identity(input), identity(0));
  EXPECT_EQ(identity(output), identity(1));
  EXPECT_TRUE(isCloseOnExec(input));
  EXPECT_TRUE(isCloseOnExec(output));
  const std::string original = identity(input);
  TKSError error;
  EXPECT_EQ(childProcesses().start({"/nowhere", {}, true}, {}, &error), 0);
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_EQ(childProcesses().originalStandardInput(), input);
  const FakeLauncher launcher;
  ASSERT_GT(startJoined(launcher), 0);
  EXPECT_EQ(childProcesses().originalStandardInput(), input);
  EXPECT_EQ(childProcesses().originalStandardOutput(), output);
  EXPECT_EQ(identity(input), original);
}

/// What the library's own transport tells when its conversation over the standard handles ends.
void endTalk(bool inGoodOrder) {
  const auto source = tks::platform::channels().standardInput(nullptr);
  ASSERT_TRUE(source);
  tks::platform::channels().endOfTalk(source->identity(), inGoodOrder);
}

TEST(StandardHandles, ComeBackWhenTheChildHasEndedAndTheTalkIsOver) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const std::string input = identity(0);
  const std::string output = identity(1);
  const FakeLauncher launcher;
  for (const bool talkEndsFirst : {true, false}) {
    ASSERT_GT(startJoined(launcher), 0);
    ASSERT_TRUE(converses());
    EXPECT_NE(identity(0), input);
    if (talkEndsFirst) endTalk(false);
    tks::test::drainFor(std::chrono::milliseconds(20));
    EXPECT_NE(identity(1), output) << "the child lives and may be talked to again";
    launcher.endAll();
    ASSERT_TRUE(drainUntil([&] { return tks::test::children().empty(); }));
    drainUntil([&] { return identity(1) == output; }, std::chrono::milliseconds(200));
    if (!talkEndsFirst) {
      EXPECT_NE(identity(1), output) << "the last words may still be read";
      endTalk(false);
    }
    EXPECT_EQ(identity(0), input);
    EXPECT_EQ(identity(1), output);
    EXPECT_FALSE(isCloseOnExec(0));
    EXPECT_FALSE(isCloseOnExec(1));
    EXPECT_EQ(::write(1, "text", 4), 4);
    EXPECT_EQ(peer.heard(), "text");
  }
}

TEST(StandardHandles, ComeBackAtOnceAfterAFarewellAndTheChildNoticesNothing) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const std::string input = identity(0);
  const std::string output = identity(1);
  const FakeLauncher launcher;
  ASSERT_GT(startJoined(launcher), 0);
  ASSERT_TRUE(converses());
  const std::string pipe = identity(0);
  endTalk(true);
  EXPECT_EQ(identity(0), input);
  EXPECT_EQ(identity(1), output);
  EXPECT_EQ(::write(1, "text", 4), 4);
  EXPECT_EQ(peer.heard(), "text") << "and not the launcher";
  tks::test::drainFor(std::chrono::milliseconds(50));
  EXPECT_EQ(launcher.processes().size(), 1u) << "it has seen no end of its input";

  EXPECT_TRUE(tks::platform::channels().standardInput(nullptr));
  EXPECT_EQ(identity(0), pipe) << "the next talk is with the same child";
  EXPECT_TRUE(converses());
  endTalk(true);
  launcher.endAll();
  ASSERT_TRUE(drainUntil([&] { return tks::test::children().empty(); }));
  tks::test::drainFor(std::chrono::milliseconds(20));
  EXPECT_TRUE(tks::platform::channels().standardInput(nullptr));
  EXPECT_EQ(identity(0), input) << "the child is gone";
}

TEST(StandardHandles, WhatTheHostPutInTheirPlaceStays) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const FakeLauncher launcher;
  ASSERT_GT(startJoined(launcher), 0);
  ASSERT_TRUE(converses());
  const auto source = tks::platform::channels().standardInput(nullptr);
  const int own = ::open("/dev/zero", O_RDWR | O_CLOEXEC);
  ::dup2(own, 1);
  tks::platform::channels().endOfTalk(source->identity(), true);
  EXPECT_EQ(identity(1), identity(own));
  ::close(own);
}

TEST(StandardHandles, EndOfAnEarlierTalkChangesNothingForTheNextChild) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const FakeLauncher launcher;
  ASSERT_GT(startJoined(launcher), 0);
  const auto earlier = tks::platform::channels().standardInput(nullptr);
  ASSERT_GT(startJoined(launcher), 0);
  tks::platform::channels().endOfTalk(earlier->identity(), true);
  EXPECT_TRUE(converses());
}

TEST(StandardHandles, JoinThisProcessAndTheChild) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--dump-descriptors", "descriptors"});
  ASSERT_GT(startJoined(launcher), 0);
  EXPECT_TRUE(converses());
  EXPECT_TRUE(isCloseOnExec(0)) << "another child of the host would keep the conversation alive";
  EXPECT_TRUE(isCloseOnExec(1));
  const std::string descriptors = launcher.report("descriptors");
  EXPECT_THAT(descriptors, ::testing::ContainsRegex("^0 pipe:.*\n1 pipe:.*\n2 .*\n$"));
}

TEST(StandardHandles, TheOriginalsAreKeptPrivatelyForAnotherPeer) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const std::string input = identity(0);
  const std::string output = identity(1);
  const FakeLauncher launcher({"--stderr", "1M"});
  ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 2);
  ASSERT_GT(startJoined(launcher), 0);
  const int originalInput = childProcesses().originalStandardInput();
  const int originalOutput = childProcesses().originalStandardOutput();
  EXPECT_GT(originalInput, 2);
  EXPECT_GT(originalOutput, 2);
  EXPECT_EQ(identity(originalInput), input);
  EXPECT_EQ(identity(originalOutput), output);
  EXPECT_TRUE(isCloseOnExec(originalInput));
  EXPECT_TRUE(isCloseOnExec(originalOutput));

  EXPECT_TRUE(converses());
  EXPECT_EQ(peer.heard(), "") << "no stray byte reaches the peer";
  peer.say("ping");
  char word[8] = {};
  EXPECT_EQ(::read(originalInput, word, sizeof word), 4);
  EXPECT_EQ(::write(originalOutput, "pong", 4), 4);
  EXPECT_EQ(peer.heard(), "pong");

  ASSERT_GT(startJoined(launcher), 0);
  EXPECT_EQ(childProcesses().originalStandardInput(), originalInput) << "the originals stay the first ones";
  EXPECT_EQ(childProcesses().originalStandardOutput(), originalOutput);
  EXPECT_TRUE(converses());
}

TEST(StandardHandles, SecondLaunchLeavesNoPipeEndBehind) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--dump-descriptors", "descriptors"});
  ASSERT_GT(startJoined(launcher), 0);
  ASSERT_TRUE(converses());
  TKSMainLoop::drain();  // watches the child from now on
  const std::set<int> descriptors = openDescriptors();
  for (int i = 0; i < 100; ++i) {
    std::filesystem::remove(launcher.file("descriptors"));
    const std::vector<int> before = launcher.processes();
    ASSERT_GT(startJoined(launcher), 0);
    ASSERT_TRUE(converses());
    const std::string report = launcher.report("descriptors");
    ASSERT_EQ(std::count(report.begin(), report.end(), '\n'), 3) << report;
    ASSERT_TRUE(drainUntil([&] { return launcher.processes().size() == 1; })) << "the one before saw no end of file";
  }
  drainUntil([&] { return tks::test::children().size() == 1; });
  EXPECT_EQ(openDescriptors().size(), descriptors.size());
}

TEST(StandardHandles, AreNeverTakenForThePipesWhenTheHostHasClosedThem) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--dump-descriptors", "descriptors"});
  ::close(0);
  ::close(1);
  ::close(2);
  TKSError error;
  ASSERT_GT(startJoined(launcher, &error), 0) << error.description();
  EXPECT_TRUE(converses());
  EXPECT_EQ(openDescriptors().count(2), 0u) << "nothing new may stand where errors are printed";
  EXPECT_EQ(childProcesses().originalStandardInput(), -1);
  EXPECT_EQ(childProcesses().originalStandardOutput(), -1);
  EXPECT_THAT(launcher.report("descriptors"), ::testing::ContainsRegex("^0 pipe:.*\n1 pipe:.*\n2 /dev/null\n$"));
}

TEST(StandardHandles, AnyCombinationOfClosedHandlesWorks) {
  for (int closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    tks::test::ChildProcess host =
        tks::test::ChildProcess::inRole("host-with-closed-handles", {std::to_string(closed)});
    EXPECT_EQ(host.wait(), 0);
  }
}

int hostWithClosedHandles(const tks::test::Arguments& arguments) {
  const int closed = std::atoi(arguments.at(0).c_str());
  const FakeLauncher launcher;
  for (const int number : {0, 1, 2}) {
    if ((closed >> number & 1) != 0) ::close(number);
  }
  if (startJoined(launcher) <= 0 || !converses()) return 1;
  if (((closed & 4) != 0) != (openDescriptors().count(2) == 0)) return 2;
  return (childProcesses().originalStandardInput() == -1) == ((closed & 1) != 0) &&
                 (childProcesses().originalStandardOutput() == -1) == ((closed & 2) != 0)
             ? 0
             : 3;
}
const tks::test::ChildRole kHostWithClosedHandles("host-with-closed-handles", hostWithClosedHandles);

TEST(StandardHandles, AFailedStartLeavesEverythingAsItWas) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const FakeLauncher launcher;
  const std::string input = identity(0);
  const std::string output = identity(1);
  const std::set<int> descriptors = openDescriptors();
  TKSError error;
  EXPECT_EQ(childProcesses().start({launcher.bundle(), {}, true}, {}, &error), 0);
  EXPECT_EQ(error.code, EACCES);
  EXPECT_EQ(identity(0), input);
  EXPECT_EQ(identity(1), output);
  EXPECT_FALSE(isCloseOnExec(0));
  EXPECT_FALSE(isCloseOnExec(1));
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(StandardHandles, NoDescriptorsLeftAtAnyStepOfALaunchUndoesEverything) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  TKSMainLoop::descriptor();
  const FakeLauncher launcher;
  const std::string input = identity(0);
  const std::string output = identity(1);
  // A first call: the undefined-behaviour sanitizer needs descriptors to look at an object that it does not know yet.
  EXPECT_EQ(childProcesses().start({"/nowhere", {}, true}, {}, nullptr), 0);
  const rlimit generous = [] {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
  }();
  // The numbers up to the highest one in use are filled, so that each step of the limit is worth one descriptor.
  std::vector<int> fillers;
  for (int filler = ::dup(0); filler < 20; filler = ::dup(0)) fillers.push_back(filler);

  int failures = 0;
  bool started = false;
  for (rlim_t limit = 20; !started && limit < 60; ++limit) {
    const rlimit tight{limit, generous.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    TKSError error;
    started = startJoined(launcher, &error) > 0;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &generous), 0);
    if (started) break;
    ++failures;
    EXPECT_EQ(error.code, EMFILE) << error.description();
    EXPECT_EQ(error.localizedDescription, "start \"" + launcher.executable() + "\": Too many open files");
    EXPECT_EQ(identity(0), input);
    EXPECT_EQ(identity(1), output);
    EXPECT_THAT(launcher.processes(), IsEmpty());
    for (const int number : openDescriptors()) EXPECT_TRUE(number >= 900 || number <= 21) << number;
  }
  for (const int filler : fillers) ::close(filler);
  EXPECT_TRUE(started);
  EXPECT_GE(failures, 5);
  EXPECT_TRUE(converses()) << "the next launch works";
}

TEST(StandardHandles, OfAJoinedHostReachNoChildThatSharesThem) {
  TKS_IN_FRESH_PROCESS();
  Peer peer;
  const FakeLauncher joined;
  ASSERT_GT(startJoined(joined), 0);
  const FakeLauncher other({"--dump-descriptors", "descriptors", "--exit", "0"});
  ASSERT_GT(childProcesses().start({other.executable(), {}, false}, {}, nullptr), 0);
  EXPECT_THAT(other.report("descriptors"), ::testing::StartsWith("0 /dev/null\n1 /dev/null\n2 "));
  EXPECT_TRUE(converses());
  EXPECT_EQ(peer.heard(), "");
}

int hostThatDies(const tks::test::Arguments& arguments) {
  const ChildRequest request{arguments.at(0), {"-Communicate", "Pipe"}, true};
  if (childProcesses().start(request, {}, nullptr) <= 0 || !converses()) return 1;
  // A helper tool is running too, and must not hold the conversation open either.
  childProcesses().start({arguments.at(1), {}, false}, {}, nullptr);
  ::raise(SIGKILL);
  return 2;
}
const tks::test::ChildRole kHostThatDies("host-that-dies", hostThatDies);

TEST(StandardHandles, ALauncherSeesTheEndOfItsInputWhenTheHostDies) {
  const FakeLauncher launcher;
  const FakeLauncher helper({"--wont-die"});
  tks::test::ChildProcess host =
      tks::test::ChildProcess::inRole("host-that-dies", {launcher.executable(), helper.executable()});
  EXPECT_EQ(host.wait(), 128 + SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return launcher.processes().empty(); }));
  EXPECT_EQ(helper.processes().size(), 1u);
}

TEST(StandardHandles, WhatALauncherPrintsAsErrorsNeverMixesWithTheConversation) {
  TKS_IN_FRESH_PROCESS();
  ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 2);
  const FakeLauncher loud({"--stderr", "100M"});
  ASSERT_GT(startJoined(loud), 0);
  EXPECT_TRUE(converses());
  const FakeLauncher silent({"--close-stderr"});
  ASSERT_GT(startJoined(silent), 0);
  EXPECT_TRUE(converses());
}

}  // namespace
