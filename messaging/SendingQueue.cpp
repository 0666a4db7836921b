#include "messaging/SendingQueue.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <tksinterface/TKSConstants.h>

#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "messaging/Frame.h"

namespace tks::messaging {
namespace {

/// Written in one turn of the main loop at most, so that a fast reader leaves the loop to others.
constexpr std::size_t kBytesPerTurn = std::size_t{1024} * 1024;
/// Buffers up to this size stay allocated between frames: growing one for a large message costs more than writing it.
/// Twice the largest frame, because a text that grows doubles its capacity.
std::uint64_t mostSpareBytes() {
  const std::uint64_t message = largestMessage();
  return message < std::numeric_limits<std::uint64_t>::max() / 4 ? 2 * (message + kHeaderBytes) : message;
}

std::uint64_t mostWaitingBytes() {
  const std::uint64_t message = largestMessage();
  constexpr std::uint64_t kMessages = 4;
  if (message > std::numeric_limits<std::uint64_t>::max() / kMessages - kHeaderBytes) return message;
  return kMessages * (message + kHeaderBytes);
}

TKSError failure(std::string text) {
  return makeError(TKSErrorReason::channelFailed, TKSUtilErrorDomain, 0, std::move(text));
}

/// Why a write moved nothing, if it will never move anything.
std::optional<TKSError> failureOf(platform::Transfer& transfer) {
  if (transfer.error) return std::move(transfer.error);
  if (transfer.end) return failure("The other end of the channel is gone.");
  return std::nullopt;
}

void report(const std::optional<TKSError>& error) {
  if (!error) return;
  const std::string text = error->description();
  TKSILog::logWithLevel(TKSILogLevelError, "Write message failed: %@", tks::masked(text));
}

}  // namespace

void SendingQueue::open(std::shared_ptr<platform::ByteSink> sink) {
  Channel before;
  {
    const std::scoped_lock lock(mutex_);
    channel_.closing = false;
    const bool sameChannel = channel_.sink && sink && channel_.sink->identity() == sink->identity();
    if (sameChannel && !channel_.waiting().empty()) return;
    before = replaceChannel(std::move(sink));
  }
  const std::size_t dropped = before.waiting().size();
  if (dropped > 0) {
    report(failure(tks::formatted("Another channel took the place of the one that %lu bytes waited for.", dropped)));
  }
}

bool SendingQueue::dropName(TKSError* error) {
  const std::scoped_lock lock(mutex_);
  return channel_.sink && channel_.sink->dropName(error);
}

void SendingQueue::close() {
  Channel before;
  const std::scoped_lock lock(mutex_);
  channel_.closing = !channel_.waiting().empty();
  if (!channel_.closing) before = replaceChannel(nullptr);
}

void SendingQueue::abandon() {
  Channel before;
  const std::scoped_lock lock(mutex_);
  before = replaceChannel(nullptr);
}

std::string SendingQueue::takeBuffer() {
  const std::scoped_lock lock(mutex_);
  std::string buffer = std::exchange(spareBuffer_, {});
  buffer.clear();
  return buffer;
}

std::optional<SendingQueue::Refusal> SendingQueue::send(std::string frame) {
  const HeldLines lines;
  std::optional<Refusal> refusal;
  {
    const std::scoped_lock lock(mutex_);
    refusal = write(frame);
  }
  if (refusal) report(refusal->error);
  return refusal;
}

void SendingQueue::dropSpareBuffer() {
  std::string buffer;
  const std::scoped_lock lock(mutex_);
  buffer.swap(spareBuffer_);
}

std::size_t SendingQueue::waitingBytes() const {
  const std::scoped_lock lock(mutex_);
  return channel_.waiting().size();
}

std::optional<SendingQueue::Refusal> SendingQueue::write(std::string& frame) {
  if (!channel_.sink) return Refusal{failure("There is no channel to write to.")};
  if (!channel_.waiting().empty()) return append(frame);
  channel_.sink->expect(frame.size());
  platform::Transfer transfer = channel_.sink->write(frame);
  if (transfer.count == frame.size()) {
    keepBuffer(frame);
    return std::nullopt;
  }
  if (std::optional<TKSError> error = failureOf(transfer)) return Refusal{*std::move(error), true};
  channel_.kept = std::move(frame);
  channel_.sent = transfer.count;
  awaitRoom();
  return std::nullopt;
}

std::optional<SendingQueue::Refusal> SendingQueue::append(const std::string& frame) {
  const std::size_t waiting = channel_.waiting().size();
  if (waiting + frame.size() > mostWaitingBytes()) {
    return Refusal{failure(tks::formatted("%lu bytes wait already, no room for %lu more.", waiting, frame.size()))};
  }
  // Compact only when over half was sent, so that no byte moves twice.
  if (channel_.sent > waiting) {
    channel_.kept.erase(0, channel_.sent);
    channel_.sent = 0;
  }
  channel_.kept += frame;
  awaitRoom();  // once more, should memory have run out the last time
  return std::nullopt;
}

void SendingQueue::awaitRoom() {
  if (channel_.awaitsRoom) return;
  // Keeps this object until the bytes are written, the channel breaks or another channel takes its place.
  channel_.sink->whenWritable([self = shared_from_this(), sink = channel_.sink.get()] {
    const HeldLines lines;
    std::optional<TKSError> error;
    std::shared_ptr<platform::ByteSink> kept;
    {
      const std::scoped_lock lock(self->mutex_);
      kept = self->channel_.sink;
      error = self->writeWaiting(sink);
    }
    report(error);
  });
  channel_.awaitsRoom = true;
}

std::optional<TKSError> SendingQueue::writeWaiting(const platform::ByteSink* sink) {
  if (sink != channel_.sink.get()) return std::nullopt;
  channel_.awaitsRoom = false;
  platform::Transfer transfer = channel_.sink->write(channel_.waiting().substr(0, kBytesPerTurn));
  channel_.sent += transfer.count;
  std::optional<TKSError> error = failureOf(transfer);
  if (!error && !channel_.waiting().empty()) {
    awaitRoom();
    return std::nullopt;
  }
  keepBuffer(channel_.kept);
  channel_ = {channel_.closing ? nullptr : std::move(channel_.sink)};
  return error;
}

void SendingQueue::keepBuffer(std::string& buffer) {
  if (buffer.capacity() > spareBuffer_.capacity() && buffer.capacity() <= mostSpareBytes()) {
    spareBuffer_ = std::move(buffer);
  }
}

SendingQueue::Channel SendingQueue::replaceChannel(std::shared_ptr<platform::ByteSink> sink) {
  Channel next;
  next.sink = std::move(sink);
  return std::exchange(channel_, std::move(next));
}

}  // namespace tks::messaging
