// Any bytes as the input of a channel, cut into reads of any size: the pieces that a reader hands out keep its promises
// and join to the input, and the transport takes each of them.
//
// The first byte says how many of the next ones are sizes of reads; the rest is what arrives.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tksinterface/TKSMessageHost.h>

#include "messaging/Frame.h"

namespace {

using tks::messaging::kHeaderBytes;
using tks::messaging::largestMessage;

void require(bool condition) {
  if (!condition) std::abort();
}

/// Takes what the transport makes of the pieces.
class Listener : public TKSMessageHandlerDelegate {
 public:
  void handleMessage(const TKSMessage& message, TKSMessageHandlerDelegate* sender) override {
    require(sender == this && message.messageType.has_value());
    require(message.message.isText() || message.message.isDictionary());
  }
  void handleMessageHostFatalError(const std::string& description) override { require(!description.empty()); }
};

/// Follows the frames by a way of its own.
class Follower {
 public:
  void check(std::string_view piece, bool ended) {
    require(!piece.empty() && piece.size() <= std::max<std::uint64_t>(largestMessage(), kHeaderBytes));
    if (missing_ > 0) {
      require(piece.size() <= missing_);
      missing_ -= piece.size();
      return;
    }
    if (piece.size() < kHeaderBytes) return require(ended);
    const std::uint64_t length = tks::messaging::announcedLength(piece);
    require(piece.size() <= length + kHeaderBytes);
    missing_ = length > largestMessage() ? 0 : length + kHeaderBytes - piece.size();
  }

 private:
  std::uint64_t missing_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t reads = std::min<std::size_t>(data[0], size - 1);
  const std::string_view sizes(reinterpret_cast<const char*>(data) + 1, reads);
  std::string_view arriving(reinterpret_cast<const char*>(data) + 1 + reads, size - 1 - reads);

  Listener listener;
  TKSMessageHost host(1);
  host.messageHandler = &listener;
  host.isOpened = true;  // no channel: the pieces are handed in here
  tks::messaging::PieceCutter cutter;
  Follower follower;
  std::string ahead;
  std::string joined;
  const std::string whole(arriving);
  const auto handOut = [&](bool ended) {
    while (const std::size_t length = cutter.next(ahead, ended)) {
      const std::string piece = ahead.substr(0, length);
      follower.check(piece, ended);
      host.onMessage(piece);
      joined += piece;
      ahead.erase(0, length);
    }
  };
  for (std::size_t i = 0; !arriving.empty(); ++i) {
    const std::size_t next = sizes.empty() ? arriving.size() : 1 + static_cast<unsigned char>(sizes[i % sizes.size()]);
    ahead += arriving.substr(0, next);
    arriving.remove_prefix(std::min(next, arriving.size()));
    handOut(false);
  }
  handOut(true);
  require(joined == whole && ahead.empty());
  host.onMessage({});
  return 0;
}
