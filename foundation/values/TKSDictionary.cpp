#include <algorithm>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueNodes.h"

using tks::value::Access;
using tks::value::List;

namespace {

/// Where a key stands among the keys and values of a dictionary, or where it would have to stand.
struct Place {
  std::size_t index;
  bool found;
};

Place placeOf(std::span<const TKSValue> entries, const TKSValue& key) noexcept {
  // Keys often come in ascending order.
  if (entries.empty() || Access::compareTexts(entries[entries.size() - 2], key) < 0) return {entries.size(), false};
  std::size_t first = 0;
  std::size_t last = entries.size() / 2;
  while (first < last) {
    const std::size_t middle = (first + last) / 2;
    const int order = Access::compareTexts(entries[2 * middle], key);
    if (order == 0) return {2 * middle, true};
    (order < 0 ? first : last) = order < 0 ? middle + 1 : middle;
  }
  return {2 * first, false};
}

/// Moves values as plain bytes: their counts stay as they are.
void relocate(TKSValue* to, const TKSValue* from, std::size_t count) noexcept {
  std::memmove(static_cast<void*>(to), static_cast<const void*>(from), count * sizeof(TKSValue));
}

void insert(List& list, std::size_t index, TKSValue key, TKSValue value) noexcept {
  TKSValue* const at = list.values() + index;
  relocate(at + 2, at, list.size - index);
  new (at) TKSValue(std::move(key));
  new (at + 1) TKSValue(std::move(value));
  list.size += 2;
}

void remove(List& list, std::size_t index) noexcept {
  TKSValue* const at = list.values() + index;
  const TKSValue key = std::move(at[0]);
  const TKSValue value = std::move(at[1]);
  relocate(at, at + 2, list.size - index - 2);
  list.size -= 2;
}

}  // namespace

TKSDictionary::TKSDictionary(std::initializer_list<std::pair<std::string_view, TKSValue>> entries) {
  TKSDictionary made;
  for (const auto& [key, value] : entries) made.set(key, value);
  std::swap(node_, made.node_);
}

TKSDictionary::TKSDictionary(std::vector<std::pair<std::string, TKSValue>> entries) {
  if (entries.empty()) return;
  TKSDictionary made;
  List* const list = tks::value::writable(made.node_, TKSValue::Kind::dictionary, 2 * entries.size());
  for (std::pair<std::string, TKSValue>& entry : entries) {
    TKSValue key(entry.first);
    TKSValue* const at = list->values() + list->size;
    new (at) TKSValue(std::move(key));
    new (at + 1) TKSValue(std::move(entry.second));
    list->size += 2;
  }
  list->size = tks::value::sortByKey({list->values(), list->size}, true);
  for (std::size_t i = list->size; i > 0; i -= 2) {
    if (list->values()[i - 1].isNothing()) remove(*list, i - 2);
  }
  std::swap(node_, made.node_);
}

TKSDictionary::TKSDictionary(const TKSDictionary& other) noexcept : node_(other.node_) {
  if (node_ != nullptr) tks::value::retain(node_);
}

TKSDictionary::TKSDictionary(TKSDictionary&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}

TKSDictionary& TKSDictionary::operator=(const TKSDictionary& other) noexcept { return *this = TKSDictionary(other); }

TKSDictionary& TKSDictionary::operator=(TKSDictionary&& other) noexcept {
  TKSDictionary taken(std::move(other));
  std::swap(node_, taken.node_);
  return *this;
}

TKSDictionary::~TKSDictionary() { tks::value::release(node_); }

std::size_t TKSDictionary::size() const noexcept { return Access::values(node_).size() / 2; }

const TKSValue* TKSDictionary::find(std::string_view key) const noexcept { return tks::value::find(node_, key); }

const TKSValue& TKSDictionary::operator[](std::string_view key) const noexcept {
  const TKSValue* const found = find(key);
  return found != nullptr ? *found : tks::value::nothing();
}

TKSDictionary::const_iterator TKSDictionary::begin() const noexcept {
  return const_iterator(Access::values(node_).data());
}

TKSDictionary::const_iterator TKSDictionary::end() const noexcept {
  const std::span<const TKSValue> entries = Access::values(node_);
  return const_iterator(entries.data() + entries.size());
}

void TKSDictionary::set(std::string_view key, TKSValue value) {
  if (value.isNothing()) {
    erase(key);
    return;
  }
  TKSValue keyValue(key);
  const std::span<const TKSValue> entries = Access::values(node_);
  const Place place = placeOf(entries, keyValue);
  List* const list = tks::value::writable(node_, TKSValue::Kind::dictionary, entries.size() + (place.found ? 0 : 2));
  if (place.found) {
    list->values()[place.index + 1] = std::move(value);
  } else {
    insert(*list, place.index, std::move(keyValue), std::move(value));
  }
}

bool TKSDictionary::erase(std::string_view key) {
  const TKSValue* const found = find(key);
  if (found == nullptr) return false;
  const std::span<const TKSValue> entries = Access::values(node_);
  const std::size_t index = static_cast<std::size_t>(found - entries.data()) - 1;
  remove(*tks::value::writable(node_, TKSValue::Kind::dictionary, entries.size()), index);
  return true;
}

bool operator==(const TKSDictionary& left, const TKSDictionary& right) noexcept {
  return tks::value::equalLists(left.node_, right.node_);
}

std::string TKSDictionary::description() const { return tks::value::describeList(TKSValue::Kind::dictionary, node_); }
