#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/channels/stream_channel.h"
#include "platform/platform.h"

namespace tks::test {

/// A real pipe.
class Pipe {
 public:
  Pipe() {
    if (::pipe2(ends_.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    closeReader();
    closeWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }
  void closeReader() { close(ends_[0]); }
  void closeWriter() { close(ends_[1]); }

  /// Writes everything, waiting for the reader; false when the reader is gone or has stopped reading.
  bool write(std::string_view bytes) const {
    while (!bytes.empty()) {
      if (!becomes(ends_[1], POLLOUT)) return false;
      // As much as a pipe with room takes without waiting.
      const ssize_t count = ::write(ends_[1], bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
      if (count < 0 && errno != EINTR) return false;
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  /// Reads as many bytes, waiting for the writer; fewer when the writer is gone or has stopped writing.
  std::string read(std::size_t size) const {
    std::string bytes(size, '\0');
    std::size_t have = 0;
    while (have < size && becomes(ends_[0], POLLIN)) {
      const ssize_t count = ::read(ends_[0], bytes.data() + have, size - have);
      if (count == 0 || (count < 0 && errno != EINTR)) break;
      if (count > 0) have += static_cast<std::size_t>(count);
    }
    bytes.resize(have);
    return bytes;
  }

  /// The payload of the next frame.
  std::string readFrame() const {
    const std::string header = read(4);
    std::size_t length = 0;
    for (std::size_t i = 0; i < header.size(); ++i) {
      length |= static_cast<std::size_t>(static_cast<unsigned char>(header[i])) << (8 * i);
    }
    return read(length);
  }

 private:
  /// A test that fails at one end of a pipe must not wait at the other end for ever, nor for each of many frames.
  bool becomes(int descriptor, short ready) const {
    constexpr int kPatience = 30'000;
    if (isGivenUp_) return false;
    if (descriptor < 0) return true;  // the call says so
    pollfd wanted{.fd = descriptor, .events = ready, .revents = 0};
    int count = 0;
    do {
      count = ::poll(&wanted, 1, kPatience);
    } while (count < 0 && errno == EINTR);
    isGivenUp_ = count <= 0;
    return count > 0;
  }
  static void close(int& end) {
    if (end >= 0) ::close(std::exchange(end, -1));
  }
  std::array<int, 2> ends_{-1, -1};
  mutable std::atomic<bool> isGivenUp_ = false;
};

/// Real pipes in place of the standard input and output of this process, for a scope; a test plays the launcher at
/// their other ends. Files stay what they are.
class PipeChannels final : public platform::Channels {
 public:
  /// The launcher writes into it, the host reads.
  std::shared_ptr<Pipe> input = std::make_shared<Pipe>();
  /// The host writes into it, the launcher reads.
  std::shared_ptr<Pipe> output = std::make_shared<Pipe>();

  std::unique_ptr<platform::ByteSource> standardInput(TKSError* error) override {
    return gnulinux::streamSource(input->reader(), "standard input", error);
  }
  std::shared_ptr<platform::ByteSink> standardOutput(TKSError* error) override {
    return gnulinux::streamSink(output->writer(), "standard output", error);
  }
  void endOfTalk(const platform::ChannelIdentity&, bool) override {}
  std::unique_ptr<platform::ByteSource> fileSource(std::string_view path, TKSError* error) override {
    return replaced_.before().fileSource(path, error);
  }
  std::shared_ptr<platform::ByteSink> fileSink(std::string_view path, TKSError* error) override {
    return replaced_.before().fileSink(path, error);
  }

  /// The launcher dies: the kernel closes its ends. The host's own copies stay, as standard input and output do.
  void launcherDies() const {
    input->closeWriter();
    output->closeReader();
  }

 private:
  platform::Replaced<platform::Channels> replaced_{*this};
};

}  // namespace tks::test
