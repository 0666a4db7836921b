#pragma once

#include <cstdint>
#include <memory>
#include <utility>

namespace tks {

/// Answers one question: "is this still mine?"
///
/// Work that is interrupted by a callback, or that comes back later, keeps a moment of what it works on. The owner ends
/// the epoch when it begins something new or is destroyed; every moment from before is over then. A moment may outlive
/// its epoch. One thread only.
///
///     const tks::Epoch::Moment now = conversation_.now();
///     callHost(...);
///     if (now.isOver()) return;  // nothing of *this may be touched any more
class Epoch {
 public:
  class Moment {
   public:
    bool isOver() const { return *current_ != mine_; }

   private:
    friend class Epoch;
    explicit Moment(std::shared_ptr<const std::uint64_t> current) : current_(std::move(current)), mine_(*current_) {}

    std::shared_ptr<const std::uint64_t> current_;
    std::uint64_t mine_;
  };

  Epoch() = default;
  ~Epoch() { end(); }
  Epoch(const Epoch&) = delete;
  Epoch& operator=(const Epoch&) = delete;

  Moment now() const { return Moment(current_); }
  /// All moments so far are over; the next epoch has begun.
  void end() { ++*current_; }

 private:
  std::shared_ptr<std::uint64_t> current_ = std::make_shared<std::uint64_t>(0);
};

}  // namespace tks
