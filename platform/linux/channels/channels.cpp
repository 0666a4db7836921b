#include "platform/channels.h"

#include "platform/backend.h"
#include "platform/linux/channels/file_channel.h"
#include "platform/linux/channels/stream_channel.h"
#include "platform/posix/standard_handles.h"

namespace tks::platform {
namespace {

class LinuxChannels final : public Channels {
 public:
  std::unique_ptr<ByteSource> standardInput(TKSError* error) override {
    posix::StandardHandles::shared().beginTalk();
    return posix::StandardHandles::shared().withTalk(
        [&](int input, int) { return gnulinux::streamSource(input, "standard input", error); });
  }

  std::shared_ptr<ByteSink> standardOutput(TKSError* error) override {
    posix::StandardHandles::shared().beginTalk();
    return posix::StandardHandles::shared().withTalk(
        [&](int, int output) { return gnulinux::streamSink(output, "standard output", error); });
  }

  void endOfTalk(const ChannelIdentity& input, bool inGoodOrder) override {
    posix::StandardHandles::shared().endTalk(input, inGoodOrder);
  }

  std::unique_ptr<ByteSource> fileSource(std::string_view path, TKSError* error) override {
    return gnulinux::fileSource(path, error);
  }

  std::shared_ptr<ByteSink> fileSink(std::string_view path, TKSError* error) override {
    return gnulinux::fileSink(path, error);
  }
};

}  // namespace

template <>
Channels& backend<Channels>() {
  static auto& channels = *new LinuxChannels;
  return channels;
}

}  // namespace tks::platform
