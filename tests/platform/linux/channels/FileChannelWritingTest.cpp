#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "platform/platform.h"
#include "tests/platform/linux/channels/FileChannelTest.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_view_literals;

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using tks::platform::channels;
using tks::platform::Transfer;
using tks::test::append;
using tks::test::contentOf;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FileChannel;
using tks::test::openDescriptors;
using tks::test::pattern;
using tks::test::TemporaryFolder;
using tks::test::writeFile;

constexpr milliseconds kAWhile(60);

// What is opened

struct Stranger {
  const char* name;
  std::function<void(const std::string& path)> make;
  const char* reason;
};

void PrintTo(const Stranger& stranger, std::ostream* out) { *out << stranger.name; }

const Stranger kStrangers[] = {
    {"Missing", [](const std::string& path) { fs::remove(path); }, "No such file or directory"},
    {"Link",
     [](const std::string& path) {
       fs::rename(path, path + "-target");
       fs::create_symlink(path + "-target", path);
     },
     "Too many levels of symbolic links"},
    {"SecondName", [](const std::string& path) { fs::create_hard_link(path, path + "-second"); }, "Too many links"},
    {"Fifo",
     [](const std::string& path) {
       fs::remove(path);
       ::mkfifo(path.c_str(), 0600);
     },
     nullptr},
    {"Folder",
     [](const std::string& path) {
       fs::remove(path);
       fs::create_directory(path);
     },
     nullptr},
    {"FileOfAnotherUser", [](const std::string& path) { ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0); },
     "Operation not permitted"},
};

class StrangeFile : public FileChannel, public testing::WithParamInterface<Stranger> {};

INSTANTIATE_TEST_SUITE_P(That, StrangeFile, testing::ValuesIn(kStrangers),
                         [](const auto& instance) { return std::string("IsA") + instance.param.name; });

TEST_P(StrangeFile, IsRefused) {
  if (GetParam().name == std::string("FileOfAnotherUser") && ::geteuid() != 0) GTEST_SKIP() << "needs root";
  GetParam().make(path);
  const auto before = openDescriptors();
  TKSError sourceError;
  TKSError sinkError;
  EXPECT_EQ(channels().fileSource(path, &sourceError), nullptr);
  EXPECT_EQ(channels().fileSink(path, &sinkError), nullptr);
  EXPECT_THAT(sourceError.localizedDescription, testing::StartsWith("open \"" + path + "\": "));
  EXPECT_THAT(sinkError.localizedDescription, testing::StartsWith("open \"" + path + "\": "));
  if (GetParam().reason != nullptr) {
    EXPECT_THAT(sourceError.localizedDescription, testing::EndsWith(GetParam().reason));
    EXPECT_THAT(sinkError.localizedDescription, testing::EndsWith(GetParam().reason));
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileChannel, BothEndsOfAFileHaveTheSameIdentity) {
  const auto source = openSource();
  EXPECT_EQ(source->identity(), openSink()->identity());
  writeFile(folder + "/other", "");
  EXPECT_NE(source->identity(), channels().fileSource(folder + "/other", nullptr)->identity());
}

// Writing

TEST_F(FileChannel, WritesAreAppendedAndOtherContentStays) {
  writeFile(path, "before ");
  const auto sink = openSink();
  EXPECT_EQ(sink->write("one "sv).count, 4u);
  append(path, "somebody else's ");
  sink->expect(100'000);
  EXPECT_EQ(sink->write(pattern(100'000)).count, 100'000u);
  EXPECT_EQ(contentOf(path), "before one somebody else's " + pattern(100'000));
}

TEST_F(FileChannel, IsAlwaysWritable) {
  const auto sink = openSink();
  int calls = 0;
  sink->whenWritable([&] { ++calls; });
  ASSERT_TRUE(drainUntil([&] { return calls > 0; }));
  drainFor(kAWhile);
  EXPECT_EQ(calls, 1);
}

/// A limit for the size of files, for a scope, with its signal at its default: it would end the test program.
class LargestFile {
 public:
  explicit LargestFile(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGXFSZ, &action, &actionBefore_);
  }
  ~LargestFile() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::sigaction(SIGXFSZ, &actionBefore_, nullptr);
  }
  LargestFile(const LargestFile&) = delete;
  LargestFile& operator=(const LargestFile&) = delete;

 private:
  rlimit before_{};
  struct sigaction actionBefore_ {};
};

TEST_F(FileChannel, FrameBeyondTheSizeLimitLeavesNothingBehindAndRaisesNoSignal) {
  const auto sink = openSink();
  EXPECT_EQ(sink->write("whole "sv).count, 6u);
  {
    const LargestFile limit(1000);
    const Transfer transfer = sink->write(pattern(5000));
    EXPECT_EQ(transfer.count, 0u);
    ASSERT_TRUE(transfer.error);
    EXPECT_EQ(transfer.error->localizedDescription, "write \"" + path + "\": File too large");
    EXPECT_EQ(contentOf(path), "whole ");
    EXPECT_EQ(sink->write(pattern(994)).count, 994u);
    EXPECT_EQ(sink->write("x"sv).count, 0u);
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGXFSZ), 0);
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGXFSZ), 0);
  }
  EXPECT_EQ(sink->write(" again"sv).count, 6u);
  EXPECT_EQ(contentOf(path), "whole " + pattern(994) + " again");
}

TEST_F(FileChannel, FrameThatAFullDiskRefusesLeavesNothingBehind) {
  const std::string disk = parent / "disk";
  fs::create_directory(disk);
  if (::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "needs the right to mount";
  const auto unmount = std::shared_ptr<void>(nullptr, [&](void*) { ::umount2(disk.c_str(), MNT_DETACH); });
  const std::string file = disk + "/messages";
  writeFile(file, "whole ");
  const auto sink = channels().fileSink(file, nullptr);
  ASSERT_NE(sink, nullptr);
  for (int round = 0; round < 3; ++round) {
    const Transfer transfer = sink->write(pattern(100'000));
    EXPECT_EQ(transfer.count, 0u);
    ASSERT_TRUE(transfer.error);
    EXPECT_EQ(transfer.error->localizedDescription, "write \"" + file + "\": No space left on device");
    EXPECT_EQ(contentOf(file), "whole ");
  }
  EXPECT_EQ(sink->write(pattern(1000)).count, 1000u);
  EXPECT_EQ(contentOf(file), "whole " + pattern(1000));
}

}  // namespace
