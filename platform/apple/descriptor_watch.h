#pragma once

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <string_view>

#include "platform/channels.h"
#include "platform/posix/file_descriptor.h"

namespace tks::platform::apple {

using SharedDescriptor = std::shared_ptr<const posix::FileDescriptor>;
using Callback = std::shared_ptr<const std::function<void()>>;

SharedDescriptor shared(posix::FileDescriptor descriptor);
Callback shared(std::function<void()> ready);

/// What the system knows a pipe or a file by.
ChannelIdentity identityOf(int descriptor);

/// A transfer that failed by what errno says.
Transfer failed(std::string_view step, std::string_view what);

/// A source that calls `ready` on the main queue until it is cancelled. It keeps the descriptor open until the system
/// has let go of it. Both are taken by value, for a block would keep no more than the address of a reference's object.
dispatch_source_t makeSource(dispatch_source_type_t type, SharedDescriptor descriptor, unsigned long mask,
                             Callback ready);

/// Calls `ready` on the main queue for as long as it exists and has something to tell.
class Watch {
 public:
  void start(dispatch_source_type_t type, const SharedDescriptor& descriptor, unsigned long mask,
             const Callback& ready) {
    stop();
    source_ = makeSource(type, descriptor, mask, ready);
  }
  /// Makes a source of counts tell.
  void announce() {
    if (source_ != nil) dispatch_source_merge_data(source_, 1);
  }
  void stop() {
    if (source_ != nil) dispatch_source_cancel(source_);
    source_ = nil;
  }
  Watch() = default;
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { stop(); }

 private:
  dispatch_source_t source_ = nil;
};

}  // namespace tks::platform::apple
