#pragma once

#include <mutex>
#include <string_view>
#include <utility>

#include "platform/platform.h"

namespace tks::test {

/// Preferences that hold what the test says, for a scope; no launch argument is among them. Any thread may ask and
/// store; the test itself looks at `values` and changes them while nobody does.
class FakePreferences final : public platform::Preferences {
 public:
  explicit FakePreferences(TKSDictionary first = {}) : values(std::move(first)) {}
  TKSDictionary values;

  TKSDictionary dictionaryRepresentation() override {
    const std::scoped_lock lock(mutex_);
    return values;
  }
  TKSValue value(std::string_view key) override { return dictionaryRepresentation()[key]; }
  TKSValue argument(std::string_view) override { return {}; }
  bool set(std::string_view key, const TKSValue& value, TKSError*) override {
    const std::scoped_lock lock(mutex_);
    values.set(key, value);
    return true;
  }

 private:
  std::mutex mutex_;
  platform::Replaced<platform::Preferences> replaced_{*this};
};

}  // namespace tks::test
