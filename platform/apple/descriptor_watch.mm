#import "platform/apple/descriptor_watch.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "platform/apple/guarded.h"
#include "platform/posix/posix_error.h"

namespace tks::platform::apple {

SharedDescriptor shared(posix::FileDescriptor descriptor) {
  return std::make_shared<const posix::FileDescriptor>(std::move(descriptor));
}

Callback shared(std::function<void()> ready) { return std::make_shared<const std::function<void()>>(std::move(ready)); }

ChannelIdentity identityOf(int descriptor) {
  struct stat information {};
  if (fstat(descriptor, &information) != 0) return {};
  return {static_cast<std::uint64_t>(information.st_dev), information.st_ino};
}

Transfer failed(std::string_view step, std::string_view what) {
  Transfer transfer;
  transfer.error = posix::posixError(errno, step, what);
  return transfer;
}

dispatch_source_t makeSource(dispatch_source_type_t type, SharedDescriptor descriptor, unsigned long mask,
                             Callback ready) {
  const auto handle = descriptor ? static_cast<uintptr_t>(descriptor->get()) : 0;
  dispatch_source_t source = dispatch_source_create(type, handle, mask, dispatch_get_main_queue());
  if (source == nil) return nil;
  dispatch_source_set_event_handler(source, ^{
    // The callback may destroy whoever holds it: keep it alive until it returns.
    const Callback kept = ready;
    runGuarded("watched descriptor", *kept);
  });
  dispatch_source_set_cancel_handler(source, ^{
    const SharedDescriptor kept = descriptor;
  });
  dispatch_resume(source);
  return source;
}

}  // namespace tks::platform::apple
