#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>

#include "platform/platform.h"
#include "tests/platform/linux/channels/FileChannelTest.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/ProcessState.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tks::gnulinux::SystemCalls;
using tks::platform::ByteSource;
using tks::platform::channels;
using tks::platform::Transfer;
using tks::test::append;
using tks::test::Collector;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FileChannel;
using tks::test::InjectedSystemCall;
using tks::test::openDescriptors;
using tks::test::pattern;
using tks::test::refusing;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

constexpr milliseconds kAWhile(60);

// Reading, with inotify and without

struct Watching {
  const char* name;
  int (*inotifyInit)(int flags);
};

void PrintTo(const Watching& watching, std::ostream* out) { *out << watching.name; }

const Watching kWatching[] = {{"Inotify", nullptr},
                              {"NoSuchCall", refusing<ENOSYS>},
                              {"NotPermitted", refusing<EPERM>},
                              {"TooMany", refusing<EMFILE>}};

class GrowingFile : public FileChannel, public testing::WithParamInterface<Watching> {
 protected:
  GrowingFile() {
    if (GetParam().inotifyInit != nullptr) injected_.emplace(&SystemCalls::inotifyInit, GetParam().inotifyInit);
    source = openSource();
  }

  bool isPolled() const { return GetParam().inotifyInit != nullptr; }

  std::unique_ptr<ByteSource> source;

 private:
  std::optional<InjectedSystemCall<int (*)(int)>> injected_;
};

INSTANTIATE_TEST_SUITE_P(By, GrowingFile, testing::ValuesIn(kWatching),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(GrowingFile, IsReadFromItsBeginningAndAsItGrows) {
  append(path, "old ");
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "old "; }));
  append(path, "new ");
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "old new "; }));
  append(path, "newer");
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "old new newer"; }));
  EXPECT_EQ(collector.ends(), 0);
}

TEST_P(GrowingFile, ReaderIsCalledOnlyWhenThereIsSomething) {
  const Collector collector(*source);
  drainFor(kAWhile);
  EXPECT_EQ(collector.calls(), 0);
  append(path, "abc");
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
  drainFor(kAWhile);
  EXPECT_EQ(collector.calls(), 1);
}

TEST_P(GrowingFile, ReaderIsCalledUntilEverythingIsRead) {
  const std::string sent = pattern(100'000);
  append(path, sent);
  const Collector collector(*source, 700);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size(); }));
  EXPECT_EQ(collector.bytes(), sent);
}

TEST_P(GrowingFile, WhatIsAppendedWhileNobodyReadsIsReadLater) {
  {
    const Collector collector(*source);
    append(path, "first ");
    ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "first "; }));
  }
  append(path, "second ");
  drainFor(kAWhile);
  append(path, "third");
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "second third"; }));
}

TEST_P(GrowingFile, ReadingNeverGivesAnEnd) {
  std::string buffer(10, '\0');
  for (int round = 0; round < 3; ++round) {
    const Transfer transfer = source->read(buffer);
    EXPECT_EQ(transfer.count, 0u);
    EXPECT_FALSE(transfer.end);
    EXPECT_FALSE(transfer.error);
  }
  EXPECT_EQ(source->read({}).count, 0u);
}

TEST_P(GrowingFile, ReaderMayDestroyTheSource) {
  append(path, "abc");
  bool called = false;
  const std::string held(100, 'x');
  source->watch([&, held] {
    source.reset();
    called = held.size() == 100;
  });
  ASSERT_TRUE(drainUntil([&] { return called; }));
  append(path, "more");
  drainFor(kAWhile);
}

TEST_P(GrowingFile, ReaderMayEndTheWatchAndBeginItAgain) {
  append(path, "abc");
  int calls = 0;
  std::function<void()> ready = [&] {
    ++calls;
    source->watch(ready);
    if (calls == 3) source->unwatch();
  };
  source->watch(ready);
  ASSERT_TRUE(drainUntil([&] { return calls == 3; }));
  drainFor(kAWhile);
  EXPECT_EQ(calls, 3);
}

struct Harm {
  const char* name;
  void (*happen)(const std::string& folder, const std::string& path);
  const char* reason;
};

void PrintTo(const Harm& harm, std::ostream* out) { *out << harm.name; }

const Harm kHarms[] = {
    {"Cut", [](const std::string&, const std::string& path) { fs::resize_file(path, 2); }, "the file was cut"},
    {"Emptied", [](const std::string&, const std::string& path) { writeFile(path, ""); }, "the file was cut"},
    {"Removed", [](const std::string&, const std::string& path) { fs::remove(path); }, "the file was removed"},
    {"MovedAway", [](const std::string&, const std::string& path) { fs::rename(path, path + "-away"); },
     "the file was removed"},
    {"Replaced",
     [](const std::string&, const std::string& path) {
       writeFile(path + "-other", "other");
       fs::rename(path + "-other", path);
     },
     "another file took its place"},
    {"RemovedAndMadeAnew",
     [](const std::string&, const std::string& path) {
       fs::rename(path, path + "-away");
       writeFile(path, "other");
     },
     "another file took its place"},
    {"FolderRemoved", [](const std::string& folder, const std::string&) { fs::remove_all(folder); },
     "the file was removed"},
    {"FolderMovedAway", [](const std::string& folder, const std::string&) { fs::rename(folder, folder + "-away"); },
     "the file was removed"},
};

class HarmedFile : public FileChannel, public testing::WithParamInterface<std::tuple<Watching, Harm>> {};

INSTANTIATE_TEST_SUITE_P(By, HarmedFile, testing::Combine(testing::ValuesIn(kWatching), testing::ValuesIn(kHarms)),
                         [](const auto& instance) {
                           return std::string(std::get<0>(instance.param).name) + std::get<1>(instance.param).name;
                         });

TEST_P(HarmedFile, GivesAnErrorWithinASecondAndOnce) {
  const auto& [watching, harm] = GetParam();
  std::optional<InjectedSystemCall<int (*)(int)>> injected;
  if (watching.inotifyInit != nullptr) injected.emplace(&SystemCalls::inotifyInit, watching.inotifyInit);
  const auto source = openSource();
  const Collector collector(*source);
  append(path, "read before");
  ASSERT_TRUE(drainUntil([&] { return collector.bytes() == "read before"; }));
  harm.happen(folder, path);
  // By a timer of the same loop, which a busy machine holds up as well.
  std::optional<bool> inTime;
  const auto timer = tks::platform::mainLoop().after(
      milliseconds(1000), [&] { tks::platform::mainLoop().post([&] { inTime = !collector.errors().empty(); }); });
  ASSERT_TRUE(drainUntil([&] { return inTime.has_value() || !collector.errors().empty(); }));
  EXPECT_TRUE(inTime.value_or(true));
  drainFor(kAWhile);
  ASSERT_EQ(collector.errors().size(), 1u);
  EXPECT_EQ(collector.errors()[0].localizedDescription, "read \"" + path + "\": " + harm.reason);
  EXPECT_EQ(collector.bytes(), "read before");
}

TEST_P(GrowingFile, WhatWasAppendedBeforeTheFileWasRemovedIsReadFirst) {
  const Collector collector(*source, 100);
  const std::string sent = pattern(1000);
  append(path, sent);
  fs::remove_all(folder);
  ASSERT_TRUE(drainUntil([&] { return !collector.errors().empty(); }));
  EXPECT_EQ(collector.bytes(), sent);
}

TEST_P(GrowingFile, FileThatIsRemovedBeforeItIsWatchedGivesAnError) {
  fs::remove(path);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return !collector.errors().empty(); }));
}

TEST_P(GrowingFile, OtherPermissionsAndNeighboursAreNoHarm) {
  const Collector collector(*source);
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  writeFile(folder + "/neighbour", "abc");
  fs::remove(folder + "/neighbour");
  drainFor(milliseconds(300));
  EXPECT_TRUE(collector.errors().empty());
  append(path, "abc");
  EXPECT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
}

TEST_P(GrowingFile, MessagesComeWithinTwentyMillisecondsAfterAPause) {
  const Collector collector(*source);
  for (int round = 0; round < 10; ++round) {
    drainFor(milliseconds(50 + 3 * round));
    const std::size_t before = collector.bytes().size();
    append(path, "abc");
    // Measured by a timer of the same loop, which a busy machine holds up as well.
    std::optional<bool> came;
    const auto timer = tks::platform::mainLoop().after(
        milliseconds(20), [&] { tks::platform::mainLoop().post([&] { came = collector.bytes().size() > before; }); });
    ASSERT_TRUE(drainUntil([&] { return came.has_value(); }));
    EXPECT_TRUE(*came);
  }
}

TEST_P(GrowingFile, IdleFileWakesTheHostSeldomOrNever) {
  const Collector collector(*source);
  drainFor(kAWhile);
  int wakeUps = 0;
  const auto end = std::chrono::steady_clock::now() + milliseconds(1000);
  while (std::chrono::steady_clock::now() < end) {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    if (::poll(&watched, 1, 100) <= 0) continue;
    ++wakeUps;
    TKSMainLoop::drain();
  }
  // Where nothing tells of changes, the longest pause between two looks is 15 ms.
  EXPECT_LE(wakeUps, isPolled() ? 70 : 0);
}

TEST_P(GrowingFile, SignalsThatInterruptItChangeNothing) {
  const auto sink = openSink();
  const Collector collector(*source, 1000);
  const std::string sent = pattern(500'000);
  const tks::test::SignalStorm storm;
  for (std::size_t at = 0; at < sent.size(); at += 1000) {
    EXPECT_EQ(sink->write(std::string_view(sent).substr(at, 1000)).count, 1000u);
    drainFor(milliseconds(0));
  }
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == sent.size() && storm.caught() > 20; }));
  EXPECT_EQ(collector.bytes(), sent);
}

TEST_P(GrowingFile, HandlesAreCloseOnExecAndGoneAfterwards) {
  tks::platform::mainLoop().descriptor();  // the loop makes its own descriptors
  source.reset();
  const auto before = openDescriptors();
  for (int round = 0; round < 1000; ++round) {
    const auto again = openSource();
    const auto sink = openSink();
    const Collector collector(*again);
    if (round % 100 == 0) drainFor(milliseconds(0));
    if (round > 0) continue;
    for (const int descriptor : openDescriptors()) {
      if (before.contains(descriptor)) continue;
      EXPECT_EQ(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
      EXPECT_GT(descriptor, 2);
    }
  }
  drainFor(milliseconds(0));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileChannel, NoInotifyHandleIsLeftWhereTheFolderCannotBeWatched) {
  // As when a user's watches are used up: the handle is there, the watch is refused.
  const InjectedSystemCall injected(&SystemCalls::inotifyInit,
                                    [](int) { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); });
  tks::platform::mainLoop().descriptor();  // the loop makes its own descriptors
  const auto source = openSource();
  const auto before = openDescriptors();
  const Collector collector(*source);
  EXPECT_EQ(openDescriptors(), before);
  append(path, "abc");
  EXPECT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
}

// Two processes

/// Appends messages of a size to a file through the library's sink, with pauses: path, number, size, pause in ms.
int playAppender(const tks::test::Arguments& arguments) {
  const auto sink = channels().fileSink(arguments[0], nullptr);
  if (!sink) return 2;
  const int number = std::stoi(arguments[1]);
  const std::size_t size = std::stoul(arguments[2]);
  for (int message = 0; message < number; ++message) {
    if (sink->write(std::string(size, static_cast<char>('a' + message % 26))).count != size) return 3;
    tks::platform::clock().sleep(milliseconds(std::stoi(arguments[3])));
  }
  return 0;
}
const tks::test::ChildRole appenderRole("file-appender", playAppender);

TEST_P(GrowingFile, CarriesWhatAnotherProcessAppends) {
  constexpr int kMessages = 300;
  constexpr std::size_t kSize = 777;
  auto child =
      tks::test::ChildProcess::inRole("file-appender", {path, std::to_string(kMessages), std::to_string(kSize), "1"});
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.bytes().size() == kMessages * kSize; }, std::chrono::seconds(30)));
  for (int message = 0; message < kMessages; ++message) {
    const std::string expected(kSize, static_cast<char>('a' + message % 26));
    ASSERT_EQ(collector.bytes().substr(static_cast<std::size_t>(message) * kSize, kSize), expected);
  }
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
