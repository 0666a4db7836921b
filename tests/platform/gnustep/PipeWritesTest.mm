#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/apple/pipe_channel.h"

// How pipes are written; what every channel promises stands in ChannelsTest.cpp.

namespace {

using tks::platform::ByteSink;
using tks::platform::Transfer;
using tks::posix::FileDescriptor;

/// How many writes this process has made so far.
std::uint64_t writesSoFar() {
  std::ifstream counters("/proc/self/io");
  std::uint64_t count = 0;
  for (std::string name; counters >> name >> count;) {
    if (name == "syscw:") return count;
  }
  return 0;
}

class PipeWrites : public testing::Test {
 protected:
  PipeWrites() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reader_ = FileDescriptor(ends[0]);
    writer_ = ends[1];
    sink_ = tks::platform::apple::makePipeSink(FileDescriptor(ends[1]));
  }
  int mode() const { return ::fcntl(writer_, F_GETFL); }

  FileDescriptor reader_;
  int writer_ = -1;
  std::shared_ptr<ByteSink> sink_;
};

TEST_F(PipeWrites, TenMebibytesTakeFewOfThem) {
  const std::string bytes(std::size_t{10} << 20, 'x');
  std::size_t received = 0;
  std::thread peer([&] {
    std::vector<char> piece(1 << 16);
    while (received < bytes.size())
      received += static_cast<std::size_t>(std::max<ssize_t>(::read(reader_.get(), piece.data(), piece.size()), 0));
  });
  const std::uint64_t before = writesSoFar();
  for (std::size_t sent = 0; sent < bytes.size();) {
    const Transfer transfer = sink_->write({bytes.data() + sent, bytes.size() - sent});
    ASSERT_FALSE(transfer.end || transfer.error);
    sent += transfer.count;
    if (transfer.count == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  EXPECT_LT(writesSoFar() - before, 2600) << "a page each at the least";
  peer.join();
  EXPECT_EQ(received, bytes.size());
}

TEST_F(PipeWrites, FullPipeIsNotWaitedForAndKeepsItsMode) {
  const int before = mode();
  ASSERT_EQ(before & O_NONBLOCK, 0);
  const std::string bytes(std::size_t{1} << 20, 'x');
  const Transfer transfer = sink_->write(bytes);
  EXPECT_GT(transfer.count, 0u);
  EXPECT_LT(transfer.count, bytes.size());
  EXPECT_EQ(mode(), before);
  EXPECT_EQ(sink_->write(bytes).count, 0u);
  EXPECT_EQ(mode(), before);
}

TEST_F(PipeWrites, ModeThatIsNotBlockingAlreadyStays) {
  ASSERT_EQ(::fcntl(writer_, F_SETFL, mode() | O_NONBLOCK), 0);
  const int before = mode();
  EXPECT_EQ(sink_->write(std::string(10, 'x')).count, 10u);
  EXPECT_EQ(mode(), before);
}

TEST_F(PipeWrites, ErrorIsToldAndTheModeIsPutBack) {
  const int before = mode();
  reader_.reset();
  const Transfer transfer = sink_->write(std::string(10, 'x'));
  EXPECT_TRUE(transfer.end);
  EXPECT_EQ(mode(), before);
}

}  // namespace
