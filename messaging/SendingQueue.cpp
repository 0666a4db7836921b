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
/// Buffers up to this size are kept between frames: growing one for a large message costs more than writing it. Twice
/// the largest frame, since a text that grows doubles its room.
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
  std::size_t dropped = 0;
  std::shared_ptr<platform::ByteSink> before;
  {
    const std::scoped_lock lock(mutex_);
    closing_ = false;
    const bool sameChannel = sink_ && sink && sink_->identity() == sink->identity();
    if (sameChannel && !waiting().empty()) return;
    dropped = dropWaiting();
    before = std::exchange(sink_, std::move(sink));
  }
  if (dropped > 0) {
    report(failure(tks::formatted("Another channel took the place of the one that %lu bytes waited for.", dropped)));
  }
}

void SendingQueue::close() {
  std::shared_ptr<platform::ByteSink> before;
  const std::scoped_lock lock(mutex_);
  closing_ = !waiting().empty();
  if (!closing_) before = std::move(sink_);
}

void SendingQueue::abandon() {
  std::shared_ptr<platform::ByteSink> before;
  const std::scoped_lock lock(mutex_);
  dropWaiting();
  before = std::move(sink_);
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
  return waiting().size();
}

std::optional<SendingQueue::Refusal> SendingQueue::write(std::string& frame) {
  if (!sink_) return Refusal{failure("There is no channel to write to.")};
  if (!waiting().empty()) return append(frame);
  sink_->expect(frame.size());
  platform::Transfer transfer = sink_->write(frame);
  if (transfer.count == frame.size()) {
    keepBuffer(frame);
    return std::nullopt;
  }
  if (std::optional<TKSError> error = failureOf(transfer)) return Refusal{*std::move(error), true};
  waiting_ = std::move(frame);
  waitingFrom_ = transfer.count;
  awaitRoom();
  return std::nullopt;
}

std::optional<SendingQueue::Refusal> SendingQueue::append(const std::string& frame) {
  if (waiting().size() + frame.size() > mostWaitingBytes()) {
    return Refusal{
        failure(tks::formatted("%lu bytes wait already, no room for %lu more.", waiting().size(), frame.size()))};
  }
  // Compact only when over half was sent, so that no byte moves twice.
  if (waitingFrom_ > waiting().size()) {
    waiting_.erase(0, waitingFrom_);
    waitingFrom_ = 0;
  }
  waiting_ += frame;
  awaitRoom();  // once more, should memory have run out the last time
  return std::nullopt;
}

void SendingQueue::awaitRoom() {
  if (awaitingRoom_) return;
  // Keeps this object until the bytes are written, the channel breaks or another channel takes its place.
  sink_->whenWritable([self = shared_from_this(), sink = sink_.get()] {
    const HeldLines lines;
    std::optional<TKSError> error;
    std::shared_ptr<platform::ByteSink> kept;
    {
      const std::scoped_lock lock(self->mutex_);
      kept = self->sink_;
      error = self->writeWaiting(sink);
    }
    report(error);
  });
  awaitingRoom_ = true;
}

std::optional<TKSError> SendingQueue::writeWaiting(const platform::ByteSink* sink) {
  if (sink != sink_.get()) return std::nullopt;
  awaitingRoom_ = false;
  platform::Transfer transfer = sink_->write(waiting().substr(0, kBytesPerTurn));
  waitingFrom_ += transfer.count;
  std::optional<TKSError> error = failureOf(transfer);
  if (!error && !waiting().empty()) {
    awaitRoom();
    return std::nullopt;
  }
  dropWaiting();
  if (std::exchange(closing_, false)) sink_.reset();
  return error;
}

void SendingQueue::keepBuffer(std::string& buffer) {
  if (buffer.capacity() > spareBuffer_.capacity() && buffer.capacity() <= mostSpareBytes()) {
    spareBuffer_ = std::move(buffer);
  }
}

std::size_t SendingQueue::dropWaiting() {
  const std::size_t dropped = waiting().size();
  keepBuffer(waiting_);
  waiting_ = {};
  waitingFrom_ = 0;
  awaitingRoom_ = false;
  return dropped;
}

}  // namespace tks::messaging
