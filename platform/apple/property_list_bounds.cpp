#include "platform/apple/property_list_bounds.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "platform/apple/property_list_xml_look.h"

namespace tks::platform::apple {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view kBinaryMark = "bplist";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

std::uint64_t numberAt(Bytes content, std::uint64_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | content[offset + i];
  return value;
}

/// The high half of the byte that an object begins with.
enum Kind : unsigned {
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kUtf8 = 0x7,
  kArray = 0xA,
  kOrderedSet = 0xB,
  kSet = 0xC,
  kDictionary = 0xD,
};

/// The objects of a binary list and what they refer to. Form: a byte of kind and count, a longer count as an integer
/// object after it, then references; the trailer says where the objects begin.
class BinaryList {
 public:
  explicit BinaryList(Bytes content) : content_(content) {}

  PropertyListLook look() {
    if (!readTrailer()) return PropertyListLook::noPropertyList;
    objects_.resize(count_);
    std::vector<Open> stack;
    if (!enter(top_, stack)) return PropertyListLook::noPropertyList;
    while (!stack.empty()) {
      Open& open = stack.back();
      if (open.next == open.members) {
        Object& object = objects_[open.object];
        object.isOpen = false;
        const Object done = object;
        stack.pop_back();
        if (!stack.empty() && !add(stack.back().object, done)) return PropertyListLook::beyondBounds;
        continue;
      }
      const bool isKey = open.next < open.keys;
      const std::uint64_t member = numberAt(content_, open.references + open.next++ * referenceSize_, referenceSize_);
      if (member >= count_) return PropertyListLook::noPropertyList;
      if (objects_[member].isOpen) return PropertyListLook::noPropertyList;  // it would hold itself
      if (isKey && !isText(member)) return PropertyListLook::noPropertyList;
      const std::uint64_t holder = open.object;
      if (objects_[member].weight == 0 && !enter(member, stack)) return PropertyListLook::noPropertyList;
      const bool isWhole = !objects_[member].isOpen;
      if (isWhole && !add(holder, objects_[member])) return PropertyListLook::beyondBounds;
      if (stack.size() > kDeepestNesting) return PropertyListLook::beyondBounds;
    }
    return PropertyListLook::sound;
  }

 private:
  struct Object {
    /// Containers on the way to the deepest member, this one counted.
    std::uint32_t depth = 0;
    bool isOpen = false;
    /// Bytes that it comes to with all that it refers to; 0: not looked at yet.
    std::uint64_t weight = 0;
  };
  struct Open {
    std::uint64_t object = 0;
    std::uint64_t references = 0;
    /// Those of a dictionary stand before its values.
    std::uint64_t keys = 0;
    std::uint64_t members = 0;
    std::uint64_t next = 0;
  };

  bool readTrailer() {
    if (content_.size() < kHeaderSize + kTrailerSize) return false;
    const std::uint64_t trailer = content_.size() - kTrailerSize;
    offsetSize_ = content_[trailer + 6];
    referenceSize_ = content_[trailer + 7];
    count_ = numberAt(content_, trailer + 8, 8);
    top_ = numberAt(content_, trailer + 16, 8);
    table_ = numberAt(content_, trailer + 24, 8);
    const bool sizes = offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8;
    return sizes && table_ <= trailer && count_ <= (trailer - table_) / offsetSize_ && top_ < count_;
  }

  std::uint64_t offsetOf(std::uint64_t number) const {
    return numberAt(content_, table_ + number * offsetSize_, offsetSize_);
  }

  /// Whether an object begins where objects lie.
  bool isInPlace(std::uint64_t offset) const { return offset >= kHeaderSize && offset < table_; }

  bool isText(std::uint64_t number) const {
    const std::uint64_t offset = offsetOf(number);
    const unsigned kind = isInPlace(offset) ? content_[offset] >> 4 : 0u;
    return kind == kAscii || kind == kUtf16 || kind == kUtf8;
  }

  /// Looks at an object for the first time; one with members is open until they have been looked at.
  bool enter(std::uint64_t number, std::vector<Open>& stack) {
    const std::uint64_t offset = offsetOf(number);
    if (!isInPlace(offset)) return false;
    const unsigned kind = content_[offset] >> 4;
    const bool isDictionary = kind == kDictionary;
    const bool isContainer = isDictionary || (kind >= kArray && kind <= kSet);
    if (!isContainer) return enterLeaf(number, offset);
    objects_[number] = {.depth = 1, .isOpen = true, .weight = sizeof(TKSValue)};
    std::uint64_t members = content_[offset] & 15;
    std::uint64_t references = offset + 1;
    if (members == 15 && !readLongCount(references, members)) return false;
    if (members > (table_ - references) / referenceSize_ / (isDictionary ? 2 : 1)) return false;
    stack.push_back({number, references, isDictionary ? members : 0, isDictionary ? members * 2 : members, 0});
    return true;
  }

  bool enterLeaf(std::uint64_t number, std::uint64_t offset) {
    const std::optional<std::uint64_t> bytes = bytesOf(offset);
    if (bytes) objects_[number] = {.depth = 0, .isOpen = false, .weight = sizeof(TKSValue) + *bytes};
    return bytes.has_value();
  }

  /// The bytes after an object's first one, and after its count; nothing when they do not all lie before the table.
  std::optional<std::uint64_t> bytesOf(std::uint64_t offset) const {
    const unsigned kind = content_[offset] >> 4;
    std::uint64_t count = content_[offset] & 15;
    std::uint64_t start = offset + 1;
    if (kind == kInteger || kind == kReal || kind == kDate) {
      count = std::uint64_t{1} << count;
    } else if (kind < kData || kind > kUtf8) {
      return 0;
    } else if (count == 15 && !readLongCount(start, count)) {
      return std::nullopt;
    }
    const std::uint64_t width = kind == kUtf16 ? 2 : 1;
    if (count > (table_ - start) / width) return std::nullopt;
    return count * width;
  }

  bool readLongCount(std::uint64_t& offset, std::uint64_t& count) const {
    if (offset >= table_ || content_[offset] >> 4 != 1 || (content_[offset] & 15) > 3) return false;
    const std::size_t size = std::size_t{1} << (content_[offset] & 15);
    if (table_ - offset - 1 < size) return false;
    count = numberAt(content_, offset + 1, size);
    offset += 1 + size;
    return true;
  }

  /// Counts a member in; whether the container is still within the bounds.
  bool add(std::uint64_t container, const Object& member) {
    Object& object = objects_[container];
    object.depth = std::max(object.depth, member.depth + 1);
    object.weight += member.weight;
    return object.depth <= kDeepestNesting && object.weight <= property_list::largestExpansion(content_.size());
  }

  Bytes content_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t table_ = 0;
  std::vector<Object> objects_;
};

}  // namespace

PropertyListLook lookAtPropertyList(Bytes content) {
  if (content.size() > kLargestPropertyList) return PropertyListLook::beyondBounds;
  const bool isBinary =
      content.size() >= kBinaryMark.size() &&
      std::equal(kBinaryMark.begin(), kBinaryMark.end(), content.begin(),
                 [](char ours, std::uint8_t theirs) { return static_cast<std::uint8_t>(ours) == theirs; });
  return isBinary ? BinaryList(content).look() : lookAtXml(content);
}

}  // namespace tks::platform::apple
