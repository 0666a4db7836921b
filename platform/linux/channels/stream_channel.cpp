#include "platform/linux/channels/stream_channel.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/channels/held_signal.h"
#include "platform/linux/channels/own_descriptor.h"
#include "platform/linux/channels/readiness.h"
#include "platform/linux/loop/system_calls.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::gnulinux {
namespace {

using platform::ChannelIdentity;
using platform::Transfer;

/// How a descriptor is used without ever waiting.
enum class Manner {
  /// Through an open file description of our own that does not wait.
  nonBlocking,
  /// By calls that can be told not to wait.
  socket,
  /// By asking first. For everything else; for pipes of other users, which cannot be opened again; and for pipes whose
  /// writers are gone.
  asking,
};

/// A descriptor of our own for what a standard handle stands for.
struct Stream {
  OwnDescriptor descriptor;
  Manner manner = Manner::asking;
  bool isPipe = false;
  ChannelIdentity identity;
};

/// Whether a descriptor was opened for the direction (O_RDONLY or O_WRONLY).
bool isOpenFor(int descriptor, int direction) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags == -1) return false;
  const int access = flags & O_ACCMODE;
  if (access == O_RDWR || access == direction) return true;
  errno = EBADF;
  return false;
}

/// Opens what a descriptor stands for once more. Non-blocking mode belongs to the open file description, which the host
/// and other processes share with us: setting it there would change their reads and writes.
posix::FileDescriptor openedAgain(int descriptor, int direction) {
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  posix::FileDescriptor again(
      posix::retried([&] { return ::open(path.c_str(), direction | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); }));
  if (!posix::raiseAboveStandard(again)) again.reset();
  return again;
}

/// Whether opening a descriptor again gives the same channel. The controlling end of a pseudo-terminal would give a new
/// pseudo-terminal.
bool canBeOpenedAgain(int descriptor, mode_t mode) {
  unsigned number = 0;
  return S_ISFIFO(mode) || (::isatty(descriptor) == 1 && ::ioctl(descriptor, TIOCGPTN, &number) != 0);
}

/// Whether the writers of a pipe are gone. A description that is opened after they went is never told so by poll, as if
/// it were waiting for the first one.
bool isHungUp(int descriptor) {
  pollfd watched{};
  watched.fd = descriptor;
  return posix::retried([&] { return ::poll(&watched, 1, 0); }) > 0 && (watched.revents & POLLHUP) != 0;
}

std::optional<Stream> openStream(int descriptor, int direction) {
  struct stat facts {};
  if (!isOpenFor(descriptor, direction) || ::fstat(descriptor, &facts) != 0) return std::nullopt;
  Stream stream;
  stream.isPipe = S_ISFIFO(facts.st_mode);
  stream.identity = {static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino)};
  if (canBeOpenedAgain(descriptor, facts.st_mode)) {
    stream.descriptor = OwnDescriptor(openedAgain(descriptor, direction));
  }
  if (stream.descriptor && !(direction == O_RDONLY && isHungUp(descriptor))) {
    stream.manner = Manner::nonBlocking;
    return stream;
  }
  stream.manner = S_ISSOCK(facts.st_mode) ? Manner::socket : Manner::asking;
  stream.descriptor = OwnDescriptor(posix::FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)));
  if (!stream.descriptor) return std::nullopt;
  return stream;
}

bool isReady(int descriptor, short events) {
  pollfd watched{};
  watched.fd = descriptor;
  watched.events = events;
  return posix::retried([&] { return ::poll(&watched, 1, 0); }) > 0;
}

bool isMomentary(int number) { return number == EAGAIN || number == EWOULDBLOCK; }

/// The size up to which a pipe may be enlarged without rights.
std::size_t largestPipe() {
  static const std::size_t largest = [] {
    std::size_t bytes = 0;
    std::ifstream("/proc/sys/fs/pipe-max-size") >> bytes;
    return std::clamp(bytes, std::size_t{PIPE_BUF}, std::size_t{INT_MAX / 2 + 1});
  }();
  return largest;
}

/// What a pipe holds, enlarged when that pays: each time it is full or empty, one side waits for the other.
class PipeRoom {
 public:
  explicit PipeRoom(const Stream& stream) : descriptor_(stream.descriptor.get()) {
    const int bytes = stream.isPipe ? ::fcntl(descriptor_, F_GETPIPE_SZ) : -1;
    bytes_ = bytes > 0 ? static_cast<std::size_t>(bytes) : kFixed;
  }

  std::size_t bytes() const { return bytes_; }

  void enlargeTo(std::size_t wanted) {
    if (wanted <= bytes_) return;
    const std::size_t most = largestPipe();
    const std::size_t next = wanted < most ? std::bit_ceil(wanted) : most;
    // The other end may have enlarged it already; it is never made smaller.
    const int now = ::fcntl(descriptor_, F_GETPIPE_SZ);
    const int got = now >= static_cast<int>(next) ? now : ::fcntl(descriptor_, F_SETPIPE_SZ, static_cast<int>(next));
    bytes_ = got <= 0 || static_cast<std::size_t>(got) >= most ? kFixed : static_cast<std::size_t>(got);
  }

 private:
  static constexpr std::size_t kFixed = std::numeric_limits<std::size_t>::max();

  int descriptor_;
  /// As large as it gets: kFixed.
  std::size_t bytes_;
};

class StreamSource final : public platform::ByteSource {
 public:
  StreamSource(Stream stream, const char* name)
      : stream_(std::move(stream)), room_(stream_), name_(name), readiness_(stream_.descriptor.get(), EPOLLIN) {}

  ChannelIdentity identity() const override { return stream_.identity; }

  Transfer read(std::span<char> into) override {
    if (into.empty()) return {};
    const auto got = posix::retried([&] { return readOnce(into); });
    if (got > 0) {
      const auto count = static_cast<std::size_t>(got);
      if (count >= room_.bytes()) room_.enlargeTo(largestPipe());
      return {.count = count, .end = false, .error = {}};
    }
    if (got < 0 && isMomentary(errno)) return {};
    Transfer last{.count = 0, .end = got == 0, .error = {}};
    if (got < 0) last.error = posix::posixError(errno, "read", name_);
    readiness_.unwatch();
    return last;
  }

  void watch(std::function<void()> ready) override { readiness_.watch(std::move(ready)); }
  void unwatch() override { readiness_.unwatch(); }

 private:
  ssize_t readOnce(std::span<char> into) const {
    const int descriptor = stream_.descriptor.get();
    if (stream_.manner == Manner::socket) return ::recv(descriptor, into.data(), into.size(), MSG_DONTWAIT);
    if (stream_.manner == Manner::asking && !isReady(descriptor, POLLIN)) {
      errno = EAGAIN;
      return -1;
    }
    return ::read(descriptor, into.data(), into.size());
  }

  Stream stream_;
  PipeRoom room_;
  const char* name_;
  Readiness readiness_;  // last: destroyed before the descriptor is closed
};

class StreamSink final : public platform::ByteSink {
 public:
  StreamSink(Stream stream, const char* name)
      : stream_(std::move(stream)), room_(stream_), name_(name), readiness_(stream_.descriptor.get(), EPOLLOUT) {}

  ChannelIdentity identity() const override { return stream_.identity; }

  Transfer write(std::span<const char> bytes) override {
    Transfer done;
    while (done.count < bytes.size()) {
      const auto rest = bytes.subspan(done.count);
      const auto wrote = posix::retried([&] { return writeOnce(rest); });
      if (wrote <= 0) {
        if (done.count == 0 && wrote < 0 && !isMomentary(errno)) {
          done.end = errno == EPIPE;
          done.error = posix::posixError(errno, "write", name_);
        }
        return done;
      }
      done.count += static_cast<std::size_t>(wrote);
    }
    return done;
  }

  void expect(std::size_t size) override { room_.enlargeTo(size); }
  void whenWritable(std::function<void()> ready) override { readiness_.once(std::move(ready)); }

 private:
  ssize_t writeOnce(std::span<const char> bytes) {
    const int descriptor = stream_.descriptor.get();
    switch (stream_.manner) {
      case Manner::socket:
        return ::send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      case Manner::nonBlocking:
        return writeQuietly(bytes);
      case Manner::asking:
        if (isReady(descriptor, POLLOUT)) {
          // A pipe that is ready takes this much without waiting.
          return writeQuietly(bytes.first(std::min<std::size_t>(bytes.size(), PIPE_BUF)));
        }
        errno = EAGAIN;
        return -1;
    }
    return -1;
  }

  /// Writes without SIGPIPE: by one call where the kernel has it, else with the signal held back. A file as standard
  /// output may raise SIGXFSZ, which that call does not cover.
  ssize_t writeQuietly(std::span<const char> bytes) {
    const int descriptor = stream_.descriptor.get();
    if (stream_.isPipe && writesWithoutSignal_) {
      const ssize_t wrote = systemCalls().writeWithoutSignal(descriptor, bytes.data(), bytes.size());
      if (wrote >= 0 || errno == EINTR || errno == EPIPE || isMomentary(errno)) return wrote;
      writesWithoutSignal_ = false;
    }
    HeldSignal brokenPipe(SIGPIPE);
    HeldSignal fileTooLarge(SIGXFSZ);
    const ssize_t wrote = ::write(descriptor, bytes.data(), bytes.size());
    if (wrote < 0 && errno == EPIPE) brokenPipe.takeBack();
    if (wrote < 0 && errno == EFBIG) fileTooLarge.takeBack();
    return wrote;
  }

  Stream stream_;
  PipeRoom room_;
  const char* name_;
  bool writesWithoutSignal_ = true;
  Readiness readiness_;  // last: destroyed before the descriptor is closed
};

}  // namespace

std::unique_ptr<platform::ByteSource> streamSource(int descriptor, const char* name, TKSError* error) {
  std::optional<Stream> stream = openStream(descriptor, O_RDONLY);
  if (stream) return std::make_unique<StreamSource>(*std::move(stream), name);
  posix::fail(error, "open", name);
  return nullptr;
}

std::shared_ptr<platform::ByteSink> streamSink(int descriptor, const char* name, TKSError* error) {
  std::optional<Stream> stream = openStream(descriptor, O_WRONLY);
  if (stream) return std::make_shared<StreamSink>(*std::move(stream), name);
  posix::fail(error, "open", name);
  return nullptr;
}

}  // namespace tks::gnulinux
