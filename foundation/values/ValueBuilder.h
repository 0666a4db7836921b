#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <utility>

#include <tksinterface/TKSValue.h>

#include "foundation/values/TextCopies.h"
#include "foundation/values/ValueNodes.h"

namespace tks::value {

/// The one block of memory that a document's values stand in while they are put together.
class DocumentBlock {
 public:
  /// `expectedBytes`: about how much memory the values will take, so that it comes in one piece.
  explicit DocumentBlock(std::size_t expectedBytes) noexcept : expectedBytes_(expectedBytes) {}
  /// The other one has no block any more.
  DocumentBlock(DocumentBlock&& other) noexcept
      : expectedBytes_(other.expectedBytes_), room_(std::exchange(other.room_, {})) {}
  DocumentBlock& operator=(DocumentBlock&& other) noexcept {
    std::swap(expectedBytes_, other.expectedBytes_);
    std::swap(room_, other.room_);
    return *this;
  }
  ~DocumentBlock() {
    if (room_.block != nullptr) room_.block->release();
  }

  Block* get() const noexcept { return room_.block; }
  /// Memory for a node, aligned to eight. Throws std::bad_alloc and changes nothing then.
  void* allocate(std::size_t bytes) {
    bytes = (bytes + 7) & ~std::size_t{7};
    // What grows gets a copy: nobody else then knows the address of the room, which can stay in registers.
    if (bytes > static_cast<std::size_t>(room_.end - room_.next)) room_ = grown(room_, bytes, expectedBytes_);
    char* const memory = room_.next;
    room_.next += bytes;
    return memory;
  }
  /// A text or data whose bytes are still to be filled in.
  Node* makeNode(TKSValue::Kind kind, std::size_t size) {
    void* const memory = allocate(sizeof(Node) + size + kBytesBehind);
    return new (memory) Node(kind, size, room_.block);
  }
  /// Takes the node that was made last back.
  void takeBack(Node* node) noexcept { room_.next = reinterpret_cast<char*>(node); }
  /// Begins with memory of the caller's, see Block::makeIn. Before anything else.
  void useMemory(std::span<char> memory, Block::Freer freer) noexcept { room_ = Block::makeIn(memory, freer); }
  /// Leaves the block to the finished value.
  void handOver(const TKSValue& value) noexcept {
    // The block's first reference becomes that of the value.
    if (room_.block != nullptr && !Access::isShared(value)) room_.block->release();
    room_ = {};
  }

 private:
  [[gnu::noinline, gnu::cold]] static Block::Room grown(Block::Room room, std::size_t bytes,
                                                        std::size_t expectedBytes) {
    return room.block == nullptr ? Block::make(std::max(expectedBytes, bytes)) : room.block->addChunk(bytes);
  }

  std::size_t expectedBytes_;
  Block::Room room_;
};

/// Builds the value of a document while it is read from front to back: everything goes into one block of memory that is
/// freed as a whole.
///
///   Builder builder;
///   builder.beginDictionary(1);
///   builder.key("name");
///   builder.text("Ada");
///   builder.endDictionary();
///   TKSValue value = builder.take();
///
/// The caller keeps the order: begins and ends match, inside a dictionary every value follows its key, and there is one
/// outermost value. Of equal keys the last one counts. Any depth. Members may throw std::bad_alloc, after which the
/// builder can only be destroyed. Values and keys are copied.
class Builder {
 public:
  /// `expectedBytes`: about how much memory the value will take, so that it comes in one piece.
  explicit Builder(std::size_t expectedBytes = 0) noexcept : block_(expectedBytes) {}
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;
  ~Builder() { Access::forget(root_); }

  /// `expected`: how many elements will follow. A wrong number costs memory or time and nothing else.
  void beginArray(std::size_t expected) { begin(TKSValue::Kind::array, expected); }
  void endArray() noexcept { end(); }

  /// `expected`: how many keys will follow. A wrong number costs memory or time and nothing else.
  void beginDictionary(std::size_t expected) { begin(TKSValue::Kind::dictionary, 2 * expected); }
  void key(std::string_view key) { text(key); }
  void endDictionary() noexcept {
    const std::span<TKSValue> all(open_->values(), position_);
    if (!Access::areShortAndAscend(all)) position_ = open_->values() + sortByKey(all, false);
    end();
  }

  void null() { place(TKSNull()); }
  void boolean(bool value) { place(value); }
  void integer(std::int64_t value) { place(value); }
  void unsignedInteger(std::uint64_t value) { place(value); }
  void real(double value) { place(value); }
  void date(TKSDate value) { place(value); }
  void text(std::string_view text) { bytes(TKSValue::Kind::text, text.data(), text.size()); }
  /// As text, faster, when all of it is ASCII; `kBytesBehind` bytes from the beginning can be read, and one after the
  /// end. For keys as well. Otherwise false, as a rule, and nothing is placed; false as well, now and then, for a text
  /// with no more than a byte beyond ASCII after it.
  bool asciiText(std::string_view text) {
    if (position_ == limit_) enlarge();
    if (Access::fits(text.size())) {
      if (!Access::placeShort(BeyondAscii(), position_, sixteenAt(text.data()), text.size())) return false;
    } else {
      Node* const node = block_.makeNode(TKSValue::Kind::text, text.size());
      if (!copyWatched(BeyondAscii(), node->bytes(), text)) {
        block_.takeBack(node);
        return false;
      }
      std::memset(node->bytes() + text.size(), 0, kBytesBehind);
      Access::placeNode(position_, TKSValue::Kind::text, node);
    }
    ++position_;
    return true;
  }
  void data(std::span<const std::uint8_t> data) { bytes(TKSValue::Kind::data, data.data(), data.size()); }

  /// The finished value. The builder is empty afterwards.
  TKSValue take() noexcept {
    TKSValue taken = std::move(root_);
    block_.handOver(taken);
    position_ = &root_;
    return taken;
  }

 private:
  void begin(TKSValue::Kind kind, std::size_t capacity) {
    TKSValue* const value = new (next()) TKSValue();
    List* const list = makeOpenList(kind, capacity);
    Access::setNode(*value, kind, list);
    if (open_ != nullptr) open_->size = static_cast<std::size_t>(position_ - open_->values());
    list->next = open_;
    open_ = list;
    position_ = list->values();
    limit_ = position_ + capacity;
  }
  void end() noexcept {
    List* const ended = open_;
    ended->size = static_cast<std::size_t>(position_ - ended->values());
    open_ = static_cast<List*>(ended->next);
    ended->block = block_.get();
    position_ = open_ != nullptr ? open_->values() + open_->size : &root_ + 1;
    limit_ = open_ != nullptr ? open_->values() + open_->capacity : &root_ + 1;
  }
  List* makeOpenList(TKSValue::Kind kind, std::size_t capacity);
  void enlarge();

  TKSValue* next() {
    if (position_ == limit_) enlarge();
    return position_++;
  }
  template <class Scalar>
  void place(Scalar value) {
    new (next()) TKSValue(value);
  }
  void bytes(TKSValue::Kind kind, const void* bytes, std::size_t size) {
    TKSValue* const value = new (next()) TKSValue();
    if (Access::fits(size)) {
      Access::setShort(*value, kind, bytes, size);
      return;
    }
    Node* const node = block_.makeNode(kind, size);
    node->setBytes(bytes);
    Access::setNode(*value, kind, node);
  }
  DocumentBlock block_;
  /// The innermost list that is not ended; through `next` it leads to the one around it. While an inner one is open,
  /// its `size` is the number of values it has so far.
  List* open_ = nullptr;
  TKSValue root_;
  /// Where the next value goes, in the innermost list or in root_.
  TKSValue* position_ = &root_;
  TKSValue* limit_ = &root_ + 1;
};

/// Builds the value of a document for a reader that learns how many values a list has only when it ends: they gather on
/// a stack, and at the end of their list move into the block as one piece.
///
///   const auto first = builder.mark();
///   builder.integer(1);
///   builder.integer(2);
///   builder.endArray(first);
///   TKSValue value = builder.take();
///
/// Otherwise as Builder.
class StackBuilder {
 public:
  using Mark = TKSValue*;
  /// Memory for one value on the stack.
  struct alignas(TKSValue) Slot {
    unsigned char bytes[sizeof(TKSValue)];
  };

  /// `stack` has room for all values that stand on it at the same time, which nobody checks, and outlives the builder.
  StackBuilder(Slot* stack, std::size_t expectedBytes) noexcept
      : stack_(reinterpret_cast<TKSValue*>(stack)), top_(stack_), block_(expectedBytes) {}

  /// Where the next value goes: values placed from here on belong to the list that ends with this mark.
  Mark mark() const noexcept { return top_; }
  /// How many values stand on the stack.
  std::size_t size() const noexcept { return static_cast<std::size_t>(top_ - stack_); }
  /// The mark that `mark()` gave while that many stood there.
  Mark markOf(std::size_t size) const noexcept { return stack_ + size; }
  /// Goes on with a larger stack; marks from before count no more.
  void moveTo(Slot* larger) noexcept {
    const std::size_t count = size();
    if (count != 0) std::memcpy(static_cast<void*>(larger), static_cast<const void*>(stack_), count * sizeof(TKSValue));
    stack_ = reinterpret_cast<TKSValue*>(larger);
    top_ = stack_ + count;
  }
  void endArray(Mark first) { endList(TKSValue::Kind::array, first); }
  /// The placed values are keys and values in turn.
  void endDictionary(Mark first) { endList(TKSValue::Kind::dictionary, first); }
  /// Either of them.
  void endList(TKSValue::Kind kind, Mark first) {
    const auto size = static_cast<std::size_t>(top_ - first);
    if (size == 0) return emptyList(kind);
    void* const memory = block_.allocate(sizeof(List) + size * sizeof(TKSValue));
    List* const list = new (memory) List(kind, size, block_.get());
    list->size = size;
    if (kind != TKSValue::Kind::dictionary) {
      copyValues(list->values(), first, size);
    } else if (!Access::copyShortAndAscending(list->values(), {first, size})) {
      list->size = sortByKey({list->values(), size}, false);
    }
    top_ = first;
    place(kind, list);
  }
  /// An array or a dictionary of nothing.
  void emptyList(TKSValue::Kind kind) noexcept { Access::setNode(*new (top_++) TKSValue(), kind, nullptr); }

  void null() noexcept { Access::place(top_++, TKSValue::Kind::null, std::uint64_t{0}); }
  void boolean(bool value) noexcept { Access::placeBoolean(top_++, value); }
  void integer(std::int64_t value) noexcept { Access::place(top_++, TKSValue::Kind::integer, value); }
  void unsignedInteger(std::uint64_t value) noexcept { new (top_++) TKSValue(value); }
  void real(double value) noexcept { Access::place(top_++, TKSValue::Kind::real, value); }
  void date(TKSDate value) noexcept { new (top_++) TKSValue(value); }
  void data(std::span<const std::uint8_t> data) {
    if (Access::fits(data.size())) {
      Access::setShort(*new (top_++) TKSValue(), TKSValue::Kind::data, data.data(), data.size());
      return;
    }
    Node* const node = block_.makeNode(TKSValue::Kind::data, data.size());
    node->setBytes(data.data());
    place(TKSValue::Kind::data, node);
  }
  /// A text that fits into a value: the first `size` of these bytes.
  void shortText(Sixteen bytes, std::size_t size) noexcept { Access::placeShort(Unwatched(), top_++, bytes, size); }
  /// As shortText; false, and nothing is placed, for a text with a byte that is excluded.
  bool shortTextWithout(unsigned char excluded, Sixteen bytes, std::size_t size) noexcept {
    const bool placed = Access::placeShort(Excluded{excluded}, top_, bytes, size);
    top_ += placed ? 1 : 0;
    return placed;
  }
  /// `isReadable`: `kBytesBehind` bytes after its end can be read.
  void text(std::string_view text, bool isReadable) {
    if (Access::fits(text.size())) {
      Access::setShort(*new (top_++) TKSValue(), TKSValue::Kind::text, text.data(), text.size());
      return;
    }
    Node* const node = block_.makeNode(TKSValue::Kind::text, text.size());
    if (isReadable) {
      copyInStrides(node->bytes(), text);
    } else {
      copyInPieces(node->bytes(), text);
    }
    std::memset(node->bytes() + text.size(), 0, kBytesBehind);
    place(TKSValue::Kind::text, node);
  }
  /// A text that `write` puts to where it is told, at most `mostBytes`; returns where it ended, or a null pointer when
  /// there is none. False in that case.
  template <class Write>
  bool writtenText(std::size_t mostBytes, Write write) {
    return placeWritten(block_.makeNode(TKSValue::Kind::text, mostBytes), write);
  }
  /// As text, for one that does not fit into a value and is followed by one more byte.
  void longText(std::string_view text) { placeLongText(Unwatched(), text); }
  /// As longText; false, and nothing is placed, for a text with a byte that is excluded.
  bool longTextWithout(unsigned char excluded, std::string_view text) {
    return placeLongText(Excluded{excluded}, text);
  }

  /// Begins with memory of the caller's, see Block::makeIn. Before anything is placed.
  void useMemory(std::span<char> memory, Block::Freer freer) noexcept { block_.useMemory(memory, freer); }

  /// The finished value. The builder can only be destroyed afterwards.
  TKSValue take() noexcept {
    TKSValue taken = std::move(*stack_);
    block_.handOver(taken);
    return taken;
  }

 private:
  template <class Watch>
  bool placeLongText(Watch watch, std::string_view text) {
    Node* const node = block_.makeNode(TKSValue::Kind::text, text.size());
    if (!copyWatched(watch, node->bytes(), text)) {
      block_.takeBack(node);
      return false;
    }
    std::memset(node->bytes() + text.size(), 0, kBytesBehind);
    place(TKSValue::Kind::text, node);
    return true;
  }
  template <class Write>
  bool placeWritten(Node* node, Write write) {
    const char* const end = write(node->bytes());
    if (end == nullptr) return false;
    node->size = static_cast<std::size_t>(end - node->bytes());
    std::memset(node->bytes() + node->size, 0, kBytesBehind);
    if (Access::fits(node->size)) {
      shortText(sixteenAt(node->bytes()), node->size);
    } else {
      place(TKSValue::Kind::text, node);
    }
    return true;
  }
  /// As a rule they are few.
  static void copyValues(TKSValue* to, const TKSValue* from, std::size_t count) noexcept {
    constexpr std::size_t kFew = 16;
    if (count > kFew) {
      std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), count * sizeof(TKSValue));
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(static_cast<void*>(to + i), static_cast<const void*>(from + i), sizeof(TKSValue));
    }
  }
  void place(TKSValue::Kind kind, Node* node) noexcept { Access::placeNode(top_++, kind, node); }

  TKSValue* stack_;
  TKSValue* top_;
  DocumentBlock block_;
};

}  // namespace tks::value
