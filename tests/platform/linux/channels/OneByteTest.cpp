#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "platform/linux/channels/stream_channel.h"
#include "platform/platform.h"
#include "platform/posix/file_descriptor.h"
#include "tests/support/ChannelEnds.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/TemporaryFolder.h"

// Programs in which no read and no write moves more than one byte.

namespace {

using tks::platform::channels;
using tks::posix::FileDescriptor;
using tks::test::Arguments;
using tks::test::ChildProcess;
using tks::test::ChildRole;
using tks::test::Collector;
using tks::test::contentOf;
using tks::test::drainUntil;
using tks::test::Feeder;
using tks::test::pattern;

constexpr std::size_t kBytes = 20'000;
constexpr std::chrono::seconds kLimit(30);

bool shimIsInForce() {
  using Count = unsigned long (*)();
  const auto count = reinterpret_cast<Count>(::dlsym(RTLD_DEFAULT, "tksCappedCalls"));
  return count != nullptr && count() > 1000;
}

/// Reads a FIFO to its end and writes what came to another one: their paths.
int playStream(const Arguments& arguments) {
  const FileDescriptor input(::open(arguments[0].c_str(), O_RDONLY | O_CLOEXEC));
  FileDescriptor output(::open(arguments[1].c_str(), O_WRONLY | O_CLOEXEC));
  const auto source = tks::gnulinux::streamSource(input.get(), "input", nullptr);
  const auto sink = tks::gnulinux::streamSink(output.get(), "output", nullptr);
  const Collector collector(*source);
  if (!drainUntil([&] { return collector.ends() > 0; }, kLimit)) return 2;
  Feeder feeder(*sink, collector.bytes());
  if (!drainUntil([&] { return feeder.done(); }, kLimit)) return 3;
  return shimIsInForce() ? 0 : 4;
}
const ChildRole streamRole("one-byte-stream", playStream);

/// Copies a growing file into another one: their paths and the size.
int playFile(const Arguments& arguments) {
  const auto source = channels().fileSource(arguments[0], nullptr);
  const auto sink = channels().fileSink(arguments[1], nullptr);
  if (!source || !sink) return 2;
  const Collector collector(*source);
  if (!drainUntil([&] { return collector.bytes().size() >= kBytes; }, kLimit)) return 3;
  if (sink->write(collector.bytes()).count != kBytes) return 4;
  return shimIsInForce() ? 0 : 5;
}
const ChildRole fileRole("one-byte-file", playFile);

ChildProcess start(std::string_view role, const Arguments& arguments) {
  return ChildProcess::inRole(role, arguments, {std::string("LD_PRELOAD=") + TKS_ONE_BYTE_SHIM});
}

TEST(OneByteAtATime, PipesCarryEverything) {
  const tks::test::TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "there").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo((folder / "back").c_str(), 0600), 0);
  auto child = start("one-byte-stream", {folder / "there", folder / "back"});
  FileDescriptor there(::open((folder / "there").c_str(), O_WRONLY | O_CLOEXEC));
  const FileDescriptor back(::open((folder / "back").c_str(), O_RDONLY | O_CLOEXEC));
  const std::string sent = pattern(kBytes);
  ASSERT_EQ(::write(there.get(), sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  there.reset();
  const auto source = tks::gnulinux::streamSource(back.get(), "back", nullptr);
  const Collector collector(*source);
  ASSERT_TRUE(drainUntil([&] { return collector.ends() > 0; }, kLimit));
  EXPECT_TRUE(collector.bytes() == sent);
  EXPECT_EQ(child.wait(), 0);
}

TEST(OneByteAtATime, FilesAreReadAndAppendedWhole) {
  const tks::test::TemporaryFolder folder;
  tks::test::writeFile(folder / "there", pattern(kBytes).substr(0, kBytes / 2));
  tks::test::writeFile(folder / "back", "");
  auto child = start("one-byte-file", {folder / "there", folder / "back"});
  const auto sink = channels().fileSink(folder / "there", nullptr);
  EXPECT_EQ(sink->write(std::string_view(pattern(kBytes)).substr(kBytes / 2)).count, kBytes / 2);
  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(contentOf(folder / "back") == pattern(kBytes));
}

}  // namespace
