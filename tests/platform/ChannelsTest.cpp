#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/HostLoop.h"

// What every implementation of the contract promises. On macOS dispatch sources tell when there is something to read or
// room to write, and a vnode source of changes to a file; a pipe holds 16 KiB, grows to 64 and takes what fits of a
// write that is not to block.

namespace {

using namespace std::string_view_literals;

using tks::platform::channels;
using tks::posix::FileDescriptor;
using tks::posix::makePipe;
using tks::posix::Pipe;
using tks::test::Collector;
using tks::test::drainUntil;

/// Puts something else in the place of a standard handle for a scope; nothing closes it.
class ReplacedHandle {
 public:
  ReplacedHandle(int number, int replacement) : number_(number), before_(::fcntl(number, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    if (replacement < 0) {
      ::close(number);
    } else {
      ::dup2(replacement, number);
    }
  }
  ~ReplacedHandle() {
    if (before_) {
      ::dup2(before_.get(), number_);
    } else {
      ::close(number_);
    }
  }
  ReplacedHandle(const ReplacedHandle&) = delete;
  ReplacedHandle& operator=(const ReplacedHandle&) = delete;

 private:
  int number_;
  FileDescriptor before_;
};

TEST(Channels, StandardInputReadsWhatStandsOnDescriptorZero) {
  const Pipe pipe = makePipe();
  const ReplacedHandle input(STDIN_FILENO, pipe.reader.get());
  const auto source = channels().standardInput(nullptr);
  ASSERT_NE(source, nullptr);
  const Collector collector(*source);
  ASSERT_EQ(::write(pipe.writer.get(), "abc", 3), 3);
  EXPECT_TRUE(drainUntil([&] { return collector.bytes() == "abc"; }));
}

TEST(Channels, StandardOutputWritesToWhatStandsOnDescriptorOne) {
  const Pipe pipe = makePipe();
  std::size_t count = 0;
  {
    const ReplacedHandle output(STDOUT_FILENO, pipe.writer.get());
    if (const auto sink = channels().standardOutput(nullptr)) count = sink->write("abc"sv).count;
  }
  EXPECT_EQ(count, 3u);
  std::string bytes(10, '\0');
  EXPECT_EQ(::read(pipe.reader.get(), bytes.data(), bytes.size()), 3);
  EXPECT_EQ(bytes.substr(0, 3), "abc");
}

TEST(Channels, ProcessWithoutStandardHandlesGetsAnError) {
  TKSError inputError;
  TKSError outputError;
  bool none = false;
  {
    const ReplacedHandle input(STDIN_FILENO, -1);
    const ReplacedHandle output(STDOUT_FILENO, -1);
    none = channels().standardInput(&inputError) == nullptr && channels().standardOutput(&outputError) == nullptr;
  }
  EXPECT_TRUE(none);
  EXPECT_EQ(inputError.localizedDescription, "open \"standard input\": Bad file descriptor");
  EXPECT_EQ(outputError.localizedDescription, "open \"standard output\": Bad file descriptor");
}

}  // namespace
