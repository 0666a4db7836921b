#include "codesign/trust/ber_structure.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace tks::codesign {
namespace {

constexpr std::size_t kDeepest = 64;
constexpr std::size_t kIndefinite = SIZE_MAX;

struct Element {
  std::uint8_t tag = 0;     ///< the first byte of it
  std::size_t content = 0;  ///< where its content begins
  std::size_t length = 0;   ///< or kIndefinite

  bool isConstructed() const { return (tag & 0x20) != 0; }
};

/// The element at an offset; nothing when it does not fit before `end`.
std::optional<Element> elementAt(Bytes encoded, std::size_t at, std::size_t end) {
  if (at >= end) return std::nullopt;
  Element element;
  element.tag = encoded[at++];
  if ((element.tag & 0x1f) == 0x1f) {
    while (at < end && (encoded[at] & 0x80) != 0) ++at;
    ++at;
  }
  if (at >= end) return std::nullopt;
  const std::uint8_t first = encoded[at++];
  element.length = first;
  if (first == 0x80) {
    element.length = kIndefinite;
  } else if (first > 0x80) {
    std::size_t count = first & 0x7f;
    if (count > 4 || count > end - at) return std::nullopt;
    element.length = 0;
    for (; count > 0; --count) element.length = element.length << 8 | encoded[at++];
  }
  element.content = at;
  if (element.length != kIndefinite && element.length > end - at) return std::nullopt;
  return element;
}

bool hasFittingForm(const Element& element) {
  constexpr std::uint8_t kUniversal = 0xc0;
  if ((element.tag & kUniversal) != 0) return true;
  switch (element.tag & 0x1f) {
    case 16:  // SEQUENCE
    case 17:  // SET
      return element.isConstructed();
    case 1:   // BOOLEAN
    case 2:   // INTEGER
    case 5:   // NULL
    case 6:   // OBJECT IDENTIFIER
    case 10:  // ENUMERATED
      return !element.isConstructed();
    default:
      return true;
  }
}

struct Open {
  std::size_t end = 0;
  bool indefinite = false;  ///< ends with two zeros somewhere before `end`
};

}  // namespace

bool isWellNested(Bytes encoded) {
  std::vector<Open> open;
  std::size_t at = 0;
  do {
    if (!open.empty() && !open.back().indefinite && at == open.back().end) {
      open.pop_back();
      continue;
    }
    const std::size_t end = open.empty() ? encoded.size() : open.back().end;
    const std::optional<Element> element = elementAt(encoded, at, end);
    if (!element) return false;
    at = element->content;
    if (element->tag == 0 && element->length == 0) {
      if (open.empty() || !open.back().indefinite) return false;
      open.pop_back();
      continue;
    }
    if (!hasFittingForm(*element)) return false;
    const bool indefinite = element->length == kIndefinite;
    if (!element->isConstructed()) {
      if (indefinite) return false;
      at += element->length;
    } else if (open.size() == kDeepest) {
      return false;
    } else {
      open.push_back({indefinite ? end : at + element->length, indefinite});
    }
  } while (!open.empty());
  return true;
}

}  // namespace tks::codesign
