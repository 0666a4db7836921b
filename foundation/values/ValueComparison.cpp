#include <cmath>

#include "foundation/values/ValueNodes.h"
#include "foundation/values/WorkList.h"

namespace tks::value {
namespace {

using Kind = TKSValue::Kind;

/// What is left to compare of two lists.
struct Pair {
  const TKSValue* left;
  const TKSValue* right;
  std::size_t count;
};

bool equalReals(double left, double right) noexcept { return left == right || (std::isnan(left) && std::isnan(right)); }

bool equalNumbers(std::int64_t integer, double real) noexcept {
  constexpr double kBound = 9223372036854775808.0;  // 2^63
  return real >= -kBound && real < kBound && static_cast<double>(static_cast<std::int64_t>(real)) == real &&
         static_cast<std::int64_t>(real) == integer;
}

bool equalUnsigned(std::uint64_t integer, double real) noexcept {
  constexpr double kLeast = 9223372036854775808.0;   // 2^63
  constexpr double kBound = 18446744073709551616.0;  // 2^64
  return real >= kLeast && real < kBound && static_cast<std::uint64_t>(real) == integer;
}

bool equalAcrossKinds(const TKSValue& left, const TKSValue& right) noexcept {
  if (left.isReal() && right.isInteger()) return equalAcrossKinds(right, left);
  if (!left.isInteger() || !right.isReal()) return false;
  return left.isUnsignedInteger() ? equalUnsigned(left.unsignedInteger(), right.real())
                                  : equalNumbers(left.integer(), right.real());
}

/// Compares all but the content of arrays and dictionaries.
bool equalOnTheSurface(const TKSValue& left, const TKSValue& right) noexcept {
  if (left.kind() != right.kind()) return equalAcrossKinds(left, right);
  switch (left.kind()) {
    case Kind::nothing:
    case Kind::null:
      return true;
    case Kind::boolean:
      return left.boolean() == right.boolean();
    case Kind::integer:
      return left.isUnsignedInteger() == right.isUnsignedInteger() && left.integer() == right.integer() &&
             left.unsignedInteger() == right.unsignedInteger();
    case Kind::real:
      return equalReals(left.real(), right.real());
    case Kind::date:
      return equalReals(left.date().secondsSince1970, right.date().secondsSince1970);
    case Kind::text:
    case Kind::data:
      return Access::bytes(left) == Access::bytes(right);
    case Kind::array:
    case Kind::dictionary:
      return Access::values(left).size() == Access::values(right).size();
  }
  return false;
}

bool isList(const TKSValue& value) noexcept { return value.isArray() || value.isDictionary(); }

}  // namespace

bool equalLists(const Node* left, const Node* right) noexcept {
  const std::span<const TKSValue> leftValues = Access::values(left);
  const std::span<const TKSValue> rightValues = Access::values(right);
  if (leftValues.size() != rightValues.size()) return false;

  WorkList<Pair> work;
  work.push({leftValues.data(), rightValues.data(), leftValues.size()});
  while (!work.empty()) {
    Pair& pair = work.top();
    if (pair.count == 0 || pair.left == pair.right) {
      work.pop();
      continue;
    }
    const TKSValue& leftValue = *pair.left++;
    const TKSValue& rightValue = *pair.right++;
    --pair.count;
    if (!equalOnTheSurface(leftValue, rightValue)) return false;
    if (!isList(leftValue) || Access::node(leftValue) == Access::node(rightValue)) continue;
    const std::span<const TKSValue> inner = Access::values(leftValue);
    // Without memory to look any deeper they do not count as equal.
    if (!work.tryPush({inner.data(), Access::values(rightValue).data(), inner.size()})) return false;
  }
  return true;
}

}  // namespace tks::value

bool operator==(const TKSValue& left, const TKSValue& right) noexcept {
  using namespace tks::value;
  if (!equalOnTheSurface(left, right)) return false;
  return !isList(left) || equalLists(Access::node(left), Access::node(right));
}
