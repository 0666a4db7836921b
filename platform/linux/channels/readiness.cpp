#include "platform/linux/channels/readiness.h"

#include <poll.h>
#include <sys/epoll.h>

#include <chrono>
#include <utility>

#include "foundation/logging/Logging.h"

namespace tks::gnulinux {

/// Looks at a descriptor from a timer: again at once while it is ready, else after a moment.
class Readiness::Polling : public std::enable_shared_from_this<Polling> {
 public:
  Polling(int descriptor, std::uint32_t events, bool once, std::function<void()> ready)
      : descriptor_(descriptor), events_(events), once_(once), ready_(std::move(ready)) {}

  void lookAfter(std::chrono::milliseconds delay) {
    timer_ = EventLoop::main().after(delay, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->look();
    });
  }

  void stop() { timer_.reset(); }

 private:
  static constexpr std::chrono::milliseconds kAtOnce{0};
  static constexpr std::chrono::milliseconds kAMoment{10};

  bool isReady() const {
    pollfd watched{};
    watched.fd = descriptor_;
    watched.events = events_ == EPOLLIN ? POLLIN : POLLOUT;
    return ::poll(&watched, 1, 0) > 0;
  }

  void look() {
    const bool ready = isReady();
    if (ready && once_) return take(ready_)();
    lookAfter(ready ? kAtOnce : kAMoment);
    if (ready) ready_();
  }

  int descriptor_;
  std::uint32_t events_;
  bool once_;
  std::function<void()> ready_;
  std::unique_ptr<platform::MainLoop::Timer> timer_;
};

void Readiness::watch(std::function<void()> ready) {
  unwatch();
  auto shared = std::make_shared<std::function<void()>>(std::move(ready));
  watch_ = EventLoop::main().watch(descriptor_, events_, [this, shared](std::uint32_t events) {
    // The one who is called finds out whether the descriptor itself is gone.
    if (events == EventLoop::kLost) watch(*shared);
    (*shared)();
  });
  if (watch_) return;
  polling_ = std::make_shared<Polling>(descriptor_, events_, false, std::move(*shared));
  polling_->lookAfter(std::chrono::milliseconds(0));
}

void Readiness::once(std::function<void()> ready) {
  unwatch();
  auto shared = std::make_shared<std::function<void()>>(std::move(ready));
  watch_ = EventLoop::main().watch(descriptor_, events_ | EPOLLONESHOT, [shared](std::uint32_t) {
    if (*shared) take (*shared)();
  });
  if (watch_) return;
  polling_ = std::make_shared<Polling>(descriptor_, events_, true, std::move(*shared));
  polling_->lookAfter(std::chrono::milliseconds(0));
}

void Readiness::unwatch() {
  watch_.reset();
  if (polling_) polling_->stop();
  polling_.reset();
}

}  // namespace tks::gnulinux
