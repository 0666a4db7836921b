#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace tks::test {

/// Gives this process another main bundle and other launch arguments, for a scope. Everything else of both contracts is
/// as it was.
class FakeHostProcess final : public platform::Bundles, public platform::Preferences {
 public:
  std::optional<std::string> bundleIdentifier;
  /// Names without the dash.
  std::map<std::string, std::string, std::less<>> arguments;

  std::optional<std::string> mainBundleIdentifier() override { return bundleIdentifier; }
  std::string libraryVersion() override { return bundles_.before().libraryVersion(); }
  std::optional<platform::Bundle> open(std::string_view path) override { return bundles_.before().open(path); }

  TKSDictionary dictionaryRepresentation() override { return preferences_.before().dictionaryRepresentation(); }
  TKSValue value(std::string_view key) override { return preferences_.before().value(key); }
  TKSValue argument(std::string_view key) override {
    const auto found = arguments.find(key);
    return found != arguments.end() ? TKSValue(found->second) : TKSValue();
  }
  bool set(std::string_view key, const TKSValue& value, TKSError* error) override {
    return preferences_.before().set(key, value, error);
  }

 private:
  platform::Replaced<platform::Bundles> bundles_{*this};
  platform::Replaced<platform::Preferences> preferences_{*this};
};

}  // namespace tks::test
