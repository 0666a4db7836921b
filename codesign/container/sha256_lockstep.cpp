#include "codesign/container/sha256_lockstep.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tks::codesign {
namespace {

/// One message on its way: first its whole blocks, then the blocks with its rest, the padding and its length.
class Lane {
 public:
  bool isFree() const { return message_ == nullptr; }

  void begin(Sha256Message& message) {
    message_ = &message;
    state_ = kSha256Start;
    size_ = 0;
    isTail_ = false;
    takePiece();
  }

  /// How many blocks can be taken in a row; never none while there is a message.
  std::size_t blocks() const { return blocks_; }
  Sha256Lane share() { return {&state_, next_}; }

  /// After so many blocks went into the state: at the message's end the lane is free again.
  void advance(std::size_t blocks) {
    next_ += blocks * kSha256Block;
    blocks_ -= blocks;
    if (blocks_ != 0) return;
    if (!isTail_) return hasTail_ ? beginTail() : takePiece();
    std::exchange(message_, nullptr)->finish(digest());
  }

 private:
  void takePiece() {
    const Bytes piece = message_->next();
    size_ += piece.size();
    next_ = piece.data();
    blocks_ = piece.size() / kSha256Block;
    const Bytes rest = piece.subspan(blocks_ * kSha256Block);
    hasTail_ = piece.empty() || !rest.empty();
    if (hasTail_) fillTail(rest);
    if (blocks_ == 0) beginTail();
  }

  void fillTail(Bytes rest) {
    tailBlocks_ = rest.size() + 1 + sizeof(std::uint64_t) > kSha256Block ? 2 : 1;
    tail_.fill(0);
    std::ranges::copy(rest, tail_.begin());
    tail_[rest.size()] = 0x80;
    std::uint64_t bits = size_ * 8;
    for (std::size_t i = 1; i <= sizeof bits; ++i, bits >>= 8) {
      tail_[tailBlocks_ * kSha256Block - i] = static_cast<std::uint8_t>(bits);
    }
  }

  void beginTail() {
    next_ = tail_.data();
    blocks_ = tailBlocks_;
    isTail_ = true;
  }

  Sha256Digest digest() const {
    Sha256Digest digest;
    for (std::size_t i = 0; i < digest.size(); ++i) {
      digest[i] = static_cast<std::uint8_t>(state_[i / 4] >> (24 - 8 * (i % 4)));
    }
    return digest;
  }

  Sha256Message* message_ = nullptr;
  Sha256State state_;
  std::uint64_t size_ = 0;
  const std::uint8_t* next_ = nullptr;
  std::size_t blocks_ = 0;
  std::size_t tailBlocks_ = 0;
  bool hasTail_ = false;  ///< the last piece is here
  bool isTail_ = false;   ///< and all of its blocks are done
  std::array<std::uint8_t, 2 * kSha256Block> tail_;
};

class Lockstep {
 public:
  Lockstep(Sha256Blocks blocks, const std::function<Sha256Message*()>& more) : blocks_(blocks), more_(more) {
    std::ranges::transform(lanes_, order_.begin(), [](Lane& lane) { return &lane; });
  }

  void run() {
    for (fill(); busy_ != 0; fill()) step();
  }

 private:
  void fill() {
    while (busy_ < order_.size()) {
      Sha256Message* const message = more_();
      if (message == nullptr) return;
      order_[busy_++]->begin(*message);
    }
  }

  void step() {
    std::array<Sha256Lane, kSha256Lanes> shares;
    std::size_t count = order_.front()->blocks();
    for (std::size_t k = 0; k < busy_; ++k) {
      shares[k] = order_[k]->share();
      count = std::min(count, order_[k]->blocks());
    }
    blocks_(std::span(shares).first(busy_), count);
    for (std::size_t k = busy_; k-- > 0;) {
      order_[k]->advance(count);
      if (order_[k]->isFree()) std::swap(order_[k], order_[--busy_]);
    }
  }

  const Sha256Blocks blocks_;
  const std::function<Sha256Message*()>& more_;
  std::array<Lane, kSha256Lanes> lanes_;
  std::array<Lane*, kSha256Lanes> order_;  ///< the busy ones first
  std::size_t busy_ = 0;
};

class MessageInMemory final : public Sha256Message {
 public:
  void begin(Bytes content, Sha256Digest& digest) {
    content_ = content;
    digest_ = &digest;
  }
  bool isFree() const { return digest_ == nullptr; }

  Bytes next() override { return std::exchange(content_, {}); }
  void finish(const Sha256Digest& digest) override { *std::exchange(digest_, nullptr) = digest; }

 private:
  Bytes content_;
  Sha256Digest* digest_ = nullptr;
};

}  // namespace

void hashSideBySide(Sha256Blocks blocks, const std::function<Sha256Message*()>& more) { Lockstep(blocks, more).run(); }

void hashSideBySide(Sha256Blocks blocks, std::span<const Bytes> messages, std::span<Sha256Digest> digests) {
  std::array<MessageInMemory, kSha256Lanes> places;
  std::size_t begun = 0;
  hashSideBySide(blocks, [&]() -> Sha256Message* {
    if (begun == messages.size()) return nullptr;
    MessageInMemory& place = *std::ranges::find_if(places, &MessageInMemory::isFree);
    place.begin(messages[begun], digests[begun]);
    ++begun;
    return &place;
  });
}

}  // namespace tks::codesign
