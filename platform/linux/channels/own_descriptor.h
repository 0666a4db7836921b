#pragma once

#include <sys/stat.h>

#include <utility>

#include "platform/channels.h"
#include "platform/linux/loop/event_loop.h"
#include "platform/posix/file_descriptor.h"

namespace tks::gnulinux {

/// A descriptor of a channel that lives as long as a conversation, in which a host may close it by mistake. Once the
/// main loop has found its own descriptors closed, this one is looked at before it is used again: when it does not
/// stand for the same object any more it is gone, and the number belongs to its new owner.
class OwnDescriptor {
 public:
  OwnDescriptor() = default;
  explicit OwnDescriptor(posix::FileDescriptor descriptor)
      : descriptor_(std::move(descriptor)), identity_(identityOf(descriptor_.get())), losses_(EventLoop::losses()) {}
  OwnDescriptor(OwnDescriptor&&) noexcept = default;
  OwnDescriptor& operator=(OwnDescriptor&& other) noexcept {
    get();
    descriptor_ = std::move(other.descriptor_);
    identity_ = other.identity_;
    losses_ = other.losses_;
    return *this;
  }
  ~OwnDescriptor() { get(); }

  /// -1 when it is gone, so that every call with it fails.
  int get() const {
    if (losses_ != EventLoop::losses() && descriptor_) {
      losses_ = EventLoop::losses();
      if (identityOf(descriptor_.get()) != identity_) descriptor_.release();
    }
    return descriptor_.get();
  }
  explicit operator bool() const { return get() >= 0; }

 private:
  static platform::ChannelIdentity identityOf(int descriptor) {
    struct stat facts {};
    if (descriptor < 0 || ::fstat(descriptor, &facts) != 0) return {};
    return {static_cast<std::uint64_t>(facts.st_dev), static_cast<std::uint64_t>(facts.st_ino)};
  }

  mutable posix::FileDescriptor descriptor_;
  platform::ChannelIdentity identity_;
  mutable unsigned losses_ = 0;
};

}  // namespace tks::gnulinux
