#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>

#include <tksinterface/TKSValue.h>

#include "foundation/ValueNodes.h"

namespace tks::value {

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
  explicit Builder(std::size_t expectedBytes = 0) noexcept : expectedBytes_(expectedBytes) {}
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;
  ~Builder() {
    Access::forget(root_);
    if (block_ != nullptr) block_->release();
  }

  /// `expected`: how many elements will follow. A wrong number costs memory or time and nothing else.
  void beginArray(std::size_t expected) { begin(TKSValue::Kind::array, expected); }
  void endArray() noexcept { end(); }

  /// `expected`: how many keys will follow. A wrong number costs memory or time and nothing else.
  void beginDictionary(std::size_t expected) { begin(TKSValue::Kind::dictionary, 2 * expected); }
  void key(std::string_view key) { text(key); }
  void endDictionary() noexcept {
    position_ = open_->values() + sortByKey({open_->values(), position_}, false);
    end();
  }

  void null() { place(TKSNull()); }
  void boolean(bool value) { place(value); }
  void integer(std::int64_t value) { place(value); }
  void real(double value) { place(value); }
  void date(TKSDate value) { place(value); }
  void text(std::string_view text) { bytes(TKSValue::Kind::text, text.data(), text.size()); }
  /// As text, faster, where `kBytesBehind` bytes from the beginning and behind the end can be read. For keys as well.
  void readableText(std::string_view text) {
    TKSValue* const value = new (next()) TKSValue();
    if (Access::fits(text.size())) {
      Access::setShortReadable(*value, TKSValue::Kind::text, text.data(), text.size());
      return;
    }
    Node* const node = makeNode(TKSValue::Kind::text, text.size());
    copyInStrides(node->bytes(), text.data(), text.size());
    std::memset(node->bytes() + text.size(), 0, kBytesBehind);
    Access::setNode(*value, TKSValue::Kind::text, node);
  }
  void data(std::span<const std::uint8_t> data) { bytes(TKSValue::Kind::data, data.data(), data.size()); }

  /// Takes the expected memory at once, for a caller who wants to tell the system about it.
  std::span<char> reserve() {
    if (block_ == nullptr) block_ = Block::make(expectedBytes_);
    return block_->rest();
  }

  /// The finished value. The builder is empty afterwards.
  TKSValue take() noexcept {
    TKSValue taken = std::move(root_);
    // The block's first reference becomes that of the value.
    if (block_ != nullptr && !Access::isShared(taken)) block_->release();
    block_ = nullptr;
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
    ended->block = block_;
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
    Node* const node = makeNode(kind, size);
    node->setBytes(bytes);
    Access::setNode(*value, kind, node);
  }
  Node* makeNode(TKSValue::Kind kind, std::size_t size) {
    return new (allocate(sizeof(Node) + size + kBytesBehind)) Node(kind, size, block_);
  }
  /// Copies up to `kBytesBehind` bytes more.
  static void copyInStrides(char* to, const char* from, std::size_t size) noexcept {
    constexpr std::size_t kWorthACall = 128;
    if (size > kWorthACall) {
      std::memcpy(to, from, size);
      return;
    }
    for (std::size_t done = 0; done < size; done += kBytesBehind) std::memcpy(to + done, from + done, kBytesBehind);
  }
  void* allocate(std::size_t bytes) {
    if (block_ == nullptr) block_ = Block::make(expectedBytes_);
    return block_->allocate(bytes);
  }

  std::size_t expectedBytes_;
  Block* block_ = nullptr;
  /// The innermost list that is not ended; through `next` it leads to the one around it. While an inner one is open,
  /// its `size` is the number of values it has so far.
  List* open_ = nullptr;
  TKSValue root_;
  /// Where the next value goes, in the innermost list or in root_.
  TKSValue* position_ = &root_;
  TKSValue* limit_ = &root_ + 1;
};

}  // namespace tks::value
