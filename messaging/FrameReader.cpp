#include "messaging/FrameReader.h"

#include <cstring>
#include <utility>

#include "platform/platform.h"

namespace tks::messaging {

FrameReader::FrameReader(Piece piece, Broken broken) : piece_(std::move(piece)), broken_(std::move(broken)) {}

void FrameReader::start(std::unique_ptr<platform::ByteSource> source) {
  stop();
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(kBufferBytes);
  if (identity_ != source->identity()) begin_ = end_ = 0;
  identity_ = source->identity();
  source_ = std::move(source);
  source_->watch([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->onReadable();
  });
  if (ahead().empty()) return;
  // No new bytes need come for these to be wanted.
  platform::mainLoop().post([weak = weak_from_this(), turn = turn_] {
    const auto self = weak.lock();
    if (self && self->turn_ == turn) self->handOut();
  });
}

void FrameReader::startBroken(TKSError error) {
  stop();
  begin_ = end_ = 0;
  identity_.reset();
  ended_ = true;
  failure_ = std::move(error);
  endTimer_ = platform::mainLoop().after(std::chrono::milliseconds(0), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellEnd();
  });
}

void FrameReader::stop() {
  ++turn_;
  cutter_.restart();
  if (source_) source_->unwatch();
  source_.reset();
  endTimer_.reset();
  ended_ = false;
  failure_.reset();
}

void FrameReader::onReadable() {
  if (!source_ || ended_) return;
  if (makeRoom() == 0) {
    handOut();
    return;
  }
  platform::Transfer transfer = source_->read({buffer_.get() + end_, kBufferBytes - end_});
  if (transfer.count > 0) {
    end_ += transfer.count;
    handOut();
  } else if (transfer.end || transfer.error) {
    failure_ = std::move(transfer.error);
    onEnd();
  }
}

/// Moves what is left to the front of the buffer; answers how many bytes can be read. As a rule nothing is left, or a
/// part of a header.
std::size_t FrameReader::makeRoom() {
  const std::string_view left = ahead();
  if (begin_ > 0) {
    std::memmove(buffer_.get(), left.data(), left.size());
    begin_ = 0;
    end_ = left.size();
  }
  return kBufferBytes - end_;
}

void FrameReader::handOut() {
  const std::uint64_t turn = turn_;
  while (turn == turn_) {
    const std::string_view piece = ahead().substr(0, cutter_.next(ahead(), ended_));
    if (piece.empty()) return;
    // Before the call: what is called may stop the reader, start it again and go on from here.
    begin_ += piece.size();
    piece_(piece);
  }
}

void FrameReader::onEnd() {
  const std::uint64_t turn = turn_;
  source_->unwatch();
  ended_ = true;
  handOut();
  if (turn == turn_) tellEnd();
}

void FrameReader::tellEnd() {
  endTimer_ = platform::mainLoop().after(kEndInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellEnd();
  });
  if (failure_) {
    broken_(TKSError(*failure_));
  } else {
    piece_({});
  }
}

}  // namespace tks::messaging
