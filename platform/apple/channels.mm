#include "platform/channels.h"

#include <fcntl.h>

#include <utility>

#include "platform/apple/file_channel.h"
#include "platform/apple/pipe_channel.h"
#include "platform/backend.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::platform {
namespace {

posix::FileDescriptor copyOf(int descriptor) { return posix::FileDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)); }

/// Private copies of the descriptors that a conversation goes over, which a later launch may replace.
posix::FileDescriptor copyOfInput() {
  return posix::StandardHandles::shared().withTalk([](int input, int) { return copyOf(input); });
}
posix::FileDescriptor copyOfOutput() {
  return posix::StandardHandles::shared().withTalk([](int, int output) { return copyOf(output); });
}

class AppleChannels final : public Channels {
 public:
  std::unique_ptr<ByteSource> standardInput(TKSError* error) override {
    posix::StandardHandles::shared().beginTalk();
    posix::FileDescriptor descriptor = copyOfInput();
    if (descriptor) return apple::makePipeSource(std::move(descriptor));
    posix::fail(error, "open", "standard input");
    return nullptr;
  }

  std::shared_ptr<ByteSink> standardOutput(TKSError* error) override {
    posix::StandardHandles::shared().beginTalk();
    posix::FileDescriptor descriptor = copyOfOutput();
    if (descriptor) return apple::makePipeSink(std::move(descriptor));
    posix::fail(error, "open", "standard output");
    return nullptr;
  }

  void endOfTalk(const ChannelIdentity& input, bool inGoodOrder) override {
    posix::StandardHandles::shared().endTalk(input, inGoodOrder);
  }

  std::unique_ptr<ByteSource> fileSource(std::string_view path, TKSError* error) override {
    return apple::makeFileSource(path, error);
  }

  std::shared_ptr<ByteSink> fileSink(std::string_view path, TKSError* error) override {
    return apple::makeFileSink(path, error);
  }
};

}  // namespace

template <>
Channels& backend<Channels>() {
  static auto& channels = *new AppleChannels;
  return channels;
}

}  // namespace tks::platform
