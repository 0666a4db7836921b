#pragma once

#include <string_view>
#include <utility>

#include "platform/platform.h"

namespace tks::test {

/// A reader of JSON that throws instead of reading, for a scope.
template <class Exception>
class ThrowingReader final : public platform::Json {
 public:
  explicit ThrowingReader(Exception exception) : exception_(std::move(exception)) {}
  TKSValue parse(std::string_view, TKSError*) override { throw exception_; }

 private:
  Exception exception_;
  platform::Replaced<platform::Json> replaced_{*this};
};

}  // namespace tks::test
