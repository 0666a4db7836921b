#pragma once

#include <utility>

namespace tks::test {

/// Gives a variable another value for a scope.
template <class T>
class ScopedValue {
 public:
  ScopedValue(T& variable, T value) : variable_(variable), before_(std::exchange(variable, std::move(value))) {}
  ~ScopedValue() { variable_ = std::move(before_); }
  ScopedValue(const ScopedValue&) = delete;
  ScopedValue& operator=(const ScopedValue&) = delete;

 private:
  T& variable_;
  T before_;
};

}  // namespace tks::test
