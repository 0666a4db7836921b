#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/linux/channels/stream_channel.h"
#include "platform/platform.h"
#include "platform/posix/standard_handles.h"
#include "tests/support/TemporaryFolder.h"

namespace tks::test {

inline std::unique_ptr<platform::ByteSource> sourceOf(const posix::FileDescriptor& descriptor) {
  TKSError error;
  auto source = gnulinux::streamSource(descriptor.get(), "channel", &error);
  EXPECT_NE(source, nullptr) << error.localizedDescription;
  return source;
}

inline std::shared_ptr<platform::ByteSink> sinkOf(const posix::FileDescriptor& descriptor) {
  TKSError error;
  auto sink = gnulinux::streamSink(descriptor.get(), "channel", &error);
  EXPECT_NE(sink, nullptr) << error.localizedDescription;
  return sink;
}

inline void put(const posix::FileDescriptor& descriptor, std::string_view bytes) {
  ASSERT_EQ(::write(descriptor.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

inline std::string takeUpTo(const posix::FileDescriptor& descriptor, std::size_t most) {
  std::string bytes(most, '\0');
  const auto count = ::read(descriptor.get(), bytes.data(), bytes.size());
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

inline bool isReadable(const posix::FileDescriptor& descriptor) {
  pollfd watched{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
  return ::poll(&watched, 1, 0) == 1;
}

inline int flagsOf(const posix::FileDescriptor& descriptor) { return ::fcntl(descriptor.get(), F_GETFL); }

// The kinds of channels that a standard handle can stand for, as pairs of a reading and a writing end.

inline posix::Pipe socketPair() {
  int ends[2] = {-1, -1};
  ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  return {posix::FileDescriptor(ends[0]), posix::FileDescriptor(ends[1])};
}

inline posix::Pipe namedPipe() {
  const tks::test::TemporaryFolder folder;
  const std::string path = folder / "fifo";
  ::mkfifo(path.c_str(), 0600);
  posix::FileDescriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  posix::FileDescriptor writer(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  ::fcntl(reader.get(), F_SETFL, 0);
  return {std::move(reader), std::move(writer)};
}

/// A terminal that passes bytes through as they are, written to by the program that runs in it.
inline posix::Pipe terminal() {
  int control = -1;
  int terminal = -1;
  termios raw{};
  ::cfmakeraw(&raw);
  raw.c_cflag |= CREAD;
  if (::openpty(&control, &terminal, nullptr, &raw, nullptr) != 0) throw std::runtime_error("no terminal");
  return {posix::FileDescriptor(control), posix::FileDescriptor(terminal)};
}

}  // namespace tks::test
