#include "messaging/FrameReader.h"

#include <utility>

#include "foundation/Options.h"
#include "platform/platform.h"

namespace tks::messaging {
namespace {

/// Of one large frame, at most.
constexpr int kReadsInATurn = 16;

}  // namespace

FrameReader::FrameReader(Piece piece, Broken broken, Slow slow)
    : piece_(std::move(piece)), broken_(std::move(broken)), slow_(std::move(slow)) {}

void FrameReader::start(std::unique_ptr<platform::ByteSource> source) {
  stop();
  if (identity_ != source->identity()) ahead_.clear();
  identity_ = source->identity();
  reading_.source = std::move(source);
  reading_.source->watch([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->onReadable();
  });
  if (ahead_.bytes().empty()) return;
  // No new bytes need come for these to be wanted.
  platform::mainLoop().post([weak = weak_from_this(), turn = turn_.now()] {
    const auto self = weak.lock();
    if (self && !turn.isOver()) self->handOut();
  });
}

void FrameReader::startBroken(TKSError error) {
  stop();
  ahead_.clear();
  identity_.reset();
  reading_.ended = true;
  reading_.failure = std::move(error);
  reading_.endTimer = platform::mainLoop().after(std::chrono::milliseconds(0), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellEnd();
  });
}

void FrameReader::stop() {
  turn_.end();
  if (reading_.source) reading_.source->unwatch();
  if (reading_.cutter.awaited() > 0) ahead_.clear();
  reading_ = {};
}

void FrameReader::onReadable() {
  // More of a large frame comes while what was there is read: waiting for it would take longer.
  const Epoch::Moment turn = turn_.now();
  for (int i = 0; i < kReadsInATurn; ++i) {
    if (!readOnce() || turn.isOver() || reading_.cutter.awaited() == 0) return;
  }
}

/// Reads what there is, and hands it out. False when there was nothing, or nothing more will come.
bool FrameReader::readOnce() {
  if (!reading_.source || reading_.ended) return false;
  const std::span<char> room = ahead_.room(reading_.cutter.awaited());
  if (room.empty()) {
    reading_.cutter.awaitNothing();
    handOut();
    return false;
  }
  platform::Transfer transfer = reading_.source->read(room);
  if (transfer.count > 0) {
    ahead_.add(transfer.count);
    bytesRead_ += transfer.count;
    handOut();
    return true;
  }
  if (transfer.end || transfer.error) {
    reading_.failure = std::move(transfer.error);
    onEnd();
  }
  return false;
}

void FrameReader::handOut() {
  const Epoch::Moment turn = turn_.now();
  while (!turn.isOver()) {
    const std::string_view ahead = ahead_.bytes();
    const std::string_view piece = ahead.substr(0, reading_.cutter.next(ahead, reading_.ended));
    if (piece.empty()) return watchFrame();
    // Before the call: what is called may stop the reader, start it again and go on from here.
    ahead_.take(piece.size());
    piece_(piece);
  }
}

/// A frame that has begun is given its time, from its first byte on.
void FrameReader::watchFrame() {
  const std::chrono::milliseconds limit(options().frameLimit);
  if (limit.count() == 0 || !slow_) return;
  const std::uint64_t frame = reading_.ended ? 0 : reading_.cutter.unfinished(ahead_.bytes());
  if (frame == reading_.watchedFrame) return;
  reading_.watchedFrame = frame;
  reading_.frameTimer.reset();
  if (frame == 0) return;
  reading_.frameTimer = platform::mainLoop().after(limit, [weak = weak_from_this(), limit] {
    if (const auto self = weak.lock()) self->onSlowFrame(limit);
  });
}

/// What has come meanwhile counts: a host that does not drain its loop is not the launcher's fault.
void FrameReader::onSlowFrame(std::chrono::milliseconds limit) {
  const Epoch::Moment turn = turn_.now();
  const std::uint64_t frame = reading_.watchedFrame;
  bool hasMore = true;
  while (hasMore && !turn.isOver() && reading_.watchedFrame == frame) {
    const std::uint64_t before = bytesRead_;
    onReadable();
    hasMore = bytesRead_ > before;
  }
  if (turn.isOver() || reading_.watchedFrame != frame) return;
  reading_.watchedFrame = 0;
  watchFrame();
  slow_(limit);
}

void FrameReader::onEnd() {
  const Epoch::Moment turn = turn_.now();
  reading_.source->unwatch();
  reading_.ended = true;
  handOut();
  if (!turn.isOver()) tellEnd();
}

void FrameReader::tellEnd() {
  reading_.endTimer = platform::mainLoop().after(kEndInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellEnd();
  });
  if (reading_.failure) {
    broken_(TKSError(*reading_.failure));
  } else {
    piece_({});
  }
}

}  // namespace tks::messaging
