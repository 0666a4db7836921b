#include <tksinterface/TKSValue.h>

#include <cmath>
#include <limits>

#include "foundation/values/ValueNodes.h"

using tks::value::Access;

static_assert(sizeof(TKSValue) == 16);

namespace {

void setBytes(TKSValue& value, TKSValue::Kind kind, const void* bytes, std::size_t size) {
  if (Access::fits(size)) {
    Access::setShort(value, kind, bytes, size);
  } else {
    Access::setNode(value, kind, tks::value::makeBytes(kind, bytes, size));
  }
}

std::int64_t clampedToInteger(double real) noexcept {
  constexpr double kBound = 9223372036854775808.0;  // 2^63
  if (std::isnan(real)) return 0;
  if (real >= kBound) return std::numeric_limits<std::int64_t>::max();
  if (real < -kBound) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

}  // namespace

TKSValue::TKSValue(std::string_view text) { setBytes(*this, Kind::text, text.data(), text.size()); }

TKSValue::TKSValue(const char* text) {
  if (text != nullptr) setBytes(*this, Kind::text, text, std::strlen(text));
}

TKSValue::TKSValue(const std::optional<std::string>& text) {
  if (text) setBytes(*this, Kind::text, text->data(), text->size());
}

TKSValue::TKSValue(TKSData data) { setBytes(*this, Kind::data, data.data(), data.size()); }

TKSValue::TKSValue(TKSArray array) noexcept {
  Access::setNode(*this, Kind::array, std::exchange(array.node_, nullptr));
}

TKSValue::TKSValue(TKSDictionary dictionary) noexcept {
  Access::setNode(*this, Kind::dictionary, std::exchange(dictionary.node_, nullptr));
}

void TKSValue::retain() const noexcept { tks::value::retain(scalar<tks::value::Node*>()); }

void TKSValue::release() const noexcept { tks::value::release(scalar<tks::value::Node*>()); }

std::string_view TKSValue::sharedText() const noexcept { return Access::bytes(*this); }

bool TKSValue::boolean() const noexcept {
  switch (kind_) {
    case Kind::boolean:
      return scalar<bool>();
    case Kind::integer:
      return scalar<std::int64_t>() != 0;
    case Kind::real:
      return scalar<double>() != 0;
    default:
      return false;
  }
}

std::int64_t TKSValue::integer() const noexcept {
  switch (kind_) {
    case Kind::boolean:
      return scalar<bool>() ? 1 : 0;
    case Kind::integer:
      return isUnsignedInteger() ? std::numeric_limits<std::int64_t>::max() : scalar<std::int64_t>();
    case Kind::real:
      return clampedToInteger(scalar<double>());
    default:
      return 0;
  }
}

double TKSValue::real() const noexcept {
  switch (kind_) {
    case Kind::boolean:
      return scalar<bool>() ? 1 : 0;
    case Kind::integer:
      return isUnsignedInteger() ? static_cast<double>(scalar<std::uint64_t>())
                                 : static_cast<double>(scalar<std::int64_t>());
    case Kind::real:
      return scalar<double>();
    default:
      return 0;
  }
}

std::optional<std::string> TKSValue::optionalText() const {
  if (!isText()) return std::nullopt;
  return std::string(text());
}

TKSData TKSValue::data() const {
  if (!isData()) return {};
  const std::string_view bytes = Access::bytes(*this);
  return TKSData(bytes.begin(), bytes.end());
}

TKSDate TKSValue::date() const noexcept { return TKSDate{isDate() ? scalar<double>() : 0}; }

TKSArray TKSValue::array() const noexcept {
  TKSArray array;
  if (isArray() && isShared()) {
    retain();
    array.node_ = scalar<tks::value::Node*>();
  }
  return array;
}

TKSDictionary TKSValue::dictionary() const noexcept {
  TKSDictionary dictionary;
  if (isDictionary() && isShared()) {
    retain();
    dictionary.node_ = scalar<tks::value::Node*>();
  }
  return dictionary;
}

const TKSValue& TKSValue::operator[](std::string_view key) const noexcept {
  const TKSValue* const found = isDictionary() ? tks::value::find(Access::node(*this), key) : nullptr;
  return found != nullptr ? *found : tks::value::nothing();
}

const TKSValue& TKSValue::operator[](std::size_t index) const noexcept {
  if (!isArray()) return tks::value::nothing();
  const std::span<const TKSValue> values = Access::values(*this);
  return index < values.size() ? values[index] : tks::value::nothing();
}

std::string_view TKSValue::className() const noexcept {
  switch (kind_) {
    case Kind::nothing:
      return "(null)";
    case Kind::null:
      return "null";
    case Kind::boolean:
      return "boolean";
    case Kind::integer:
    case Kind::real:
      return "number";
    case Kind::text:
      return "string";
    case Kind::data:
      return "data";
    case Kind::date:
      return "date";
    case Kind::array:
      return "array";
    case Kind::dictionary:
      return "dictionary";
  }
  return "(null)";
}
