#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace tks::messaging {

/// Bytes that were read but not handed out, one after the other in memory that grows while a large frame comes. What it
/// has grown to stays, for the next frame, until `shrink`.
class ReadAhead {
 public:
  /// `least`: how much memory there is at any time.
  explicit ReadAhead(std::size_t least) : least_(least) {}

  /// What was read and not handed out. Valid until there is to be room again.
  std::string_view bytes() const { return {memory_.get() + begin_, end_ - begin_}; }

  /// Where to read to, with room for what is missing of `awaited` bytes; when nothing is missing, with what the least
  /// memory has left. Empty when there is no memory, or none left.
  std::span<char> room(std::size_t awaited);
  /// So many bytes were read to the front of the room.
  void add(std::size_t count) { end_ += count; }
  /// So many of the first bytes are handed out.
  void take(std::size_t count) { begin_ += count; }
  void clear() { begin_ = end_ = 0; }

  /// Gives back what was grown, when there is nothing in it.
  void shrink();

 private:
  void moveToFront();
  bool grow(std::size_t capacity);

  const std::size_t least_;
  std::unique_ptr<char[]> memory_;
  std::size_t capacity_ = 0;
  /// Bytes from `begin_` to `end_` were read but not handed out.
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace tks::messaging
