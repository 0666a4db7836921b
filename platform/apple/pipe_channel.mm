#include "platform/apple/pipe_channel.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/apple/descriptor_watch.h"
#include "platform/apple/guarded.h"
#include "platform/apple/single_call.h"
#include "platform/posix/posix_error.h"

namespace tks::platform::apple {
namespace {

bool isReady(int descriptor, short events) {
  pollfd entry{descriptor, events, 0};
  return posix::retried([&] { return poll(&entry, 1, 0); }) > 0;
}

/// Standard input, on a descriptor of its own. The other end of the pipe never sees a change of mode: a read is made
/// only when something is there.
class PipeSource final : public ByteSource {
 public:
  explicit PipeSource(posix::FileDescriptor descriptor) : descriptor_(shared(std::move(descriptor))) {}

  ChannelIdentity identity() const override { return identityOf(descriptor_->get()); }

  Transfer read(std::span<char> into) override {
    Transfer transfer;
    if (into.empty() || !isReady(descriptor_->get(), POLLIN)) return transfer;
    const ssize_t count = posix::retried([&] { return ::read(descriptor_->get(), into.data(), into.size()); });
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return transfer;
    if (count < 0) transfer = failed("read", "standard input");
    if (count <= 0) watch_.stop();
    transfer.count = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    transfer.end = count == 0;
    return transfer;
  }

  void watch(std::function<void()> ready) override {
    watch_.start(DISPATCH_SOURCE_TYPE_READ, descriptor_, 0, shared(std::move(ready)));
  }

  void unwatch() override { watch_.stop(); }

 private:
  SharedDescriptor descriptor_;
  Watch watch_;
};

/// Calls `ready` once on the main queue when there is room in a pipe, unless it is destroyed before.
class WaitForRoom {
 public:
  WaitForRoom(SharedDescriptor descriptor, std::function<void()> ready)
      : call_(std::make_shared<SingleCall>(std::move(ready))),
        source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_WRITE, static_cast<uintptr_t>(descriptor->get()), 0,
                                       dispatch_get_main_queue())) {
    dispatch_source_t source = source_;
    const std::shared_ptr<SingleCall> call = call_;
    dispatch_source_set_event_handler(source, ^{
      dispatch_source_cancel(source);
      runGuarded("watched descriptor", call->take());
    });
    dispatch_source_set_cancel_handler(source, ^{
      const SharedDescriptor kept = descriptor;
    });
    dispatch_resume(source);
  }
  WaitForRoom(const WaitForRoom&) = delete;
  WaitForRoom& operator=(const WaitForRoom&) = delete;
  ~WaitForRoom() {
    dispatch_source_cancel(source_);
    call_->take();
  }

  bool isOver() const { return dispatch_source_testcancel(source_) != 0; }

 private:
  std::shared_ptr<SingleCall> call_;
  dispatch_source_t source_;
};

/// Lets a descriptor not block for the time of one write. The mode belongs to the open file description, which others
/// may share, in this process and elsewhere: it is put back as soon as the write returned.
class WithoutBlocking {
 public:
  explicit WithoutBlocking(int descriptor)
      : lock_(writers()), descriptor_(descriptor), before_(fcntl(descriptor, F_GETFL)) {
    changed_ = before_ >= 0 && (before_ & O_NONBLOCK) == 0 && fcntl(descriptor, F_SETFL, before_ | O_NONBLOCK) == 0;
  }
  ~WithoutBlocking() {
    const int reason = errno;
    if (changed_) fcntl(descriptor_, F_SETFL, before_);
    errno = reason;
  }
  WithoutBlocking(const WithoutBlocking&) = delete;
  WithoutBlocking& operator=(const WithoutBlocking&) = delete;

  /// The most that a write may try: all, unless it could block. What poll calls writable takes PIPE_BUF bytes at least.
  std::size_t largestPiece() const { return changed_ || (before_ >= 0 && before_ & O_NONBLOCK) ? kPiece : PIPE_BUF; }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;

  /// One writer at a time puts a mode back that it has found, and not another writer's.
  static std::mutex& writers() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
  }

  std::lock_guard<std::mutex> lock_;
  int descriptor_;
  int before_;
  bool changed_ = false;
};

/// Standard output, on a descriptor of its own. F_SETNOSIGPIPE keeps the signal away from whoever writes to this pipe
/// or terminal here; the calls fail all the same.
class PipeSink final : public ByteSink {
 public:
  explicit PipeSink(posix::FileDescriptor descriptor) : descriptor_(shared(std::move(descriptor))) {
    fcntl(descriptor_->get(), F_SETNOSIGPIPE, 1);
  }

  ChannelIdentity identity() const override { return identityOf(descriptor_->get()); }

  Transfer write(std::span<const char> bytes) override {
    Transfer transfer;
    while (transfer.count < bytes.size() && isReady(descriptor_->get(), POLLOUT)) {
      const ssize_t count = writePiece(bytes.subspan(transfer.count));
      if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return transfer;
      if (count < 0) {
        // What was moved is told first; the next write gives the error again.
        if (transfer.count > 0) return transfer;
        transfer.end = errno == EPIPE;
        transfer.error = posix::posixError(errno, "write", "standard output");
        return transfer;
      }
      transfer.count += static_cast<std::size_t>(count);
    }
    return transfer;
  }

  /// The kernel grows its pipes by itself.
  void expect(std::size_t) override {}

  void whenWritable(std::function<void()> ready) override {
    const std::lock_guard lock(mutex_);
    std::erase_if(waits_, [](const std::unique_ptr<WaitForRoom>& wait) { return wait->isOver(); });
    waits_.push_back(std::make_unique<WaitForRoom>(descriptor_, std::move(ready)));
  }

 private:
  ssize_t writePiece(std::span<const char> bytes) const {
    const WithoutBlocking mode(descriptor_->get());
    const std::size_t size = std::min(bytes.size(), mode.largestPiece());
    return posix::retried([&] { return ::write(descriptor_->get(), bytes.data(), size); });
  }

  SharedDescriptor descriptor_;
  std::mutex mutex_;  // guards what follows
  std::vector<std::unique_ptr<WaitForRoom>> waits_;
};

}  // namespace

std::unique_ptr<ByteSource> makePipeSource(posix::FileDescriptor descriptor) {
  return std::make_unique<PipeSource>(std::move(descriptor));
}

std::shared_ptr<ByteSink> makePipeSink(posix::FileDescriptor descriptor) {
  return std::make_shared<PipeSink>(std::move(descriptor));
}

}  // namespace tks::platform::apple
