#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include <tksinterface/TKSValue.h>

#include "foundation/values/Sixteen.h"

/// How values hold what does not fit into their sixteen bytes.
///
/// A *node* holds a long text, data, or the values of an array or dictionary right after its header. A node made by a
/// constructor or a change stands alone on the heap and counts its own references. The nodes of a document that was
/// read as a whole stand in one *block*, and references to any of them count for the block: a copy of an inner value
/// keeps the document alive, and a document goes away without being walked through. A node in a block refers only to
/// nodes of the same block, and is never changed once the block is built.
namespace tks::value {

/// A chain of chunks that whoever builds a document fills with its nodes, and that is given back as a whole.
class Block {
 public:
  /// Gives memory back.
  using Freer = void (*)(void* memory, std::size_t size) noexcept;

  /// A block, and what is free in its newest chunk: aligned for a node. No block and nothing free at first.
  struct Room {
    Block* block = nullptr;
    char* next = nullptr;
    char* end = nullptr;
  };

  /// With room for about this many bytes in the first chunk. Throws std::bad_alloc.
  static Room make(std::size_t expectedBytes);
  /// With memory that is aligned for anything and larger than a block by itself as its first chunk; it is given back at
  /// the end.
  static Room makeIn(std::span<char> memory, Freer freer) noexcept;
  /// Adds a chunk of at least so many bytes; what was free before stays empty. Throws std::bad_alloc and changes
  /// nothing then. Only while the block is built.
  Room addChunk(std::size_t bytes);

  void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  void release() noexcept {
    if (references_.load(std::memory_order_acquire) == 1 || references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      freeAll();
    }
  }

 private:
  struct Chunk {
    Chunk* next;
  };

  Block(std::size_t size, Freer freer) noexcept : size_(size), freer_(freer), total_(size) {}
  Room roomAfterHeader() noexcept {
    char* const begin = reinterpret_cast<char*>(this);
    return {this, begin + sizeof(Block), begin + size_};
  }
  void freeAll() noexcept;

  std::atomic<std::size_t> references_{1};
  /// Of the memory that the block itself stands in.
  const std::size_t size_;
  const Freer freer_;
  Chunk* chunks_ = nullptr;
  std::size_t total_;
};

/// Texts and data are followed by this many zero bytes, so that they can be read in strides.
inline constexpr std::size_t kBytesBehind = 16;

/// The header of a node; the bytes of a text or of data follow.
struct Node {
  union {
    Block* block;  // null for a node that stands alone
    Node* next;    // of a node nobody refers to any more, and of a list that is being built: see who uses it
  };
  std::size_t size;  // bytes, or values: keys count as values
  std::atomic<std::uint32_t> references;
  TKSValue::Kind kind;

  Node(TKSValue::Kind nodeKind, std::size_t nodeSize, Block* owner) noexcept
      : block(owner), size(nodeSize), references(1), kind(nodeKind) {}

  bool isList() const noexcept { return kind == TKSValue::Kind::array || kind == TKSValue::Kind::dictionary; }
  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }
  const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }
  /// Fills in the `size` bytes.
  void setBytes(const void* content) noexcept {
    std::memcpy(bytes(), content, size);
    std::memset(bytes() + size, 0, kBytesBehind);
  }
};

/// No list holds more: sizes in bytes must not overflow.
inline constexpr std::size_t kMostValues = SIZE_MAX / sizeof(TKSValue) / 4;

/// The header of an array or dictionary; its values follow, or its keys and values in turn.
struct List : Node {
  std::size_t capacity;

  List(TKSValue::Kind nodeKind, std::size_t nodeCapacity, Block* owner) noexcept
      : Node(nodeKind, 0, owner), capacity(nodeCapacity) {}

  TKSValue* values() noexcept { return reinterpret_cast<TKSValue*>(this + 1); }
  const TKSValue* values() const noexcept { return reinterpret_cast<const TKSValue*>(this + 1); }
};

inline void retain(Node* node) noexcept {
  if (node->block != nullptr) {
    node->block->retain();
  } else {
    node->references.fetch_add(1, std::memory_order_relaxed);
  }
}

/// Gives one reference back; returns whether it was the last one to a node of its own.
inline bool dropReference(Node* node) noexcept {
  if (node->block != nullptr) {
    node->block->release();
    return false;
  }
  return node->references.load(std::memory_order_acquire) == 1 ||
         node->references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

/// Frees a node nobody refers to any more, and with it all that only it referred to, at any depth.
void destroy(Node* node) noexcept;

inline void release(Node* node) noexcept {
  if (node != nullptr && dropReference(node)) destroy(node);
}

/// Whether only one value refers to the node, so that it may be changed in place.
inline bool isUnique(const Node* node) noexcept {
  return node->block == nullptr && node->references.load(std::memory_order_acquire) == 1;
}

/// A text or data on the heap. Throws std::bad_alloc.
Node* makeBytes(TKSValue::Kind kind, const void* bytes, std::size_t size);
/// An empty array or dictionary on the heap. Throws std::bad_alloc.
List* makeList(TKSValue::Kind kind, std::size_t capacity);

/// The list of an array or dictionary, made ready to be changed: in place when nobody else sees it, else a copy;
/// with room for `size` values. `node` is replaced. Throws std::bad_alloc and changes nothing then.
List* writable(Node*& node, TKSValue::Kind kind, std::size_t size);

/// The insides of the public types.
struct Access {
  static bool isShared(const TKSValue& value) noexcept { return value.isShared(); }
  static Node* node(const TKSValue& value) noexcept { return value.isShared() ? value.scalar<Node*>() : nullptr; }
  static Node* node(const TKSArray& array) noexcept { return array.node_; }
  static Node* node(const TKSDictionary& dictionary) noexcept { return dictionary.node_; }

  /// Hands a reference over to a value that held nothing; a null node makes an empty array, dictionary, text or data.
  static void setNode(TKSValue& value, TKSValue::Kind kind, Node* node) noexcept {
    std::memcpy(value.storage_, &node, sizeof node);
    value.inlineLength_ = node == nullptr ? 0 : TKSValue::kShared;
    value.kind_ = kind;
  }
  /// Puts a value to where there is none yet: its first eight bytes, and what says what they are. In one store of
  /// sixteen bytes, so that who moves it on as a whole need not wait for several.
  template <class Scalar>
  static void place(void* at, TKSValue::Kind kind, Scalar scalar, std::uint8_t inlineLength = 0,
                    bool isUnsigned = false) noexcept {
    static_assert(sizeof(Scalar) == sizeof(std::uint64_t));
    using Words [[gnu::vector_size(sizeof(TKSValue))]] = std::uint64_t;
    const auto words = Words{std::bit_cast<std::uint64_t>(scalar), tail(kind, inlineLength, isUnsigned)};
    std::memcpy(at, &words, sizeof words);
  }
  /// Likewise a boolean.
  static void placeBoolean(void* at, bool value) noexcept {
    place(at, TKSValue::Kind::boolean, byteAt(0, value ? 1 : 0));
  }
  /// As setNode with a node, likewise.
  static void placeNode(void* at, TKSValue::Kind kind, Node* node) noexcept {
    place(at, kind, reinterpret_cast<std::uintptr_t>(node), TKSValue::kShared);
  }
  static bool fits(std::size_t bytes) noexcept { return bytes <= TKSValue::kInlineCapacity; }
  /// Puts a short text or short data into a value that held nothing.
  static void setShort(TKSValue& value, TKSValue::Kind kind, const void* bytes, std::size_t size) noexcept {
    std::memset(value.storage_, 0, sizeof value.storage_);
    if (size != 0) std::memcpy(value.storage_, bytes, size);
    value.inlineLength_ = static_cast<std::uint8_t>(size);
    value.kind_ = kind;
  }
  /// As setShort with a text, to where there is no value yet: the first `size` of these bytes. False, and no value,
  /// when something is in it that it is watched for (TextCopies.h).
  template <class Watch>
  static bool placeShort(Watch watch, void* at, Sixteen bytes, std::size_t size) noexcept {
    const ShortText& shape = kShortTexts[size];
    const Sixteen text = bytes & std::bit_cast<Sixteen>(shape.mask);
    if (Watch::isAmong(watch.marks(text))) return false;
    const Sixteen value = text | std::bit_cast<Sixteen>(shape.tail);
    std::memcpy(at, &value, sizeof value);
    return true;
  }
  /// Forgets what a value holds without giving its reference back.
  static void forget(TKSValue& value) noexcept { value.forget(); }

  /// The bytes of a text or of data.
  static std::string_view bytes(const TKSValue& value) noexcept {
    if (value.isShared()) {
      const Node* const node = value.scalar<Node*>();
      return {node->bytes(), node->size};
    }
    return {reinterpret_cast<const char*>(value.storage_), value.inlineLength_};
  }
  /// The values of an array, or the keys and values of a dictionary.
  static std::span<const TKSValue> values(const TKSValue& value) noexcept { return values(node(value)); }
  static std::span<const TKSValue> values(const Node* node) noexcept {
    if (node == nullptr) return {};
    return {static_cast<const List*>(node)->values(), node->size};
  }

  /// Whether the keys of keys and values in turn ascend and are all short.
  static bool areShortAndAscend(std::span<const TKSValue> keysAndValues) noexcept {
    ShortKeys keys;
    for (std::size_t i = 0; i < keysAndValues.size(); i += 2) keys.goOn(keysAndValues[i]);
    return keys.ascend();
  }
  /// Copies keys and values in turn, to where there are no values yet. Whether the keys ascend and are all short.
  static bool copyShortAndAscending(TKSValue* to, std::span<const TKSValue> keysAndValues) noexcept {
    constexpr std::size_t kBoth = 2 * sizeof(TKSValue);
    ShortKeys keys;
    for (std::size_t i = 0; i < keysAndValues.size(); i += 2) {
      keys.goOn(keysAndValues[i]);
      std::memcpy(static_cast<void*>(to + i), static_cast<const void*>(&keysAndValues[i]), kBoth);
    }
    return keys.ascend();
  }
  /// Byte order of two texts: negative, zero or positive.
  static int compareTexts(const TKSValue& left, const TKSValue& right) noexcept {
    if (left.isShared() || right.isShared()) return bytes(left).compare(bytes(right));
    // The zeros after a short text and then its length make the order of the sixteen bytes that of the texts.
    const std::uint64_t leftHead = bigEndian(left, 0), rightHead = bigEndian(right, 0);
    if (leftHead != rightHead) return leftHead < rightHead ? -1 : 1;
    const std::uint64_t leftTail = bigEndian(left, 8), rightTail = bigEndian(right, 8);
    return leftTail == rightTail ? 0 : leftTail < rightTail ? -1 : 1;
  }

 private:
  /// What makes sixteen bytes of a text a value with the first few of them: all bits of those that stay, and the end.
  struct ShortText {
    std::array<unsigned char, sizeof(TKSValue)> mask;
    std::array<unsigned char, sizeof(TKSValue)> tail;
  };
  static constexpr auto kShortTexts = [] {
    std::array<ShortText, TKSValue::kInlineCapacity + 1> shapes{};
    for (std::size_t size = 0; size < shapes.size(); ++size) {
      for (std::size_t i = 0; i < size; ++i) shapes[size].mask[i] = 0xFF;
      shapes[size].tail[TKSValue::kInlineCapacity] = static_cast<unsigned char>(size);
      shapes[size].tail[TKSValue::kInlineCapacity + 1] = static_cast<unsigned char>(TKSValue::Kind::text);
    }
    return shapes;
  }();
  /// Looks at one key after the other, all in the same way: the processor has nothing to foresee.
  class ShortKeys {
   public:
    void goOn(const TKSValue& key) noexcept {
      const std::uint64_t tail = bigEndian(key, 8);
      const Wide next = wide(bigEndian(key, 0), tail);
      ascend_ &= last_ < next;
      lengths_ |= tail;
      last_ = next;
    }
    bool ascend() const noexcept { return ascend_ && (lengths_ & kLongMark) == 0; }

   private:
#ifdef __SIZEOF_INT128__
    // One subtraction with a carry, where the processor has it: comparing the halves costs a tenth of reading 4 KiB.
    __extension__ using Wide = unsigned __int128;
    static Wide wide(std::uint64_t head, std::uint64_t tail) noexcept { return static_cast<Wide>(head) << 64 | tail; }
#else
    using Wide = std::pair<std::uint64_t, std::uint64_t>;
    static Wide wide(std::uint64_t head, std::uint64_t tail) noexcept { return {head, tail}; }
#endif
    /// In the second eight bytes as a number: the highest bit of the length, which only `kShared` has.
    static constexpr std::uint64_t kLongMark = 0x80u << 8;
    static_assert((TKSValue::kShared & 0x80) != 0 && TKSValue::kInlineCapacity < 0x80);

    Wide last_{};  // less than any key, which ends with its kind
    std::uint64_t lengths_ = 0;
    bool ascend_ = true;
  };
  /// Eight bytes in memory: zeros, but for one.
  static constexpr std::uint64_t byteAt(std::size_t index, std::uint64_t byte) noexcept {
    return byte << 8 * (std::endian::native == std::endian::little ? index : sizeof byte - 1 - index);
  }
  /// The second eight bytes of a value.
  static constexpr std::uint64_t tail(TKSValue::Kind kind, std::uint8_t inlineLength, bool isUnsigned) noexcept {
    constexpr std::size_t kHead = sizeof(std::uint64_t);
    return byteAt(TKSValue::kUnsignedMark - kHead, isUnsigned ? 1 : 0) |
           byteAt(TKSValue::kInlineCapacity - kHead, inlineLength) |
           byteAt(TKSValue::kInlineCapacity + 1 - kHead, static_cast<std::uint8_t>(kind));
  }
  static std::uint64_t bigEndian(const TKSValue& value, std::size_t offset) noexcept {
    std::uint64_t word;
    std::memcpy(&word, reinterpret_cast<const unsigned char*>(&value) + offset, sizeof word);
    if constexpr (std::endian::native == std::endian::little) word = __builtin_bswap64(word);
    return word;
  }
};

/// What absent elements and keys read as.
const TKSValue& nothing() noexcept;

/// A dictionary's value under a key, or a null pointer; `node` may be null.
const TKSValue* find(const Node* node, std::string_view key) noexcept;

/// Sorts keys and values by key, unless they are sorted; of equal keys the last one stays. Returns how many values are
/// left. With `ownsReferences` those that go are released, else they belong to a block.
std::size_t sortByKey(std::span<TKSValue> keysAndValues, bool ownsReferences) noexcept;

/// Whether two arrays or two dictionaries hold the same; either may be null.
bool equalLists(const Node* left, const Node* right) noexcept;

/// Text of an array or dictionary; `node` may be null.
std::string describeList(TKSValue::Kind kind, const Node* node);

}  // namespace tks::value
