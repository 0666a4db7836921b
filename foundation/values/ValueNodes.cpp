#include "foundation/values/ValueNodes.h"

#include <algorithm>
#include <memory>

#include "foundation/values/KeptRoom.h"

namespace tks::value {
namespace {

/// Allocators are quickest with memory of up to about a kilobyte.
constexpr std::size_t kSmallestBlock = 256;
constexpr std::size_t kSmallestChunk = 1024;
constexpr std::size_t kLargestGrownChunk = 1024 * 1024;

constexpr std::size_t roundedUp(std::size_t bytes) { return (bytes + 7) & ~std::size_t{7}; }

void* allocate(std::size_t header, std::size_t content) {
  if (content > SIZE_MAX / 2) throw std::bad_alloc();
  return ::operator new(header + content);
}

}  // namespace

Block::Room Block::make(std::size_t expectedBytes) {
  const std::size_t room = std::max(roundedUp(expectedBytes), kSmallestBlock);
  const std::size_t whole = sizeof(Block) + room;
  if (whole >= KeptRoom::kLeast && whole <= KeptRoom::kMost) return makeIn(KeptRoom::take(whole), KeptRoom::giveBack);
  const Freer freer = [](void* memory, std::size_t) noexcept { ::operator delete(memory); };
  return (new (value::allocate(sizeof(Block), room)) Block(sizeof(Block) + room, freer))->roomAfterHeader();
}

Block::Room Block::makeIn(std::span<char> memory, Freer freer) noexcept {
  return (new (memory.data()) Block(memory.size(), freer))->roomAfterHeader();
}

Block::Room Block::addChunk(std::size_t bytes) {
  const std::size_t room = std::max(roundedUp(bytes), std::clamp(total_, kSmallestChunk, kLargestGrownChunk));
  char* const memory = static_cast<char*>(value::allocate(sizeof(Chunk), room));
  chunks_ = new (memory) Chunk{chunks_};
  total_ += room;
  return {this, memory + sizeof(Chunk), memory + sizeof(Chunk) + room};
}

void Block::freeAll() noexcept {
  for (Chunk* chunk = chunks_; chunk != nullptr;) {
    Chunk* const next = chunk->next;
    ::operator delete(chunk);
    chunk = next;
  }
  freer_(this, size_);
}

void destroy(Node* node) noexcept {
  // Nodes waiting to be freed form a list of their own: no recursion, and no memory is needed to give memory back.
  node->next = nullptr;
  while (node != nullptr) {
    Node* waiting = node->next;
    for (const TKSValue& value : node->isList() ? Access::values(node) : std::span<const TKSValue>()) {
      Node* const child = Access::node(value);
      if (child == nullptr || !dropReference(child)) continue;
      child->next = waiting;
      waiting = child;
    }
    ::operator delete(node);
    node = waiting;
  }
}

Node* makeBytes(TKSValue::Kind kind, const void* bytes, std::size_t size) {
  Node* const node = new (allocate(sizeof(Node) + kBytesBehind, size)) Node(kind, size, nullptr);
  node->setBytes(bytes);
  return node;
}

List* makeList(TKSValue::Kind kind, std::size_t capacity) {
  if (capacity > kMostValues) throw std::bad_alloc();
  return new (allocate(sizeof(List), capacity * sizeof(TKSValue))) List(kind, capacity, nullptr);
}

List* writable(Node*& node, TKSValue::Kind kind, std::size_t size) {
  List* const before = static_cast<List*>(node);
  if (before == nullptr) {
    List* const list = makeList(kind, std::max<std::size_t>(size, 8));
    node = list;
    return list;
  }
  const bool unique = isUnique(before);
  if (unique && size <= before->capacity) return before;

  List* const list = makeList(kind, size <= before->size ? before->size : std::max(size, 2 * before->size));
  list->size = before->size;
  if (unique) {
    // The values move as they are: nobody looks at the old ones any more.
    std::memcpy(static_cast<void*>(list->values()), static_cast<const void*>(before->values()),
                before->size * sizeof(TKSValue));
    ::operator delete(before);
  } else {
    std::uninitialized_copy_n(before->values(), before->size, list->values());
    release(before);
  }
  node = list;
  return list;
}

const TKSValue& nothing() noexcept {
  static constexpr TKSValue kNothing;
  return kNothing;
}

const TKSValue* find(const Node* node, std::string_view key) noexcept {
  const std::span<const TKSValue> entries = Access::values(node);
  TKSValue wanted;
  const bool isShort = Access::fits(key.size());
  if (isShort) Access::setShort(wanted, TKSValue::Kind::text, key.data(), key.size());

  std::size_t first = 0;
  std::size_t last = entries.size() / 2;
  while (first < last) {
    const std::size_t middle = (first + last) / 2;
    const TKSValue& candidate = entries[2 * middle];
    const int order = isShort ? Access::compareTexts(candidate, wanted) : candidate.text().compare(key);
    if (order == 0) return &entries[2 * middle + 1];
    (order < 0 ? first : last) = order < 0 ? middle + 1 : middle;
  }
  return nullptr;
}

namespace {

/// A key and its value as they stand in a list, moved about as plain bytes.
struct Entry {
  alignas(TKSValue) unsigned char key[sizeof(TKSValue)];
  unsigned char value[sizeof(TKSValue)];

  const TKSValue& keyValue() const noexcept { return *reinterpret_cast<const TKSValue*>(key); }
  const TKSValue& valueValue() const noexcept { return *reinterpret_cast<const TKSValue*>(value); }
};
static_assert(sizeof(Entry) == 2 * sizeof(TKSValue));

bool precedes(const Entry& left, const Entry& right) noexcept {
  return Access::compareTexts(left.keyValue(), right.keyValue()) < 0;
}

void sortStably(std::span<Entry> entries) noexcept {
  constexpr std::size_t kFew = 16;
  if (entries.size() > kFew) {
    std::stable_sort(entries.begin(), entries.end(), precedes);  // sorts in place when there is no memory to spare
    return;
  }
  for (std::size_t i = 1; i < entries.size(); ++i) {
    if (!precedes(entries[i], entries[i - 1])) continue;
    const Entry moved = entries[i];
    std::size_t to = i;
    do {
      entries[to] = entries[to - 1];
    } while (--to > 0 && precedes(moved, entries[to - 1]));
    entries[to] = moved;
  }
}

void giveBack(const Entry& entry) noexcept {
  release(Access::node(entry.keyValue()));
  release(Access::node(entry.valueValue()));
}

}  // namespace

std::size_t sortByKey(std::span<TKSValue> keysAndValues, bool ownsReferences) noexcept {
  const std::span<Entry> entries(reinterpret_cast<Entry*>(keysAndValues.data()), keysAndValues.size() / 2);
  const auto outOfOrder = [](const Entry& left, const Entry& right) { return !precedes(left, right); };
  const auto disorder = std::adjacent_find(entries.begin(), entries.end(), outOfOrder);
  if (disorder == entries.end()) return keysAndValues.size();

  sortStably(entries);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const bool replaced = i + 1 < entries.size() && !precedes(entries[i], entries[i + 1]);
    if (!replaced) {
      entries[kept++] = entries[i];
    } else if (ownsReferences) {
      giveBack(entries[i]);
    }
  }
  return 2 * kept;
}

}  // namespace tks::value
