#include <algorithm>
#include <memory>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueNodes.h"

using tks::value::Access;
using tks::value::List;

TKSArray::TKSArray(std::initializer_list<TKSValue> values) {
  if (values.size() == 0) return;
  List* const list = tks::value::makeList(TKSValue::Kind::array, values.size());
  std::uninitialized_copy(values.begin(), values.end(), list->values());
  list->size = values.size();
  node_ = list;
}

TKSArray::TKSArray(std::vector<TKSValue> values) {
  if (values.empty()) return;
  List* const list = tks::value::makeList(TKSValue::Kind::array, values.size());
  std::uninitialized_move(values.begin(), values.end(), list->values());
  list->size = values.size();
  node_ = list;
}

TKSArray::TKSArray(const TKSArray& other) noexcept : node_(other.node_) {
  if (node_ != nullptr) tks::value::retain(node_);
}

TKSArray::TKSArray(TKSArray&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}

TKSArray& TKSArray::operator=(const TKSArray& other) noexcept { return *this = TKSArray(other); }

TKSArray& TKSArray::operator=(TKSArray&& other) noexcept {
  TKSArray taken(std::move(other));
  std::swap(node_, taken.node_);
  return *this;
}

TKSArray::~TKSArray() { tks::value::release(node_); }

std::size_t TKSArray::size() const noexcept { return Access::values(node_).size(); }

const TKSValue& TKSArray::operator[](std::size_t index) const noexcept {
  const std::span<const TKSValue> values = Access::values(node_);
  return index < values.size() ? values[index] : tks::value::nothing();
}

TKSArray::const_iterator TKSArray::begin() const noexcept { return Access::values(node_).data(); }

TKSArray::const_iterator TKSArray::end() const noexcept {
  const std::span<const TKSValue> values = Access::values(node_);
  return values.data() + values.size();
}

void TKSArray::append(TKSValue value) {
  List* const list = tks::value::writable(node_, TKSValue::Kind::array, size() + 1);
  new (list->values() + list->size++) TKSValue(std::move(value));
}

void TKSArray::set(std::size_t index, TKSValue value) {
  if (index >= size()) return;
  tks::value::writable(node_, TKSValue::Kind::array, size())->values()[index] = std::move(value);
}

bool operator==(const TKSArray& left, const TKSArray& right) noexcept {
  return tks::value::equalLists(left.node_, right.node_);
}

std::string TKSArray::description() const { return tks::value::describeList(TKSValue::Kind::array, node_); }
